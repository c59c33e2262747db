// Reading the variables of one grid.
#pragma once

#include "readers/cradle/heap_array.h"
#include "readers/cradle/read_request.h"

#include <cstdint>

// The nodes of the grid that was read: the host's buffer of Cartesian coordinates (3 planes), and
// radius and angle as the node section stores them (2 planes) where they were kept.
struct GridNodes {
    const float* coords;
    HeapArray<float> polar;
    HeapArray<float> own_coords; // the buffer when it is not the host's
};

// Fills `values` (variable count x node count floats) with every variable of the grid in the order
// of the host's list; a variable that the grid lacks becomes +infinity. The file that holds the
// results is open as `unit`. Only what is wanted is read.
void read_results(const int32_t* unit, const int32_t* grid_number, const int32_t* node_count,
                  const int32_t* variable_count, GridNodes* nodes, float* values,
                  const ReadRequest& request, int32_t* error_flag);
