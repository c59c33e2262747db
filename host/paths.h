// Names and directories of files, as they are written.
#pragma once

#include <string>

namespace fld_host
{

// What stands before the last name of a path, with its separator; empty when nothing does.
std::string directory_of(const std::string& path);

// The last name of a path; empty when it ends with a separator.
std::string name_of(const std::string& path);

} // namespace fld_host
