#include "test_system.h"

#include <algorithm>
#include <filesystem>
#include <gtest/gtest.h>
#include <io.h>
#include <new>
#include <stdexcept>
#include <windows.h>

namespace fld_test
{

unsigned char* map_guarded(size_t size)
{
    void* const memory =
        VirtualAlloc(nullptr, size + PAGE, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
    if (!memory) throw std::bad_alloc();
    auto* const bytes = static_cast<unsigned char*>(memory);
    DWORD before = 0;
    EXPECT_TRUE(VirtualProtect(bytes + size, PAGE, PAGE_NOACCESS, &before));
    return bytes;
}

// ---- captured output ----

constexpr DWORD streams[] = {STD_OUTPUT_HANDLE, STD_ERROR_HANDLE};

static HANDLE open_temporary_file()
{
    wchar_t folder[MAX_PATH + 1] = L"", path[MAX_PATH + 1] = L"";
    (void)GetTempPathW(MAX_PATH + 1, folder);
    (void)GetTempFileNameW(folder, L"fld", 0, path);
    return CreateFileW(path, GENERIC_READ | GENERIC_WRITE | DELETE, FILE_SHARE_DELETE, nullptr,
                       CREATE_ALWAYS, FILE_FLAG_DELETE_ON_CLOSE, nullptr);
}
static const HANDLE captured_files[2] = {open_temporary_file(), open_temporary_file()};

Capture::Capture()
{
    for (int i = 0; i < 2; ++i) {
        saved_[i] = GetStdHandle(streams[i]);
        SetStdHandle(streams[i], captured_files[i]);
    }
    is_active = true;
}

Capture::~Capture()
{
    for (int i = 0; i < 2; ++i) SetStdHandle(streams[i], saved_[i]);
    is_active = false;
}

std::string Capture::take(int stream)
{
    const HANDLE file = captured_files[stream];
    LARGE_INTEGER written{};
    EXPECT_TRUE(SetFilePointerEx(file, {}, &written, FILE_CURRENT));
    if (written.QuadPart <= 0) return {};
    std::string text(std::min(static_cast<size_t>(written.QuadPart), MOST_OUTPUT), '\0');
    DWORD got = 0;
    EXPECT_TRUE(SetFilePointerEx(file, {}, nullptr, FILE_BEGIN));
    EXPECT_TRUE(ReadFile(file, text.data(), static_cast<DWORD>(text.size()), &got, nullptr));
    EXPECT_EQ(got, text.size());
    EXPECT_TRUE(SetFilePointerEx(file, {}, nullptr, FILE_BEGIN));
    const auto left = written.QuadPart - static_cast<LONGLONG>(text.size());
    return left == 0 ? text : text + "... " + std::to_string(left) + " bytes more\n";
}

// ---- files ----

int lowest_free_descriptor()
{
    const int probe = _dup(2);
    _close(probe);
    return probe;
}

std::string make_directory()
{
    const std::string start = (std::filesystem::temp_directory_path() / "fld_test_").string() +
                              std::to_string(GetCurrentProcessId()) + "_";
    for (int number = 0; number < 100000; ++number) {
        std::string path = start + std::to_string(number);
        if (std::filesystem::create_directory(path)) return path;
    }
    throw std::runtime_error("cannot make " + start);
}

// The name of an open file is taken until the file is closed.
void remove_file(const std::string& path)
{
    static int number = 0;
    const std::wstring name = system_path(path).wstring();
    const std::wstring other = name + L"~" + std::to_wstring(++number);
    if (MoveFileW(name.c_str(), other.c_str())) (void)DeleteFileW(other.c_str());
}

// Not with a character that paths and patterns are made of, nor what UTF-8 does not hold. A dot or
// a blank at the end would be lost.
bool can_be_named(const std::string& name)
{
    const auto is_forbidden = [](char c) {
        return static_cast<unsigned char>(c) < ' ' || strchr("<>:\"/\\|?*", c) != nullptr;
    };
    const bool is_text =
        MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, name.c_str(), -1, nullptr, 0) > 0;
    return is_text && !name.empty() && std::none_of(name.begin(), name.end(), is_forbidden) &&
           name.back() != '.' && name.back() != ' ';
}

bool link_file(const std::string& original, const std::string& name)
{
    return can_be_named(name) &&
           CopyFileW(system_path(original).c_str(), system_path(name).c_str(), TRUE);
}

// There is no Fortran runtime: they were written beforehand, each choice into a folder of its name.
bool write_samples(const std::string& writer, const std::string& directory,
                   const std::string& options)
{
    const std::filesystem::path written =
        std::filesystem::path(FLD_SAMPLES_DIRECTORY) / writer / options;
    size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(written)) {
        const auto copy = system_path(directory) / entry.path().filename();
        if (!CopyFileW(entry.path().c_str(), copy.c_str(), FALSE)) return false;
        ++count;
    }
    return count > 0;
}

} // namespace fld_test
