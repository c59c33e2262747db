// What the lines of a trace are made of.
#pragma once

#include "reader_library.h"

#include <cstdint>
#include <string>

namespace fld_test
{

// What the host's buffers hold before they are written.
constexpr unsigned char UNTOUCHED = 0xA5;

std::string list_text(const int32_t* values, int64_t count);

// Different bit patterns differ.
std::string real_text(float value);

// A row of a plane: the word, and its values.
std::string reals_line(const std::string& word, const float* values, int64_t count);

// `face_flags` and 1-based `nodes` as many as the shape has.
std::string cell_line(fld_host::Shape shape, const int32_t* face_flags, const int32_t* nodes);
std::string face_line(int32_t boundary_type, int32_t vertex_count, const int32_t* nodes);

} // namespace fld_test
