#include "readers/cradle/dataset_open.h"

#include "readers/cradle/dataset_files.h"
#include "readers/cradle/dataset_state.h"
#include "readers/cradle/diagnostics.h"
#include "readers/cradle/fld_header.h"
#include "readers/cradle/heap_array.h"
#include "readers/cradle/name_lists.h"
#include "readers/cradle/section_index.h"
#include "readers/cradle/time_steps.h"
#include "ui/util/nzn_io.h"

#include <algorithm>
#include <utility>

constexpr uint8_t GIVEN_FILE = 0;
constexpr uint8_t PAIRED_FILE = 1;

// ---- scanning a file ----

// The per-grid counts start anew with every file that is scanned.
static bool make_grid_counts(int32_t grid_capacity)
{
    dataset_state.faces_per_grid = zeroed_heap_array<int32_t>(grid_capacity);
    if (!dataset_state.faces_per_grid) {
        print_diagnostic("Data reader error: not enough dynamic memory for face counts.\n");
        return false;
    }
    dataset_state.wall_region_counts = zeroed_heap_array<int32_t>(grid_capacity);
    if (!dataset_state.wall_region_counts) {
        print_diagnostic("Data reader error: not enough dynamic memory for region types.\n");
        return false;
    }
    return true;
}

static bool read_dataset_header(int32_t unit)
{
    float time = 0;
    if (!read_fld_header(unit, &dataset_state.bias, &time, &dataset_state.unused_float,
                         &dataset_state.unused_double)) {
        return false;
    }
    if (dataset_state.bias != BIAS_MISSING) return true;
    print_diagnostic("FLD file error: Bias value is missing.\n");
    return false;
}

static bool scan_one_grid(uint8_t mode, int32_t unit, int32_t grid, int32_t* node_count,
                          const NameLists& lists, uint8_t* end_flag)
{
    return scan_grid_sections(mode, unit, grid, node_count, lists.boundaries.capacity,
                              lists.boundaries.count, lists.boundaries.rows,
                              lists.variables.capacity, lists.variables.count, lists.variables.rows,
                              end_flag, lists.variable_sections);
}

// The first grid's names go straight into the lists, those of every further one are merged.
static bool scan_grids(uint8_t mode, int32_t unit, int32_t grid_capacity, int32_t* grid_count,
                       int32_t* node_counts, const NameLists& lists, LocalNames* local)
{
    uint8_t end_flag = 0;
    for (int32_t grid = 0;; ++grid) {
        if (grid >= grid_capacity) {
            print_diagnostic("Data reader error: number of grids exceeds limit of %d\n",
                             grid_capacity);
            return false;
        }
        const NameLists target = grid == 0 ? lists : lists_of(lists, local);
        if (!scan_one_grid(mode, unit, grid, &node_counts[grid], target, &end_flag)) return false;
        if (grid > 0 && !merge_names(target, lists, MergedSections::kept)) return false;
        ++*grid_count;
        // Of a paired grid file only the first grid is used.
        if (mode == PAIRED_FILE || end_flag) return true;
    }
}

// Opens and scans one file into the index; it stays open as the current unit when that succeeds.
// `error_flag` is clear only then.
static void scan_fld_file(uint8_t mode, const char* name, int32_t unit, int32_t grid_capacity,
                          int32_t* grid_count, int32_t* node_counts, const NameLists& lists,
                          int32_t* error_flag)
{
    *grid_count = 0;
    *lists.boundaries.count = 0;
    *lists.variables.count = 0;
    *error_flag = 1;
    const int64_t generation = dataset_state.generation;
    host_register_callbacks(fld_free_dataset, fld_peek_time);
    if (dataset_state.generation != generation) return;
    const int32_t status = open_dataset_unit(unit, name);
    if (status == NZN_CANNOT_OPEN) print_diagnostic("Cannot open file: %s\n", name);
    if (status == NZN_NOT_UNFORMATTED) print_diagnostic("File is not unformatted: %s\n", name);
    if (status != NZN_OK) return;
    if (!read_dataset_header(unit) || !first_grid_follows(unit)) {
        fld_free_dataset();
        return;
    }
    LocalNames local;
    if (!make_grid_counts(grid_capacity)) return;
    if (!make_boundary_list(lists, &local)) {
        print_no_memory_for_boundaries();
        return;
    }
    if (!make_variable_list(lists, &local)) return;
    if (!scan_grids(mode, unit, grid_capacity, grid_count, node_counts, lists, &local)) {
        fld_free_dataset();
        return;
    }
    host_set_reader_options();
    *error_flag = dataset_state.generation == generation ? 0 : 1;
}

// ---- the header callback ----

// Grid 1 is read from the paired file alone.
static void drop_first_grid(SectionTable* table)
{
    SectionEntry* const end = table->entries + table->count;
    SectionEntry* const kept =
        std::remove_if(table->entries, end, [](const SectionEntry& e) { return e.grid == 0; });
    table->count = static_cast<int32_t>(kept - table->entries);
}

