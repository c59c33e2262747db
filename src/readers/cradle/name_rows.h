// The host's name lists: arrays of 80-byte rows, padded with NUL. A name of 80 characters or more
// fills its row without a NUL.
#pragma once

#include "readers/cradle/dataset_state.h"

#include <cstddef>
#include <cstdint>

// Copies a name into the next row, at most 80 characters of it. `count` grows whether or not there
// was a row left.
void append_name_row(const char* name, int32_t capacity, int32_t* count, char* rows);

// A row's text without trailing blanks and NULs, terminated: at most `length` characters, which is
// at most 80. Returns the length kept.
size_t trim_name_row(const char* row, size_t length, char (&text)[NAME_ROW_LENGTH + 1]);

[[nodiscard]] inline char* name_row(char* rows, int32_t index)
{
    return rows + static_cast<ptrdiff_t>(index) * NAME_ROW_LENGTH;
}

// The one line for boundary names or boundary faces whose memory cannot be had.
void print_no_memory_for_boundaries();
