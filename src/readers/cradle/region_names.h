// "LS_RegionName&Type": which surface regions of a grid are walls.
#pragma once

#include "readers/cradle/heap_array.h"

#include <cstdint>

// Whether a region has no name; prints the warning that it is passed over.
[[nodiscard]] bool region_name_is_empty(const char* name);

// Adds the section's wall regions to `wall_region_count`. In load mode a copy of each name goes
// into `wall_names`, which has room for `wall_name_capacity` of them; they belong to the caller.
[[nodiscard]] bool read_fld_region_names(int32_t unit, bool scan_only, int32_t* wall_region_count,
                                         HeapArray<char>* wall_names, int32_t wall_name_capacity);
