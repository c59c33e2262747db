// The platform layer: files by UTF-8 path, read by 64-bit positions, their status, directory
// listings, and what the process prints. One source file for each kind of system stands behind it.
// Nothing in the library above this file calls the operating system for files. What fails leaves
// its reason in errno, where a function does not say otherwise.
#pragma once

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <memory>

namespace utf8wrap
{

// Opens a regular file to be read ("rb"); null for anything else (a directory, a pipe that would
// block) and for whatever the system refuses. Other programs may write to it, rename it and remove
// it all the while. The caller closes the stream.
[[nodiscard]] FILE* fopen(const char* path, const char* mode);

// Reads bytes from a position on, beyond 4 GiB too and wherever the stream stands; their number is
// less than asked for at the end of the file, or when the system fails to read.
[[nodiscard]] int64_t read_at(FILE* stream, int64_t position, int64_t count, void* to,
                              bool* failed);

// Length in bytes of the file behind the stream, -1 on failure.
[[nodiscard]] int64_t file_length(FILE* stream);

struct FileStatus {
    bool is_regular;
    bool is_directory;
    // Whether every change of the content shows in the times as soon as it is made.
    bool tells_changes;
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

enum class Output { standard, error };

// Prints on standard output or standard error, as a C program's vfprintf does, with "\n" alone for
// line ends. What the host's own C library keeps in its buffers is not waited for.
[[gnu::format(printf, 2, 0)]] void print(Output output, const char* format, va_list arguments);

} // namespace utf8wrap
