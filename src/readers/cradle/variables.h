// "LS_Scalar:" and "LS_Vector:": result variables, one value or three components per node.
#pragma once

#include <cstdint>

// Whether a section of this name holds a vector.
[[nodiscard]] bool is_vector_section(const char* name);

// In the scan the readers append the variable's names, built from the section's key and label, to
// `names` (`name_capacity` rows of 80 bytes, padded with NUL); `name_count` grows by 1 or 3 whether
// or not there were rows. In load mode they write `node_count` floats (a vector: three blocks of
// them, x, y, z) to `values`, undefined ones as +infinity.
[[nodiscard]] bool read_scalar_section(int32_t unit, bool scan_only, const char* key,
                                       int32_t name_capacity, int32_t node_count,
                                       int32_t* name_count, char* names, float* values);

// `node_coords`: the radius of every node, then the angle of every node, as the node section stores
// them; read only when the coordinate system in force is cylindrical.
[[nodiscard]] bool read_vector_section(int32_t unit, bool scan_only, const char* key,
                                       int32_t name_capacity, int32_t node_count,
                                       const float* node_coords, int32_t* name_count, char* names,
                                       float* values);

// Whether there is a buffer for the values of a vector or scalar; prints when it is missing.
[[nodiscard]] bool value_buffer_is_there(bool is_vector, int32_t node_count, const float* values);
