#include "readers/cradle/name_rows.h"

#include "readers/cradle/diagnostics.h"

#include <cstring>

void append_name_row(const char* name, int32_t capacity, int32_t* count, char* rows)
{
    if (*count < capacity) {
        const size_t length = strnlen(name, NAME_ROW_LENGTH);
        char* const row = name_row(rows, *count);
        memcpy(row, name, length);
        memset(row + length, '\0', NAME_ROW_LENGTH - length);
    }
    if (*count < INT32_MAX) ++*count;
}

size_t trim_name_row(const char* row, size_t length, char (&text)[NAME_ROW_LENGTH + 1])
{
    while (length > 0 && (row[length - 1] == ' ' || row[length - 1] == '\0')) --length;
    memcpy(text, row, length);
    text[length] = '\0';
    return length;
}

void print_no_memory_for_boundaries()
{
    print_diagnostic("Data reader error: not enough dynamic memory for boundaries.\n");
}
