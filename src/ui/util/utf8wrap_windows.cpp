#include "ui/util/utf8wrap.h"

#include "ui/util/windows_path.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <io.h>
#include <windows.h>

namespace utf8wrap
{

// ---- paths ----

static WideText wide_text(size_t length)
{
    WideText text(static_cast<wchar_t*>(std::malloc((length + 1) * sizeof(wchar_t))));
    if (!text) errno = ENOMEM;
    return text;
}

WideText wide(const char* text)
{
    const int length = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text, -1, nullptr, 0);
    errno = EILSEQ;
    WideText converted = length > 0 ? wide_text(static_cast<size_t>(length)) : nullptr;
    if (converted) {
        (void)MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text, -1, converted.get(), length);
    }
    return converted;
}

static bool begins_with(const wchar_t* text, const wchar_t* start)
{
    return wcsncmp(text, start, wcslen(start)) == 0;
}

WideText whole_path(const char* path)
{
    constexpr size_t ROOM = 6; // for what stands before the name of a share
    const WideText given = wide(path);
    if (!given) return nullptr;
    const DWORD size = GetFullPathNameW(given.get(), 0, nullptr, nullptr);
    WideText text = wide_text(ROOM + size);
    if (!text) return nullptr;
    wchar_t* const whole = text.get() + ROOM;
    const DWORD length = GetFullPathNameW(given.get(), size, whole, nullptr);
    errno = ENOENT;
    if (length == 0 || length >= size) return nullptr;
    const bool is_complete = begins_with(whole, L"\\\\?\\") || begins_with(whole, L"\\\\.\\");
    const wchar_t* const start = is_complete                   ? L""
                                 : begins_with(whole, L"\\\\") ? L"\\\\?\\UNC"
                                                               : L"\\\\?\\";
    const size_t passed_over = *start != L'\0' && whole[0] == L'\\' ? 1 : 0; // one of a share's two
    memmove(text.get() + wcslen(start), whole + passed_over,
            (length + 1 - passed_over) * sizeof(wchar_t));
    memcpy(text.get(), start, wcslen(start) * sizeof(wchar_t));
    return text;
}

bool is_device(const wchar_t* whole_path)
{
    return begins_with(whole_path, L"\\\\.\\");
}

void keep_error()
{
    switch (GetLastError()) {
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
    case ERROR_INVALID_NAME:
    case ERROR_INVALID_DRIVE:
    case ERROR_BAD_PATHNAME:
    case ERROR_DIRECTORY:
    case ERROR_BAD_NETPATH:
    case ERROR_BAD_NET_NAME: errno = ENOENT; break;
    case ERROR_SHARING_VIOLATION:
    case ERROR_LOCK_VIOLATION: errno = EBUSY; break;
    case ERROR_ACCESS_DENIED: errno = EACCES; break;
    case ERROR_FILENAME_EXCED_RANGE: errno = ENAMETOOLONG; break;
    case ERROR_FILE_EXISTS:
    case ERROR_ALREADY_EXISTS: errno = EEXIST; break;
    case ERROR_DISK_FULL: errno = ENOSPC; break;
    case ERROR_WRITE_PROTECT: errno = EROFS; break;
    default: errno = EIO; break;
    }
}

// ---- files ----

struct CloseHandleOnce {
    void operator()(void* handle) const { (void)CloseHandle(handle); }
};
using OwnedHandle = std::unique_ptr<void, CloseHandleOnce>;

constexpr DWORD SHARED_WITH_ALL = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

static OwnedHandle open_handle(const wchar_t* whole_path, DWORD access, DWORD flags)
{
    void* const handle =
        CreateFileW(whole_path, access, SHARED_WITH_ALL, nullptr, OPEN_EXISTING, flags, nullptr);
    if (handle != INVALID_HANDLE_VALUE) return OwnedHandle(handle);
    keep_error();
    return nullptr;
}

FILE* fopen(const char* path, const char* mode)
{
    const WideText whole = whole_path(path);
    if (!whole) return nullptr;
    errno = EINVAL;
    if (is_device(whole.get()) || strcmp(mode, "rb") != 0) return nullptr;
    OwnedHandle handle = open_handle(whole.get(), GENERIC_READ, FILE_ATTRIBUTE_NORMAL);
    if (!handle || GetFileType(handle.get()) != FILE_TYPE_DISK) return nullptr;
    const int descriptor = _open_osfhandle(reinterpret_cast<intptr_t>(handle.get()),
                                           _O_RDONLY | _O_BINARY | _O_NOINHERIT);
    if (descriptor < 0) return nullptr;
    (void)handle.release(); // closed with the descriptor from now on
    FILE* const stream = _fdopen(descriptor, mode);
    if (!stream) (void)_close(descriptor);
    return stream;
}

static HANDLE handle_of(FILE* stream)
{
    return reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(stream)));
}

int64_t read_at(FILE* stream, int64_t position, int64_t count, void* to, bool* failed)
{
    constexpr int64_t AT_A_TIME = 1 << 30; // the system takes less than 4 GiB
    *failed = false;
    int64_t got = 0;
    while (got < count) {
        const auto at = static_cast<uint64_t>(position + got);
        OVERLAPPED place{};
        place.Offset = static_cast<DWORD>(at);
        place.OffsetHigh = static_cast<DWORD>(at >> 32);
        DWORD here = 0;
        if (!ReadFile(handle_of(stream), static_cast<char*>(to) + got,
                      static_cast<DWORD>(std::min(count - got, AT_A_TIME)), &here, &place)) {
            *failed = GetLastError() != ERROR_HANDLE_EOF;
            break;
        }
        if (here == 0) break;
        got += here;
    }
    return got;
}

