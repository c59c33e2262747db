// Reading one grid: the data callback, and reads of less than it delivers.
#pragma once

#include "readers/cradle/host_services.h"
#include "readers/cradle/read_request.h"

DataCallback fld_read_data;

// The same with only what is wanted. The callback is a read of everything.
void fld_read_wanted(int32_t unit, int32_t grid_number, int32_t node_count, float* coords,
                     int32_t variable_count, float* values, const ReadRequest& request,
                     int32_t* error_flag);

// The file that holds the nodes, cells and faces of a grid (from 1) of the open dataset; empty when
// none is open.
[[nodiscard]] const char* file_of_grid(int32_t grid_number);
