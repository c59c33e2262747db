// "LS_MatOfElements" and "LS_Elements": the cells of a grid.
#pragma once

#include "readers/cradle/heap_array.h"
#include "readers/cradle/read_request.h"
#include "readers/cradle/wall_records.h"

#include <cstdint>

// Reads the material number of every element. Only whether it is 0 matters: such an element is not
// created. `materials` receives one bit per element, from the lowest bit of each byte on, set
// unless the number is 0. In the scan nothing is stored.
[[nodiscard]] bool read_fld_element_materials(int32_t unit, bool scan_only, int32_t* material_count,
                                              HeapArray<uint8_t>* materials);

// Reads type codes and node lists; in load mode creates one cell per volume element in the host and
// flags the faces that `walls` names, which are taken from it. The scan needs neither array. With
// `counts` the cells are only counted there.
[[nodiscard]] bool read_fld_elements(int32_t unit, bool scan_only, int32_t material_count,
                                     const uint8_t* materials, WallQueue* walls,
                                     GridCounts* counts);