// Finds and scans the grid file of a results file; its node count becomes that of the first grid.
static bool open_paired_grid_file(const char* results_name, int32_t unit, int32_t grid_capacity,
                                  int32_t* node_counts, const NameLists& lists)
{
    keep_file_name(results_name, dataset_state.results_file_name);
    const char* const grid_name = find_paired_grid_file(results_name);
    if (!grid_name) return false;
    char paired_name[FILE_NAME_LENGTH + 1];
    keep_file_name(grid_name, paired_name);
    keep_file_name(grid_name, dataset_state.paired_grid_file_name);
    close_current_unit();
    LocalNames local;
    if (!make_boundary_list(lists, &local)) {
        print_diagnostic("Data reader error: not enough dynamic memory for grids.\n");
        return false;
    }
    if (!make_variable_list(lists, &local)) return false;
    drop_first_grid(&dataset_state.grid_sections);
    const NameLists paired_lists = lists_of(lists, &local);
    int32_t grid_count = 0;
    int32_t error_flag = 1;
    scan_fld_file(PAIRED_FILE, paired_name, unit, grid_capacity, &grid_count, node_counts,
                  paired_lists, &error_flag);
    // Values are read from the results file alone: what only the grid file has is undefined.
    return !error_flag && merge_names(paired_lists, lists, MergedSections::left_out);
}

// Keeps the names of the boundaries, whose positions are the boundary types.
static bool store_boundary_names(int32_t capacity, int32_t count, const char* names)
{
    const int32_t stored = std::min(capacity, count);
    if (stored < 1) return true;
    dataset_state.boundary_names = heap_array<BoundaryName>(stored);
    if (!dataset_state.boundary_names ||
        !make_row_set(dataset_state.boundary_names[0].text, sizeof(BoundaryName), stored,
                      &dataset_state.boundary_rows)) {
        print_no_memory_for_boundaries();
        return false;
    }
    for (int32_t i = 0; i < stored; ++i) {
        const char* const row = names + static_cast<ptrdiff_t>(i) * NAME_ROW_LENGTH;
        if (trim_name_row(row, NAME_ROW_LENGTH, dataset_state.boundary_names[i].text) == 0) {
            print_diagnostic("Data reader error: empty boundary name.\n");
            return false;
        }
        dataset_state.boundary_count = i + 1;
    }
    enter_rows(stored, &dataset_state.boundary_rows);
    return true;
}

static int64_t total_nodes(const int32_t* node_counts, int32_t grid_count)
{
    int64_t total = 0;
    for (int32_t grid = 0; grid < grid_count; ++grid) total += node_counts[grid];
    return total;
}

// Opens the dataset; true when everything that was asked for is there.
static bool open_dataset(const char* name, int32_t unit, int32_t grid_capacity, int32_t* grid_count,
                         int32_t* node_counts, const NameLists& lists)
{
    int32_t error_flag = 1;
    scan_fld_file(GIVEN_FILE, name, unit, grid_capacity, grid_count, node_counts, lists,
                  &error_flag);
    if (error_flag) return false;
    if (*grid_count == 0) { // never: a scan that succeeds has counted a grid
        print_diagnostic("Data reader error: file has no grids.\n");
        return false;
    }
    if (total_nodes(node_counts, *grid_count) == 0 && *lists.variables.count == 0) {
        print_diagnostic("Data reader error: file has no nodes or variables.\n");
        return false;
    }
    if (node_counts[0] >= 1) {
        keep_file_name(name, dataset_state.grid_file_name);
    } else if (!open_paired_grid_file(name, unit, grid_capacity, node_counts, lists)) {
        return false;
    }
    return store_boundary_names(lists.boundaries.capacity, *lists.boundaries.count,
                                lists.boundaries.rows);
}

void fld_read_header(const char* name, void* /*unused*/, const int32_t* unit,
                     const int32_t* grid_capacity, const int32_t* boundary_capacity,
                     const int32_t* variable_capacity, int32_t* grid_count, int32_t* node_counts,
                     int32_t* boundary_count, char* boundary_names, void* /*unused*/,
                     int32_t* variable_count, char* variable_names, int32_t* error_flag)
{
    const int32_t file_unit = *unit;
    const int32_t variables = std::max(*variable_capacity, 0);
    *grid_count = 0;
    *boundary_count = 0;
    *variable_count = 0;
    *error_flag = 1;
    std::fill_n(node_counts, std::max(*grid_capacity, 0), 0);
    fld_free_dataset();
    ++dataset_state.generation;
    // Kept aside until all is read: a host may close the dataset from one of its services.
    HeapArray<VariableSection> variable_sections = zeroed_heap_array<VariableSection>(variables);
    if (!variable_sections) {
        print_no_memory_for_variables();
        return;
    }
    RowSet boundary_index = {};
    RowSet variable_index = {};
    const NameLists lists{
        {std::max(*boundary_capacity, 0), boundary_count, boundary_names, &boundary_index},
        {variables, variable_count, variable_names, &variable_index},
        variable_sections.get()};
    const bool opened =
        open_dataset(name ? name : "", file_unit, *grid_capacity, grid_count, node_counts, lists);
    close_dataset_unit(file_unit);
    if (!opened) {
        // Nothing can be read from half a dataset.
        fld_free_dataset();
        return;
    }
    dataset_state.variable_sections = std::move(variable_sections);
    dataset_state.variable_section_count = variables;
    *error_flag = 0;
}
