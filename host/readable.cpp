#include "readable.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <unistd.h>

namespace fld_host
{

std::string why_not_readable(const std::string& path)
{
    namespace fs = std::filesystem;
    if (path.empty()) return "the file name is empty";
    std::error_code failed;
    const fs::file_status status = fs::status(path, failed);
    if (status.type() == fs::file_type::not_found) return "there is no such file";
    if (failed) return failed.message();
    if (status.type() == fs::file_type::directory) return "is a directory";
    if (status.type() != fs::file_type::regular) return "is not a regular file";
    const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0) return std::strerror(errno);
    (void)::close(file);
    if (fs::file_size(path, failed) == 0 && !failed) return "is empty";
    if (path.size() > LONGEST_PATH)
        return "the name has more than the " + std::to_string(LONGEST_PATH) +
               " bytes that the reader takes";
    return "";
}

} // namespace fld_host
