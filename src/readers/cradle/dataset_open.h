// Opening a dataset: the header, peek-time and close callbacks.
#pragma once

#include "readers/cradle/host_services.h"

#include <cstdint>

// Opens a file on one of the dataset's units: as nzn_open_unit, but -1, which means "no unit", and
// names that the dataset has no room for cannot be opened.
[[nodiscard]] int32_t open_dataset_unit(int32_t unit, const char* name);

// Closes the dataset's open file, if there is one.
void close_current_unit();

HeaderCallback fld_read_header;
PeekTimeCallback fld_peek_time;
CloseCallback fld_free_dataset;
