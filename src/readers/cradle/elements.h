// "LS_MatOfElements" and "LS_Elements": the cells of a grid.
#pragma once

#include "readers/cradle/heap_array.h"

#include <cstdint>

// One boundary face of a wall region.
struct ElementWall {
    int32_t element;  // 0-based, in "LS_Elements" order
    int32_t nodes[4]; // 1-based; the fourth is -1 for a triangle
};

// Reads the material number of every element. Only whether it is 0 matters: such an element is not
// created. `materials` receives one bit per element, from the lowest bit of each byte on, set
// unless the number is 0. In the scan nothing is stored.
[[nodiscard]] bool read_fld_element_materials(int32_t unit, bool scan_only, int32_t* material_count,
                                              HeapArray<uint8_t>* materials);

// Reads type codes and node lists; in load mode creates one cell per volume element in the host and
// flags the faces that `walls` names. `walls` must be sorted by element.
[[nodiscard]] bool read_fld_elements(int32_t unit, bool scan_only, int32_t material_count,
                                     const uint8_t* materials, int32_t wall_count,
                                     const ElementWall* walls);
