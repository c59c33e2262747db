// Short looks at the files of a series: the time of one, and which of them holds the grid.
#pragma once

#include "readers/cradle/host_services.h"

PeekTimeCallback fld_peek_time;

// The nearest file of its series, from the results file itself backwards, whose first grid has
// nodes and elements; null, and a message, when there is none. The path belongs to the table of the
// series.
[[nodiscard]] const char* find_paired_grid_file(const char* results_name);

// What the first grid of a file shows when its sections are walked.
enum class FirstGrid {
    complete, // it has nodes and elements
    lacking,  // it was walked to its end, or to that of the file, and does not have both
    unknown   // the walk stopped before, or something was printed
};
[[nodiscard]] FirstGrid look_at_first_grid(const char* name);
