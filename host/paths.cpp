#include "paths.h"

#include "platform.h"

namespace fld_host
{

static size_t name_start(const std::string& path)
{
    return path.find_last_of(path_separators()) + 1; // 0 without a separator
}

std::string directory_of(const std::string& path)
{
    return path.substr(0, name_start(path));
}

std::string name_of(const std::string& path)
{
    return path.substr(name_start(path));
}

} // namespace fld_host
