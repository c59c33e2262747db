// What stands in the way of reading a file, before anything of it is read.
#pragma once

#include <string>

namespace fld_host
{

// The bytes that the reader takes of a path.
constexpr size_t LONGEST_PATH = 255;

// Why a file cannot be read, in words; empty when nothing is in the way.
std::string why_not_readable(const std::string& path);

} // namespace fld_host