int64_t file_length(FILE* stream)
{
    LARGE_INTEGER length{};
    return GetFileSizeEx(handle_of(stream), &length) ? length.QuadPart : -1;
}

// ---- status ----

// From 100 nanoseconds since 1601. Unsigned: a file may have any time.
static int64_t nanoseconds(int64_t time)
{
    constexpr uint64_t SECONDS_TO_1970 = 11644473600;
    return static_cast<int64_t>((static_cast<uint64_t>(time) - SECONDS_TO_1970 * 10000000) * 100);
}

static int64_t both_words(DWORD high, DWORD low)
{
    return static_cast<int64_t>(uint64_t{high} << 32 | low);
}

int _stat64(const char* path, FileStatus* status)
{
    const WideText whole = whole_path(path);
    if (!whole) return -1;
    if (is_device(whole.get())) {
        *status = {}; // neither file nor directory
        return 0;
    }
    const OwnedHandle handle = open_handle(whole.get(), 0, FILE_FLAG_BACKUP_SEMANTICS);
    if (!handle) return -1;
    if (GetFileType(handle.get()) != FILE_TYPE_DISK) {
        *status = {};
        return 0;
    }
    BY_HANDLE_FILE_INFORMATION found{};
    FILE_BASIC_INFO times{};
    if (!GetFileInformationByHandle(handle.get(), &found) ||
        !GetFileInformationByHandleEx(handle.get(), FileBasicInfo, &times, sizeof times)) {
        keep_error();
        return -1;
    }
    const bool is_directory = (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    // A program that has the file open can write to it without a trace in its times until it closes
    // the file; a share may answer with what it knew some seconds ago.
    *status = {.is_regular = !is_directory,
               .is_directory = is_directory,
               .tells_changes = false,
               .device = found.dwVolumeSerialNumber,
               .file_number =
                   static_cast<uint64_t>(both_words(found.nFileIndexHigh, found.nFileIndexLow)),
               .size = both_words(found.nFileSizeHigh, found.nFileSizeLow),
               .modified = nanoseconds(times.LastWriteTime.QuadPart),
               .changed = nanoseconds(times.ChangeTime.QuadPart)};
    return 0;
}

int64_t time_now()
{
    FILETIME now{};
    GetSystemTimeAsFileTime(&now);
    return nanoseconds(both_words(now.dwHighDateTime, now.dwLowDateTime));
}

// ---- listings ----

void CloseDirectory::operator()(void* directory) const
{
    (void)FindClose(directory);
}

// False for a name that UTF-8 cannot hold, or that is too long in it.
static bool take_entry(const WIN32_FIND_DATAW& found, FoundEntry* entry)
{
    constexpr DWORD OTHERS =
        FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT | FILE_ATTRIBUTE_DEVICE;
    entry->is_regular = (found.dwFileAttributes & OTHERS) == 0;
    return WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, found.cFileName, -1, entry->name,
                               sizeof entry->name, nullptr, nullptr) > 0;
}

bool FindNextFileA(Listing* listing, FoundEntry* entry)
{
    WIN32_FIND_DATAW found{};
    while (FindNextFileW(listing->directory.get(), &found)) {
        if (take_entry(found, entry)) return true;
    }
    return false;
}

bool FindFirstFileA(const char* pattern, Listing* listing, FoundEntry* entry)
{
    const WideText whole = whole_path(pattern);
    if (!whole || is_device(whole.get())) return false;
    if (wcslen(wcsrchr(whole.get(), L'\\')) > MAX_ENTRY_NAME + 1) return false; // of no entry
    WIN32_FIND_DATAW found{};
    void* const directory =
        FindFirstFileExW(whole.get(), FindExInfoBasic, &found, FindExSearchNameMatch, nullptr,
                         FIND_FIRST_EX_LARGE_FETCH);
    if (directory == INVALID_HANDLE_VALUE) {
        keep_error();
        return false;
    }
    listing->directory.reset(directory);
    return take_entry(found, entry) || FindNextFileA(listing, entry);
}

// ---- output ----

// Past the buffers of this library's own C library, which the host's may not share, and which would
// make two characters of a line's end.
static void write_through(Output output, const char* text, size_t size)
{
    void* const handle =
        GetStdHandle(output == Output::standard ? STD_OUTPUT_HANDLE : STD_ERROR_HANDLE);
    if (!handle || handle == INVALID_HANDLE_VALUE) return; // a host without a console
    DWORD written = 0;
    for (size_t at = 0; at < size; at += written) {
        const auto left = static_cast<DWORD>(std::min<size_t>(size - at, 1 << 20));
        if (!WriteFile(handle, text + at, left, &written, nullptr) || written == 0) return;
    }
}

void print(Output output, const char* format, va_list arguments)
{
    char text[1024];
    va_list again;
    va_copy(again, arguments);
    const int length = vsnprintf(text, sizeof text, format, arguments);
    std::unique_ptr<char, FreeMemory> whole;
    if (length >= static_cast<int>(sizeof text)) {
        whole.reset(static_cast<char*>(std::malloc(static_cast<size_t>(length) + 1)));
    }
    if (whole) (void)vsnprintf(whole.get(), static_cast<size_t>(length) + 1, format, again);
    va_end(again);
    if (length < 0) return;
    // Without memory a long message is cut.
    if (whole) return write_through(output, whole.get(), static_cast<size_t>(length));
    write_through(output, text, strlen(text));
}

} // namespace utf8wrap
