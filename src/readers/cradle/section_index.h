// The index of named data sections: built by one walk when a dataset is opened, searched on every
// data callback.
//
// After its header a file holds "OverlapStart_0", the sections of the first grid, "OverlapStart_"
// and the sections of each further grid, and "OverlapEnd". A section is a name record, a body of
// items that its reader knows, and an end record; it has no length, so every body must be walked.
#pragma once

#include "readers/cradle/dataset_state.h"

#include <cstdint>

// The two kinds of name record that end a grid: the start of another, and the end of them all.
[[nodiscard]] bool opens_grid(const char* name);
[[nodiscard]] bool ends_grids(const char* name);

// Whether the next record is the name record that opens the first grid.
[[nodiscard]] bool first_grid_follows(int32_t unit);

// Walks one grid from the record after the name record that opened it, enters its sections into
// the dataset's index and gathers its counts and names.
// `mode`: 0 the file given to the header callback, 1 the grid file that belongs to it.
// `variable_sections`: `variable_capacity` zeroed rows, the section of each name in
// `variable_names`. `end_flag` becomes 1 at "OverlapEnd".
[[nodiscard]] bool scan_grid_sections(uint8_t mode, int32_t unit, int32_t grid, int32_t* node_count,
                                      int32_t boundary_capacity, int32_t* boundary_count,
                                      char* boundary_names, int32_t variable_capacity,
                                      int32_t* variable_count, char* variable_names,
                                      uint8_t* end_flag, VariableSection* variable_sections);

// What the next lookup searches for, and where it goes on. A cursor is the index of the last entry
// returned, -1 before the first.
extern char lookup_name[SECTION_NAME_LENGTH + 1];
extern int32_t lookup_grid;
extern int32_t grid_cursor;
extern int32_t results_cursor;

// Sets the name (its first 32 characters) and the grid, and both cursors back to -1.
void begin_lookup(const char* name, int32_t grid);

// Position of the next entry that matches, -1 when there is none.
using SectionLookup = int64_t();
[[nodiscard]] SectionLookup next_grid_section;
[[nodiscard]] SectionLookup next_results_section;

// Whether the lookup finds no further section; prints when it does.
[[nodiscard]] bool section_is_alone(SectionLookup* next);

// Whether the file given to the header callback has vector variables for the grid.
[[nodiscard]] bool grid_has_vectors(int32_t grid);
