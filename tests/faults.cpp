#include "faults.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <dirent.h>
#include <malloc.h>
#include <regex.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace fld_test;

static Faults faults;

Faults* fld_faults()
{
    return &faults;
}

static bool fails(CallKind kind)
{
    const int64_t number = ++faults.calls[kind];
    const FaultPlan& plan = faults.plan;
    if (kind != plan.kind || plan.first == 0) return false;
    return plan.lasts ? number >= plan.first : number == plan.first;
}

static void* counted(void* block, int sign)
{
    if (!block) return nullptr;
    faults.blocks += sign;
    faults.bytes += sign * static_cast<int64_t>(malloc_usable_size(block));
    faults.peak_bytes = std::max(faults.peak_bytes, faults.bytes);
    return block;
}

template <class Handle> static Handle* opened(Handle* handle)
{
    faults.handles += handle != nullptr;
    return handle;
}

// clang-format off
// A function of the system, with the wrapper that the linker puts in its place.
#define WRAP(result, name, parameters, body)                                                       \
    extern "C" result __real_##name parameters;                                                    \
    extern "C" result __wrap_##name parameters;                                                    \
    result __wrap_##name parameters body

WRAP(void*, malloc, (size_t n), { return fails(ALLOCATION) ? nullptr : counted(__real_malloc(n), 1); })
WRAP(void*, calloc, (size_t n, size_t size),
     { return fails(ALLOCATION) ? nullptr : counted(__real_calloc(n, size), 1); })
WRAP(void, free, (void* block), { __real_free(counted(block, -1)); })
WRAP(ssize_t, pread, (int file, void* to, size_t n, off_t position), {
    if (fails(READ)) {
        errno = faults.plan.way == SHORT ? EINTR : EIO;
        if (faults.plan.way != SHORT) return faults.plan.way == END ? 0 : -1;
        if (!faults.plan.lasts) return -1;
        n = (n + 1) / 2;
    }
    const ssize_t got = __real_pread(file, to, n, position);
    faults.bytes_read += got;
    return got;
})
WRAP(FILE*, fopen, (const char* path, const char* mode),
     { return fails(OPEN) ? nullptr : opened(__real_fopen(path, mode)); })
// The system closes a file also when it reports that this failed.
WRAP(int, fclose, (FILE* file),
     { --faults.handles; const int r = __real_fclose(file); return fails(CLOSE) ? EOF : r; })
WRAP(int, statx, (int file, const char* path, int flags, unsigned mask, struct statx* status),
     { return fails(STATUS) ? -1 : __real_statx(file, path, flags, mask, status); })
WRAP(int, clock_gettime, (clockid_t clock, timespec* time), {
    const int status = __real_clock_gettime(clock, time);
    time->tv_sec += faults.seconds_later;
    return status;
})
WRAP(DIR*, opendir, (const char* path),
     { return fails(DIRECTORY) ? nullptr : opened(__real_opendir(path)); })
WRAP(dirent*, readdir, (DIR* listing),
     { return fails(DIRECTORY) ? nullptr : __real_readdir(listing); })
WRAP(int, closedir, (DIR* listing), { --faults.handles; return __real_closedir(listing); })
WRAP(int, regcomp, (regex_t* expression, const char* text, int flags), {
    const int status = fails(EXPRESSION) ? REG_ESPACE : __real_regcomp(expression, text, flags);
    faults.handles += status == 0;
    return status;
})
WRAP(void, regfree, (regex_t* expression), { --faults.handles; __real_regfree(expression); })
WRAP(int, strcmp, (const char* a, const char* b),
     { ++faults.comparisons; return __real_strcmp(a, b); })
WRAP(int, memcmp, (const void* a, const void* b, size_t n),
     { ++faults.comparisons; return __real_memcmp(a, b, n); })
