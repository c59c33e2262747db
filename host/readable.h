// Files that are read: what stands in the way, before anything of it is read, and the open file.
#pragma once

#include <cstdio>
#include <memory>
#include <string>

namespace fld_host
{

// The bytes that the reader takes of a path.
constexpr size_t LONGEST_PATH = 255;

// Why a file cannot be read, in words; empty when nothing is in the way.
std::string why_not_readable(const std::string& path);

struct CloseFile {
    void operator()(FILE* file) const { (void)fclose(file); }
};
using File = std::unique_ptr<FILE, CloseFile>;

// Null, with the reason in errno, for what is no regular file too.
File open_to_read(const std::string& path);

} // namespace fld_host
