#include "ui/util/utf8wrap.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <sys/stat.h>
#include <unistd.h>

static_assert(sizeof(off_t) == 8, "positions beyond 4 GiB need a 64-bit off_t");

namespace utf8wrap
{

FILE* fopen(const char* path, const char* mode)
{
    // Asked before opening: opening a pipe would wait for its writer.
    FileStatus status{};
    if (_stat64(path, &status) != 0) return nullptr;
    if (!status.is_regular) {
        errno = EINVAL;
        return nullptr;
    }
    return ::fopen(path, mode);
}

int64_t read_at(FILE* stream, int64_t position, int64_t count, void* to, bool* failed)
{
    // The system takes at most 2 GiB at a time.
    constexpr int64_t AT_A_TIME = 1 << 30;
    *failed = false;
    int64_t got = 0;
    while (got < count) {
        const auto wanted = static_cast<size_t>(std::min(count - got, AT_A_TIME));
        const ssize_t here =
            pread(fileno(stream), static_cast<char*>(to) + got, wanted, position + got);
        if (here < 0 && errno == EINTR) continue;
        *failed = here < 0;
        if (here <= 0) break;
        got += here;
    }
    return got;
}

// The status of a file comes from statx: stat and fstat are functions of the C library only since
// glibc 2.33, and what is built to call them loads with no older one.

int64_t file_length(FILE* stream)
{
    struct statx found {
    };
    const int status = statx(fileno(stream), "", AT_EMPTY_PATH, STATX_SIZE, &found);
    return status == 0 ? static_cast<int64_t>(found.stx_size) : -1;
}

// Unsigned: a file's times may be set to any second that an int64 holds.
static int64_t nanoseconds(const statx_timestamp& time)
{
    return static_cast<int64_t>(static_cast<uint64_t>(time.tv_sec) * 1000000000 + time.tv_nsec);
}

int _stat64(const char* path, FileStatus* status)
{
    struct statx found {
    };
    if (statx(AT_FDCWD, path, 0, STATX_BASIC_STATS, &found) != 0) return -1;
    *status = {.is_regular = S_ISREG(found.stx_mode),
               .is_directory = S_ISDIR(found.stx_mode),
               .tells_changes = true,
               .device = uint64_t{found.stx_dev_major} << 32 | found.stx_dev_minor,
               .file_number = found.stx_ino,
               .size = static_cast<int64_t>(found.stx_size),
               .modified = nanoseconds(found.stx_mtime),
               .changed = nanoseconds(found.stx_ctime)};
    return 0;
}

int64_t time_now()
{
    timespec now{};
    (void)clock_gettime(CLOCK_REALTIME, &now);
    return int64_t{now.tv_sec} * 1000000000 + now.tv_nsec;
}

void CloseDirectory::operator()(void* directory) const
{
    closedir(static_cast<DIR*>(directory));
}

bool FindNextFileA(Listing* listing, FoundEntry* entry)
{
    while (const dirent* found = readdir(static_cast<DIR*>(listing->directory.get()))) {
        const size_t length = strlen(found->d_name);
        if (length > MAX_ENTRY_NAME) continue;
        if (fnmatch(listing->wildcard, found->d_name, FNM_NOESCAPE) != 0) continue;
        memcpy(entry->name, found->d_name, length + 1);
        entry->is_regular = found->d_type == DT_REG;
        return true;
    }
    return false;
}

bool FindFirstFileA(const char* pattern, Listing* listing, FoundEntry* entry)
{
    const char* wildcard = pattern + strlen(pattern);
    while (wildcard != pattern && !strchr("/\\:", wildcard[-1])) --wildcard;
    const size_t directory_length = static_cast<size_t>(wildcard - pattern);
    char directory[MAX_ENTRY_NAME + 1] = ".";
    if (directory_length >= sizeof directory || strlen(wildcard) > MAX_ENTRY_NAME) return false;
    if (directory_length > 0) {
        memcpy(directory, pattern, directory_length);
        directory[directory_length] = '\0';
    }
    memcpy(listing->wildcard, wildcard, strlen(wildcard) + 1);
    listing->directory.reset(opendir(directory));
    return listing->directory && FindNextFileA(listing, entry);
}

void print(Output output, const char* format, va_list arguments)
{
    (void)vfprintf(output == Output::standard ? stdout : stderr, format, arguments);
}

} // namespace utf8wrap
