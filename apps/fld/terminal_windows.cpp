#include "terminal.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <io.h>
#include <system_error>
#include <vector>
#include <windows.h>

namespace fld_host
{

[[noreturn]] static void fail_with_output()
{
    throw std::system_error(errno, std::generic_category(), "standard output");
}

// ---- standard input, output and error ----

static constexpr std::array<DWORD, 3> standard_handles = {STD_INPUT_HANDLE, STD_OUTPUT_HANDLE,
                                                          STD_ERROR_HANDLE};
static constexpr int OUTPUT = 1; // among them, and as the C library's descriptor

static bool is_there(DWORD standard_handle)
{
    HANDLE const handle = GetStdHandle(standard_handle);
    if (!handle || handle == INVALID_HANDLE_VALUE) return false;
    return GetFileType(handle) != FILE_TYPE_UNKNOWN;
}

// For whatever prints through the C library, and for whatever does not.
static bool put_in_place(int descriptor, int number)
{
    if (_dup2(descriptor, number) != 0) return false;
    return SetStdHandle(standard_handles[static_cast<size_t>(number)],
                        reinterpret_cast<HANDLE>(_get_osfhandle(number)));
}

bool fill_standard_files()
{
    const bool has_output = is_there(STD_OUTPUT_HANDLE);
    for (int number = 0; number < std::ssize(standard_handles); ++number) {
        if (is_there(standard_handles[static_cast<size_t>(number)])) continue;
        const int nothing = _wopen(L"NUL", _O_RDWR | _O_BINARY | _O_NOINHERIT);
        (void)put_in_place(nothing, number);
        if (nothing > number) (void)_close(nothing);
    }
    return has_output;
}

static HANDLE kept_output; // a file that goes with the process; null: there is none

static HANDLE make_temporary_file()
{
    std::array<wchar_t, MAX_PATH + 1> directory{};
    std::array<wchar_t, MAX_PATH + 1> path{};
    const DWORD length = GetTempPathW(static_cast<DWORD>(directory.size()), directory.data());
    if (length == 0 || length >= directory.size() ||
        GetTempFileNameW(directory.data(), L"fld", 0, path.data()) == 0) {
        return INVALID_HANDLE_VALUE;
    }
    return CreateFileW(path.data(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_DELETE, nullptr,
                       CREATE_ALWAYS, FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE,
                       nullptr);
}

// A library brings its own C library, or none: what it prints goes to the process's handle, and is
// fetched from the file that this is.
FILE* divert_standard_output()
{
    const int results = _dup(OUTPUT);
    FILE* const stream = results < 0 ? nullptr : _fdopen(results, "wb");
    if (!stream) fail_with_output();
    // A console shows what arrives at once: no character of several bytes is to arrive in parts.
    constexpr size_t AT_ONCE = size_t{1} << 20;
    (void)setvbuf(stream, nullptr, _IOFBF, AT_ONCE);
    HANDLE const file = make_temporary_file();
    if (file == INVALID_HANDLE_VALUE) { // then messages are shown as they come
        if (!put_in_place(_fileno(stderr), OUTPUT)) fail_with_output();
        return stream;
    }
    const int descriptor =
        _open_osfhandle(reinterpret_cast<intptr_t>(file), _O_RDWR | _O_BINARY | _O_NOINHERIT);
    if (descriptor < 0 || !put_in_place(descriptor, OUTPUT)) fail_with_output();
    kept_output = file;
    return stream;
}

std::string take_kept_output()
{
    (void)fflush(stdout);
    LARGE_INTEGER size{};
    if (!kept_output || !GetFileSizeEx(kept_output, &size) || size.QuadPart == 0) return "";
    const int64_t begin = std::max<int64_t>(size.QuadPart - static_cast<int64_t>(KEPT_TEXT) - 1, 0);
    std::string text(static_cast<size_t>(size.QuadPart - begin), '\0');
    OVERLAPPED place{};
    place.Offset = static_cast<DWORD>(begin);
    place.OffsetHigh = static_cast<DWORD>(begin >> 32);
    DWORD count = 0;
    if (!ReadFile(kept_output, text.data(), static_cast<DWORD>(text.size()), &count, &place)) {
        count = 0;
    }
    text.resize(count);
    const LARGE_INTEGER start{};
    if (SetFilePointerEx(kept_output, start, nullptr, FILE_BEGIN)) (void)SetEndOfFile(kept_output);
    std::erase(text, '\r');
    keep_end(text);
    return text;
}

// ---- the terminal ----

// NUL is a device too, but no console.
static HANDLE console_of(FILE* stream)
{
    if (_fileno(stream) < 0) return nullptr;
    auto* const handle = reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(stream)));
    DWORD mode = 0;
    return GetConsoleMode(handle, &mode) ? handle : nullptr;
}

