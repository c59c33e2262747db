// "LS_CoordinateSystem" and "LS_Nodes": the node coordinates of a grid.
#pragma once

#include "readers/cradle/heap_array.h"

#include <cstdint>

constexpr int32_t CARTESIAN = 0;   // x, y, z
constexpr int32_t CYLINDRICAL = 1; // radius, angle in radians from x toward y, z

[[nodiscard]] bool coordinate_system_is_valid(int32_t code);

// The same, and prints the message for a file whose code is neither.
[[nodiscard]] bool check_coordinate_system(int32_t code);

// Reads the body of an "LS_CoordinateSystem" section; the code is not checked.
[[nodiscard]] bool read_coordinate_system(int32_t unit, int32_t* code);

// Reads the body of an "LS_Nodes" section. `node_count` receives the file's node count. In load
// mode that must equal `query_count`, and `coords` (3 planes of `query_count` floats: all x, all y,
// all z) receives Cartesian coordinates; cylindrical ones are converted in place. `polar`, when
// given, then receives a copy of the first two planes as stored (radius, angle).
[[nodiscard]] bool read_fld_nodes(int32_t unit, bool scan_only, int32_t query_count,
                                  int32_t* node_count, float* coords, HeapArray<float>* polar);
