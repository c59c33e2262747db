#include "platform.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <filesystem>
#include <sys/mman.h>
#include <unistd.h>

namespace fld_host
{

std::string error_text(int error)
{
    return std::strerror(error);
}

// ---- paths ----

const char* path_separators()
{
    return "/";
}

std::string plain_path(const std::string& path)
{
    return std::filesystem::path(path).lexically_normal().string();
}

std::string other_name(const std::string& /*path*/)
{
    return "";
}

// ---- files that are written ----

bool is_taken(const std::string& path)
{
    std::error_code failed;
    if (std::filesystem::exists(std::filesystem::symlink_status(path, failed))) return true;
    errno = failed.value();
    return false;
}

bool create_file(const std::string& path)
{
    FILE* const file = fopen(path.c_str(), "wbx");
    return file && fclose(file) == 0;
}

FILE* open_to_continue(const std::string& path, int64_t bytes)
{
    return truncate(path.c_str(), bytes) == 0 ? fopen(path.c_str(), "ab") : nullptr;
}

bool name_file(const std::string& path, const std::string& name)
{
    if (link(path.c_str(), name.c_str()) == 0) {
        remove_file(path);
        return true;
    }
    // A file system without links cannot refuse in the same moment.
    if (is_taken(name)) {
        errno = EEXIST;
        return false;
    }
    return rename(path.c_str(), name.c_str()) == 0;
}

void remove_file(const std::string& path)
{
    (void)unlink(path.c_str());
}

std::string process_number()
{
    return std::to_string(getpid());
}

// ---- memory ----

void* allocate_memory(size_t bytes)
{
    constexpr size_t HUGE_PAGE = size_t{2} << 20;
    void* memory = nullptr;
    const bool large = bytes >= 2 * HUGE_PAGE;
    if (posix_memalign(&memory, large ? HUGE_PAGE : alignof(std::max_align_t), bytes) != 0) {
        return nullptr;
    }
    // Touching fresh memory page by page would cost more than reading the file; this is advice
    // only, so a refusal does not matter.
    if (large) (void)madvise(memory, bytes, MADV_HUGEPAGE);
    return memory;
}

void release_memory(void* memory)
{
    std::free(memory);
}

// ---- libraries ----

void* load_library(const std::string& path, std::string* why)
{
    void* const library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!library) *why = dlerror();
    return library;
}

void* find_function(void* library, const char* name)
{
    return dlsym(library, name);
}

void unload_library(void* library)
{
    (void)dlclose(library);
}

} // namespace fld_host
