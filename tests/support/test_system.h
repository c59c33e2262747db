// What hosts, tests and fuzz targets ask of the system. One source file for each kind of system
// stands behind it.
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>

namespace fld_test
{

constexpr size_t PAGE = 4096;

// So many bytes, a multiple of PAGE, behind which memory ends. Never released.
unsigned char* map_guarded(size_t size);

// While it lives, what the process writes on standard output and standard error is kept.
class Capture
{
public:
    Capture();
    ~Capture();
    Capture(const Capture&) = delete;
    Capture& operator=(const Capture&) = delete;

    // What was written to stream 0 (standard output) or 1 (standard error) since the last time. Of
    // very much the rest is counted only.
    static std::string take(int stream);

    static inline bool is_active = false;

private:
    void* saved_[2] = {};
};
constexpr size_t MOST_OUTPUT = 1 << 18;

// A file that stays open takes it.
int lowest_free_descriptor();

// Makes a new directory, and gives its path.
std::string make_directory();

// From UTF-8, on every system.
inline std::filesystem::path system_path(const std::string& path)
{
    return {std::u8string(path.begin(), path.end())};
}

// What other programs hold open stays theirs; its name is free.
void remove_file(const std::string& path);

// Whether a file can have the name.
bool can_be_named(const std::string& name);

// Makes a file look like another one: a link to it, or a copy. False when it cannot be.
bool link_file(const std::string& original, const std::string& name);

// Has the Fortran runtime write the sample files into a directory.
bool write_samples(const std::string& writer, const std::string& directory,
                   const std::string& options);

} // namespace fld_test
