#include "readers/cradle/diagnostics.h"

#include <cstdarg>
#include <cstdio>

void print_diagnostic(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    vprintf(format, arguments);
    va_end(arguments);
}
