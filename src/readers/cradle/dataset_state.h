// The one open dataset: what the header callback learnt about it and the data callback needs.
// Plain process-wide data; the host calls from one thread, one call at a time.
#pragma once

#include "readers/cradle/heap_array.h"
#include "readers/cradle/name_rows.h"

#include <cstdint>

constexpr int32_t MAX_SECTIONS = 2048;
constexpr int32_t SECTION_NAME_LENGTH = 32;
constexpr int32_t FILE_NAME_LENGTH = 255;
constexpr int32_t NO_UNIT = -1;

struct SectionEntry {
    int64_t position; // of the record after the section's name record
    int32_t grid;     // 0-based
    char name[SECTION_NAME_LENGTH + 1];
};

struct SectionTable {
    SectionEntry entries[MAX_SECTIONS]; // in file order
    int32_t count;
};

// A boundary name of the host's list without its trailing blanks, padded with NUL.
struct BoundaryName {
    char text[NAME_ROW_LENGTH + 1];
};

// The section that holds a host variable. A vector's second and third row are empty.
struct VariableSection {
    char name[SECTION_NAME_LENGTH + 1];
};

struct DatasetState {
    int32_t current_unit = NO_UNIT; // the unit that is open now
    // The header callback's file when its first grid has nodes, else empty.
    char grid_file_name[FILE_NAME_LENGTH + 1] = "";
    // The header callback's file when its first grid has none, else empty.
    char results_file_name[FILE_NAME_LENGTH + 1] = "";
    // The grid file that belongs to the results file.
    char paired_grid_file_name[FILE_NAME_LENGTH + 1] = "";
    SectionTable grid_sections = {};    // nodes, elements, materials, surfaces, regions, volumes
    SectionTable results_sections = {}; // coordinate systems, variables, ALE data
    int32_t bias = 0;                   // the number that the file gives its first node
    float unused_float = 0;             // stored reals equal to these are undefined;
    double unused_double = 0;           // 0: none is
    HeapArray<int32_t> faces_per_grid;  // one entry per grid that the host can take
    HeapArray<int32_t> wall_region_counts;
    HeapArray<BoundaryName> boundary_names; // a boundary's type is its 1-based position here
    int32_t boundary_count = 0;
    HeapArray<VariableSection> variable_sections; // row i belongs to host variable i
    int32_t variable_section_count = 0;           // rows that exist: the host's variable capacity
    int32_t coordinate_system = -1;               // of the grid being read
    RowSet boundary_rows = {};                    // finds boundary names
    // Changes when a dataset is released and when another is begun. A host may do either from
    // inside one of its services: whoever called the service finds out by this, and has failed.
    int64_t generation = 0;
};

extern DatasetState dataset_state;
