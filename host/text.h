// Texts and numbers for people to read.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace fld_host
{

// `text` without what a terminal might take for a command: bytes that are neither printable nor
// part of UTF-8 text become '?'. Names and messages carry whatever bytes a file has.
std::string printable(std::string_view text);

// Columns that `text` takes on a terminal.
size_t display_width(std::string_view text);

// 1234567 as "1,234,567".
std::string grouped(long long number);

// A real with six significant digits.
std::string real_text(float value);
std::string real_text(double value);

} // namespace fld_host
