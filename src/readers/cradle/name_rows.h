// The host's name lists: arrays of 80-byte rows, padded with NUL. A name of 80 characters or more
// fills its row without a NUL.
#pragma once

#include "readers/cradle/heap_array.h"

#include <cstddef>
#include <cstdint>

constexpr int32_t NAME_ROW_LENGTH = 80;

// Copies a name into the next row, at most 80 characters of it. `count` grows whether or not there
// was a row left.
void append_name_row(const char* name, int32_t capacity, int32_t* count, char* rows);

// A row's text without trailing blanks and NULs, padded with NUL: at most `length` characters,
// which is at most 80. Returns the length kept.
size_t trim_name_row(const char* row, size_t length, char (&text)[NAME_ROW_LENGTH + 1]);

[[nodiscard]] inline char* name_row(char* rows, int32_t index)
{
    return rows + static_cast<ptrdiff_t>(index) * NAME_ROW_LENGTH;
}

// Finds rows by their 80 bytes, in a time that grows with the logarithm of their number whatever
// they hold: lists may be long, and are searched for every name of every grid.
struct RowSet {
    const char* rows;          // the list; belongs to the caller
    ptrdiff_t stride;          // bytes from row to row
    int32_t count;             // rows entered so far
    HeapArray<int32_t> memory; // of the next two
    int32_t* order;            // their numbers, ascending by the bytes of the rows, then by number
    int32_t* spare;            // room to merge new ones into
};

// An empty set for rows 0 to `capacity` - 1 of a list; false when there is no memory for it.
[[nodiscard]] bool make_row_set(const char* rows, ptrdiff_t stride, int32_t capacity, RowSet* set);

// Enters the rows before `end` that the set does not have yet.
void enter_rows(int32_t end, RowSet* set);

// The first row with the same 80 bytes among those entered, -1 when there is none.
[[nodiscard]] int32_t find_row(const RowSet& set, const char* row);

// Prints that there is no memory for boundary names or boundary faces.
void print_no_memory_for_boundaries();
