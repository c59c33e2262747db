// The files of a time series: a directory's files whose names differ only in one number.
#pragma once

#include "readers/cradle/heap_array.h"

#include <cstdint>

constexpr int32_t MAX_SERIES_FILES = 100000;

struct TimeSeriesEntry {
    HeapArray<char> path; // the given name's directory part and the file's name as listed
    int32_t number;       // at most INT32_MAX, which stands for every larger number
};

// Rows 0 to the count that time_series_names_S returned are valid until the table is emptied.
extern TimeSeriesEntry TimeSeriesTable[MAX_SERIES_FILES];

// Lists the series of `name`, sorted by number, and gives the number of files. `index` receives
// the row of `name` itself, -1 if it is not there. The table must be empty. Prints on standard
// error; ends the process with status 1 when the memory for a path cannot be had.
[[nodiscard]] int32_t time_series_names_S(const char* name, int32_t* index);

// Lets the process go on without that memory: `noted`, which the caller sets to false before, then
// becomes true and the series has no files. Null: the process ends.
void note_lack_of_memory(bool* noted);