size_t terminal_width(FILE* stream)
{
    HANDLE const console = console_of(stream);
    if (!console) return 0;
    CONSOLE_SCREEN_BUFFER_INFO found{};
    if (!GetConsoleScreenBufferInfo(console, &found)) return 80;
    // A console may begin a new line as soon as one is full.
    const int columns = found.srWindow.Right - found.srWindow.Left;
    return columns > 1 ? static_cast<size_t>(columns) : 80;
}

// How consoles were before the program.
static UINT code_page_before;
static HANDLE error_console;
static DWORD error_mode_before;
static bool clears_lines;

bool can_clear_lines()
{
    return clears_lines;
}

static void restore_consoles()
{
    if (code_page_before != 0) (void)SetConsoleOutputCP(code_page_before);
    if (clears_lines) (void)SetConsoleMode(error_console, error_mode_before);
}

// ---- whoever stops the program ----

static std::atomic<bool> is_interruptible, is_endable, stopped;

// In a thread of its own, of the system's.
static BOOL WINAPI take_event(DWORD event)
{
    const bool is_interrupt = event == CTRL_C_EVENT || event == CTRL_BREAK_EVENT;
    if (is_interrupt ? is_interruptible : is_endable) {
        stopped = true;
        // When the console is closed, the process ends as soon as this returns.
        if (!is_interrupt) Sleep(INFINITE);
        return TRUE;
    }
    restore_consoles();
    return FALSE;
}

void stop_when_interrupted()
{
    is_interruptible = true;
}

void stop_when_ended()
{
    is_interruptible = true;
    is_endable = true;
}

bool is_stopped()
{
    return stopped;
}

// ---- the start ----

static void prepare_consoles()
{
    for (FILE* const stream : {stdout, stderr}) {
        if (_fileno(stream) >= 0) (void)_setmode(_fileno(stream), _O_BINARY);
    }
    error_console = console_of(stderr);
    if (error_console || console_of(stdout)) {
        code_page_before = GetConsoleOutputCP();
        (void)SetConsoleOutputCP(CP_UTF8);
    }
    clears_lines = error_console && GetConsoleMode(error_console, &error_mode_before) &&
                   SetConsoleMode(error_console, error_mode_before | ENABLE_PROCESSED_OUTPUT |
                                                     ENABLE_VIRTUAL_TERMINAL_PROCESSING);
    (void)std::atexit(restore_consoles);
    (void)SetConsoleCtrlHandler(take_event, TRUE);
}

static std::string utf8(const wchar_t* text)
{
    const int size = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
    std::vector<char> result(static_cast<size_t>(size) + 1);
    (void)WideCharToMultiByte(CP_UTF8, 0, text, -1, result.data(), size, nullptr, nullptr);
    return result.data();
}

} // namespace fld_host

// Whoever starts a program here leaves it to the program to make file names of "*.fld": the C
// library does it before the main function.
extern "C" {
int _dowildcard = -1;
}

extern "C" int wmain(int argc, wchar_t** argv)
{
    fld_host::prepare_consoles();
    std::vector<std::string> texts;
    for (int i = 0; i < argc; ++i) texts.push_back(fld_host::utf8(argv[i]));
    std::vector<char*> arguments;
    for (std::string& text : texts) arguments.push_back(text.data());
    arguments.push_back(nullptr);
    return fld_host::run_program(argc, arguments.data());
}
