// The platform layer: files by UTF-8 path, read by 64-bit positions, their status, and directory
// listings.
// Nothing above this file calls the operating system for files.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>

namespace utf8wrap
{

// Opens a regular file; null for anything else (a directory, a pipe that would block) and for
// whatever the system refuses. The caller closes the stream.
[[nodiscard]] FILE* fopen(const char* path, const char* mode);

// Reads bytes from a position on, beyond 4 GiB too and without moving the stream; their number is
// less than asked for at the end of the file, or when the system fails to read.
[[nodiscard]] int64_t read_at(FILE* stream, int64_t position, int64_t count, void* to,
                              bool* failed);

// Length in bytes of the file behind the stream, -1 on failure.
[[nodiscard]] int64_t file_length(FILE* stream);

struct FileStatus {
    bool is_regular;
    uint64_t device; // with the number: which file it is, whatever its name
    uint64_t file_number;
    int64_t size; // bytes
    // Nanoseconds since the epoch; to be compared only, since they wrap outside 1677 to 2262.
    int64_t modified; // the content, or as someone has set it
    int64_t changed;  // content or status; set by the system alone

    bool operator==(const FileStatus&) const = default;
};

// The system's clock, in nanoseconds since the epoch as the times of a file.
[[nodiscard]] int64_t time_now();

// 0 when the path exists (links are followed), else -1 with the status untouched.
[[nodiscard]] int _stat64(const char* path, FileStatus* status);

constexpr int MAX_ENTRY_NAME = 255; // bytes, the most that file systems allow

struct FoundEntry {
    char name[MAX_ENTRY_NAME + 1];
    bool is_regular; // for sure: false also when the directory does not tell
};

struct CloseDirectory {
    void operator()(void* directory) const;
};

// A running listing; closed when it goes out of scope.
struct Listing {
    std::unique_ptr<void, CloseDirectory> directory;
    char wildcard[MAX_ENTRY_NAME + 1] = "";
};

// Starts listing the entries of a directory whose names match the last component of the pattern
// ('?' one character, '*' any run), which begins after the last '/', '\\' or ':' on every system.
// False when the directory cannot be listed or nothing matches.
[[nodiscard]] bool FindFirstFileA(const char* pattern, Listing* listing, FoundEntry* entry);

// The next matching entry, each name once, "." and ".." among them; false at the end.
[[nodiscard]] bool FindNextFileA(Listing* listing, FoundEntry* entry);

} // namespace utf8wrap
