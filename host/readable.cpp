#include "readable.h"

#include "platform.h"
#include "ui/util/utf8wrap.h"

#include <cerrno>

namespace fld_host
{

std::string why_not_readable(const std::string& path)
{
    if (path.empty()) return "the file name is empty";
    utf8wrap::FileStatus status{};
    if (utf8wrap::_stat64(path.c_str(), &status) != 0) {
        return errno == ENOENT || errno == ENOTDIR ? "there is no such file" : error_text(errno);
    }
    if (status.is_directory) return "is a directory";
    if (!status.is_regular) return "is not a regular file";
    if (!open_to_read(path)) return error_text(errno);
    if (status.size == 0) return "is empty";
    if (path.size() > LONGEST_PATH)
        return "the name has more than the " + std::to_string(LONGEST_PATH) +
               " bytes that the reader takes";
    return "";
}

File open_to_read(const std::string& path)
{
    return File(utf8wrap::fopen(path.c_str(), "rb"));
}

} // namespace fld_host
