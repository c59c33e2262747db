#include "platform.h"

#include "paths.h"
#include "ui/util/utf8wrap.h"
#include "ui/util/windows_path.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <io.h>
#include <memory>
#include <windows.h>

namespace fld_host
{

using utf8wrap::keep_error;
using utf8wrap::whole_path;
using utf8wrap::WideText;

// ---- words ----

std::string error_text(int error)
{
    switch (error) {
    case EBUSY: return "another program has it open and shares it with nobody";
    case EILSEQ: return "the name is no UTF-8";
    case ENAMETOOLONG: return "the name is too long";
    case ENOMEM: return "not enough memory";
    default: return std::strerror(error);
    }
}

static std::string narrow(const wchar_t* text)
{
    const int size = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
    std::string result(static_cast<size_t>(size > 0 ? size - 1 : 0), '\0');
    (void)WideCharToMultiByte(CP_UTF8, 0, text, -1, result.data(), size, nullptr, nullptr);
    return result;
}

// In English where the system has that, and of what a library meets most often what it means for
// the library.
static std::string system_error_text(DWORD error)
{
    switch (error) {
    case ERROR_MOD_NOT_FOUND: return "it is not there, or a library that it needs is not";
    case ERROR_PROC_NOT_FOUND: return "a library that it needs lacks a function";
    case ERROR_BAD_EXE_FORMAT: return "it is no library for 64-bit programs";
    case ERROR_DLL_INIT_FAILED: return "it does not start";
    default: break;
    }
    constexpr DWORD FLAGS = FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS |
                            FORMAT_MESSAGE_MAX_WIDTH_MASK; // one line
    constexpr DWORD ENGLISH = MAKELANGID(LANG_ENGLISH, SUBLANG_ENGLISH_US);
    std::array<wchar_t, 512> text{};
    const auto size = static_cast<DWORD>(text.size());
    if (FormatMessageW(FLAGS, nullptr, error, ENGLISH, text.data(), size, nullptr) == 0) {
        (void)FormatMessageW(FLAGS, nullptr, error, 0, text.data(), size, nullptr);
    }
    std::string words = narrow(text.data());
    words.erase(words.find_last_not_of(" .\r\n") + 1);
    return words.empty() ? "the system refuses it" : words;
}

// ---- paths ----

const char* path_separators()
{
    return "/\\:";
}

std::string plain_path(const std::string& path)
{
    const WideText whole = whole_path(path.c_str());
    return whole ? narrow(whole.get()) : path;
}

std::string other_name(const std::string& path)
{
    const std::string name = name_of(path);
    if (name.find_first_of("?*") != std::string::npos) return ""; // of many files
    utf8wrap::Listing listing;
    utf8wrap::FoundEntry entry{};
    if (!utf8wrap::FindFirstFileA(path.c_str(), &listing, &entry) || entry.name == name) return "";
    return entry.name;
}

// ---- files that are written ----

bool is_taken(const std::string& path)
{
    const WideText whole = whole_path(path.c_str());
    if (!whole) return false;
    if (utf8wrap::is_device(whole.get())) return true;
    if (GetFileAttributesW(whole.get()) != INVALID_FILE_ATTRIBUTES) return true;
    keep_error();
    return false;
}

// Shared with all: what looks at new files, such as a virus scanner, is not to stop a program.
static HANDLE open_to_write(const std::string& path, DWORD how)
{
    constexpr DWORD SHARED_WITH_ALL = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    const WideText whole = whole_path(path.c_str());
    if (!whole) return INVALID_HANDLE_VALUE;
    HANDLE const file = CreateFileW(whole.get(), GENERIC_WRITE, SHARED_WITH_ALL, nullptr, how,
                                    FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) keep_error();
    return file;
}

bool create_file(const std::string& path)
{
    HANDLE const file = open_to_write(path, CREATE_NEW);
    return file != INVALID_HANDLE_VALUE && CloseHandle(file);
}

FILE* open_to_continue(const std::string& path, int64_t bytes)
{
    HANDLE const file = open_to_write(path, OPEN_EXISTING);
    if (file == INVALID_HANDLE_VALUE) return nullptr;
    LARGE_INTEGER end{};
    end.QuadPart = bytes;
    if (!SetFilePointerEx(file, end, nullptr, FILE_BEGIN) || !SetEndOfFile(file)) {
        keep_error();
        (void)CloseHandle(file);
        return nullptr;
    }
    const int descriptor = _open_osfhandle(reinterpret_cast<intptr_t>(file),
                                           _O_WRONLY | _O_APPEND | _O_BINARY | _O_NOINHERIT);
    if (descriptor < 0) {
        (void)CloseHandle(file);
        return nullptr;
    }
    FILE* const stream = _fdopen(descriptor, "ab");
    if (!stream) (void)_close(descriptor);
    return stream;
}

// The system refuses in the same moment.
bool name_file(const std::string& path, const std::string& name)
{
    const WideText from = whole_path(path.c_str());
    const WideText to = from ? whole_path(name.c_str()) : nullptr;
    if (!to) return false;
    if (MoveFileExW(from.get(), to.get(), MOVEFILE_WRITE_THROUGH)) return true;
    keep_error();
    return false;
}

void remove_file(const std::string& path)
{
    const WideText whole = whole_path(path.c_str());
    if (whole) (void)DeleteFileW(whole.get());
}

std::string process_number()
{
    return std::to_string(GetCurrentProcessId());
}

// ---- memory ----

void* allocate_memory(size_t bytes)
{
    constexpr size_t CACHE_LINE = 64;
    return _aligned_malloc(bytes, CACHE_LINE);
}

void release_memory(void* memory)
{
    _aligned_free(memory);
}

// ---- libraries ----

void* load_library(const std::string& path, std::string* why)
{
    const WideText whole = whole_path(path.c_str());
    if (!whole) {
        *why = path + ": " + error_text(errno);
        return nullptr;
    }
    DWORD mode = 0;
    (void)SetThreadErrorMode(SEM_FAILCRITICALERRORS, &mode); // no window that asks
    HMODULE const library = LoadLibraryW(whole.get());
    const DWORD error = GetLastError();
    (void)SetThreadErrorMode(mode, nullptr);
    if (!library) {
        *why = path + ": " + system_error_text(error) + " (error " + std::to_string(error) + ")";
    }
    return library;
}

void* find_function(void* library, const char* name)
{
    return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(library), name));
}

void unload_library(void* library)
{
    (void)FreeLibrary(static_cast<HMODULE>(library));
}

} // namespace fld_host
