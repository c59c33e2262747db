// Paths and errors of Windows as the platform layer has them: for the files that stand behind it,
// and behind what programs ask of the system beside it.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <memory>

namespace utf8wrap
{

struct FreeMemory {
    void operator()(void* memory) const { std::free(memory); }
};
using WideText = std::unique_ptr<wchar_t[], FreeMemory>;

// From UTF-8. Null, with the reason in errno, for what is no UTF-8 and without memory.
[[nodiscard]] WideText wide(const char* text);

// The whole path from its drive or share on, with what the system resolves itself only in paths of
// up to 260 characters: slashes, "..", the current directory of each drive, and names that are
// devices wherever they stand, such as NUL, which come as "\\.\NUL". Null, with the reason in
// errno, when there is none.
[[nodiscard]] WideText whole_path(const char* path);

[[nodiscard]] bool is_device(const wchar_t* whole_path);

// What the system said last, as errno has it.
void keep_error();

} // namespace utf8wrap
