#include "trace_text.h"

#include <bit>
#include <charconv>
#include <cmath>
#include <cstdio>

namespace fld_test
{

std::string list_text(const int32_t* values, int64_t count)
{
    std::string text;
    for (int64_t i = 0; i < count; ++i) text.append(" ").append(std::to_string(values[i]));
    return text;
}

// The shortest decimal that gives this very bit pattern back; the pattern itself for others.
std::string real_text(float value)
{
    const auto bits = std::bit_cast<uint32_t>(value);
    if (bits == UNTOUCHED * 0x01010101U) return "untouched";
    char text[32];
    if (std::isnan(value)) {
        (void)snprintf(text, sizeof text, "nan:%08X", bits);
        return text;
    }
    return {text, std::to_chars(text, text + sizeof text, value).ptr};
}

std::string reals_line(const std::string& word, const float* values, int64_t count)
{
    std::string text = word;
    for (int64_t i = 0; i < count; ++i) text.append(" ").append(real_text(values[i]));
    return text + "\n";
}

std::string cell_line(fld_host::Shape shape, const int32_t* face_flags, const int32_t* nodes)
{
    static constexpr const char* names[] = {"tet", "pyramid", "prism", "hex"};
    const auto row = static_cast<size_t>(shape);
    return names[row] + list_text(face_flags, fld_host::shape_faces[row]) + " |" +
           list_text(nodes, fld_host::shape_nodes[row]) + "\n";
}

std::string face_line(int32_t boundary_type, int32_t vertex_count, const int32_t* nodes)
{
    return "face " + std::to_string(boundary_type) + " |" + list_text(nodes, vertex_count) + "\n";
}

} // namespace fld_test
