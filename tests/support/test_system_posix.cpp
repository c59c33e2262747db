#include "test_system.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <new>
#include <sanitizer/common_interface_defs.h>
#include <stdexcept>
#include <sys/mman.h>
#include <unistd.h>

#pragma weak __sanitizer_set_report_fd // null without sanitizers

namespace fld_test
{

unsigned char* map_guarded(size_t size)
{
    void* const memory =
        mmap(nullptr, size + PAGE, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) throw std::bad_alloc();
    auto* const bytes = static_cast<unsigned char*>(memory);
    EXPECT_EQ(mprotect(bytes + size, PAGE, PROT_NONE), 0);
    return bytes;
}

// ---- captured output ----

static const int memory_files[2] = {memfd_create("out", 0), memfd_create("err", 0)};

// Reports of the sanitizers go past them.
[[maybe_unused]] static const bool reports_go_past = [] {
    void* const to = std::bit_cast<void*>(intptr_t{dup(2)});
    return __sanitizer_set_report_fd && (__sanitizer_set_report_fd(to), true);
}();

// File descriptors 1 and 2 lead to memory files.
Capture::Capture()
{
    (void)fflush(stdout);
    for (int i = 0; i < 2; ++i) {
        saved_[i] = std::bit_cast<void*>(intptr_t{dup(i + 1)});
        dup2(memory_files[i], i + 1);
    }
    is_active = true;
}

Capture::~Capture()
{
    (void)fflush(stdout);
    for (int i = 0; i < 2; ++i) {
        const auto saved = static_cast<int>(std::bit_cast<intptr_t>(saved_[i]));
        dup2(saved, i + 1);
        ::close(saved);
    }
    is_active = false;
}

// All that stands before the position of the file, which begins anew.
std::string Capture::take(int stream)
{
    (void)fflush(stdout);
    const int file = memory_files[stream];
    const off_t written = lseek(file, 0, SEEK_CUR);
    if (written <= 0) return {};
    std::string text(std::min(static_cast<size_t>(written), MOST_OUTPUT), '\0');
    EXPECT_EQ(pread(file, text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
    lseek(file, 0, SEEK_SET);
    if (text.size() == static_cast<size_t>(written)) return text;
    return text + "... " + std::to_string(written - static_cast<off_t>(text.size())) +
           " bytes more\n";
}

// ---- files ----

int lowest_free_descriptor()
{
    const int probe = dup(memory_files[0]);
    ::close(probe);
    return probe;
}

std::string make_directory()
{
    std::string pattern = std::filesystem::temp_directory_path() / "fld_test_XXXXXX";
    if (!mkdtemp(pattern.data())) throw std::runtime_error("cannot make " + pattern);
    return pattern;
}

void remove_file(const std::string& path)
{
    std::filesystem::remove(path);
}

bool can_be_named(const std::string& name)
{
    return !name.empty() && name.find('/') == std::string::npos;
}

bool link_file(const std::string& original, const std::string& name)
{
    return symlink(original.c_str(), name.c_str()) == 0;
}

bool write_samples(const std::string& writer, const std::string& directory,
                   const std::string& options)
{
    const std::string command =
        FLD_SAMPLES_DIRECTORY "/write_samples_" + writer + " " + directory + " " + options;
    return system(command.c_str()) == 0;
}

} // namespace fld_test
