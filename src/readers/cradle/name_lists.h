// The names of a dataset's boundaries and variables: the host's lists, and those of one grid or
// file that are merged into them.
#pragma once

#include "readers/cradle/dataset_state.h"
#include "readers/cradle/heap_array.h"
#include "readers/cradle/name_rows.h"

#include <cstdint>

// Names in rows of 80 bytes. `count` also counts names for which there was no row.
struct NameList {
    int32_t capacity;
    int32_t* count;
    char* rows;
    RowSet* index; // made by the first merge into the list; null when nothing is merged into it
};

// Boundaries, and variables with the section of each: row i belongs to variable i, and a vector's
// second and third row are empty.
struct NameLists {
    NameList boundaries;
    NameList variables;
    VariableSection* variable_sections; // as many rows as the variables have
};

// Lists of our own with the capacities of the host's. The rows are blank at first.
struct LocalNames {
    int32_t boundary_count = 0;
    HeapArray<char> boundary_names;
    int32_t variable_count = 0;
    HeapArray<char> variable_names;
    HeapArray<VariableSection> variable_sections;
};

// Gets the memory of the boundary list. False without a message when there is none: what the list
// is for depends on the caller.
[[nodiscard]] bool make_boundary_list(const NameLists& host, LocalNames* local);

// The same of the variable list; prints when there is none.
[[nodiscard]] bool make_variable_list(const NameLists& host, LocalNames* local);

[[nodiscard]] NameLists lists_of(const NameLists& host, LocalNames* local);

// Whether the sections of merged variables come with them: those of a grid file that is paired with
// results stay behind, since values are read from the results file alone.
enum class MergedSections { kept, left_out };

// Appends every name that the host's lists did not have before, while they have room. A vector of
// which only some names are appended has no section. False, and a message, when there is no memory
// to find names with.
[[nodiscard]] bool merge_names(const NameLists& local, const NameLists& host,
                               MergedSections sections);

// Prints that there is no memory for variable names.
void print_no_memory_for_variables();
