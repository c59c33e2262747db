// The two functions that leave the library. Strings are NUL-terminated 8-bit text.
#pragma once

#ifdef FLD_LINKED // into a module that has exports of its own
#define FLD_EXPORT extern "C"
#elif defined(_WIN32)
#define FLD_EXPORT extern "C" __declspec(dllexport)
#else
#define FLD_EXPORT extern "C" __attribute__((visibility("default")))
#endif

// Takes one of the host's services by name: 1, or 0 for a name that is not among the 86. Called
// for each service, in any order, before the first reader_get_func.
FLD_EXPORT int reader_set_func(void* entry_point, const char* service_name);

// Gives one of the library's functions by name: 1 and its entry point in the slot, or 0. The first
// call checks that all services were handed over and disables the library for good when one is
// missing; it then gives 0 and leaves the slot alone.
FLD_EXPORT int reader_get_func(void** slot, const char* function_name);
