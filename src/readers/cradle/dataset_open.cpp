#include "readers/cradle/dataset_open.h"

#include "readers/cradle/dataset_state.h"
#include "readers/cradle/diagnostics.h"
#include "readers/cradle/fld_header.h"
#include "readers/cradle/heap_array.h"
#include "readers/cradle/item_reads.h"
#include "readers/cradle/name_rows.h"
#include "readers/cradle/section_index.h"
#include "readers/cradle/time_series_names_S.h"
#include "readers/cradle/variables.h"
#include "ui/util/nzn_io.h"

#include <algorithm>
#include <cstring>
#include <utility>

constexpr int32_t TIME_STEP_UNIT = 4; // for short looks at other files of a series
constexpr uint8_t GIVEN_FILE = 0;
constexpr uint8_t PAIRED_FILE = 1;

// ---- units and file names ----

int32_t open_dataset_unit(int32_t unit, const char* name)
{
    if (unit == NO_UNIT || strnlen(name, FILE_NAME_LENGTH + 1) > FILE_NAME_LENGTH) {
        return NZN_CANNOT_OPEN;
    }
    const int32_t status = nzn_open_unit(unit, name);
    if (status == NZN_OK) dataset_state.current_unit = unit;
    return status;
}

void close_current_unit()
{
    if (dataset_state.current_unit != NO_UNIT) nzn_close_unit(dataset_state.current_unit);
    dataset_state.current_unit = NO_UNIT;
}

// The name was opened, so that it is known to fit.
static void keep_file_name(const char* name, char (&kept)[FILE_NAME_LENGTH + 1])
{
    memcpy(kept, name, strlen(name) + 1);
}

// ---- freeing the dataset ----

static void forget_file_names()
{
    dataset_state.grid_file_name[0] = '\0';
    dataset_state.paired_grid_file_name[0] = '\0';
    dataset_state.results_file_name[0] = '\0';
}

// Paths fill the table from its start, without holes.
static void empty_time_series()
{
    for (TimeSeriesEntry& entry : TimeSeriesTable) {
        if (!entry.path) break;
        entry.path.reset();
    }
}

void fld_free_dataset()
{
    close_current_unit();
    forget_file_names();
    dataset_state.unused_float = 0;
    dataset_state.unused_double = 0;
    dataset_state.grid_sections.count = 0;
    dataset_state.results_sections.count = 0;
    dataset_state.boundary_names.reset();
    dataset_state.boundary_rows = {};
    dataset_state.boundary_count = 0;
    dataset_state.faces_per_grid.reset();
    dataset_state.wall_region_counts.reset();
    dataset_state.variable_sections.reset();
    dataset_state.variable_section_count = 0;
    empty_time_series();
}

// ---- name lists ----

static void print_no_memory_for_variables()
{
    print_diagnostic("Data reader error: not enough dynamic memory for variables.\n");
}

// The names of the dataset so far, in the host's lists, with the section of every variable. `count`
// also counts names for which there was no row.
struct NameLists {
    int32_t boundary_capacity;
    int32_t* boundary_count;
    char* boundary_names;
    int32_t variable_capacity;
    int32_t* variable_count;
    char* variable_names;
    VariableSection* variable_sections;
    RowSet* boundary_rows; // made by the first merge
    RowSet* variable_rows;
};

// The same for one grid, of our own.
struct LocalNames {
    int32_t boundary_count = 0;
    HeapArray<char> boundary_names;
    int32_t variable_count = 0;
    HeapArray<char> variable_names;
    HeapArray<VariableSection> variable_sections;

    RowSet boundary_rows = {};
    RowSet variable_rows = {};

    NameLists lists(const NameLists& host)
    {
        return {host.boundary_capacity,  &boundary_count, boundary_names.get(),
                host.variable_capacity,  &variable_count, variable_names.get(),
                variable_sections.get(), &boundary_rows,  &variable_rows};
    }
};

static HeapArray<char> blank_rows(int32_t capacity)
{
    const int64_t size = static_cast<int64_t>(capacity) * NAME_ROW_LENGTH;
    HeapArray<char> rows = heap_array<char>(size);
    if (rows && size > 0) memset(rows.get(), ' ', static_cast<size_t>(size));
    return rows;
}

// False without a message when there is no memory for the boundary list: what it is for depends on
// the caller.
static bool make_boundary_list(const NameLists& host, LocalNames* local)
{
    local->boundary_names = blank_rows(host.boundary_capacity);
    return local->boundary_names != nullptr;
}

static bool make_variable_list(const NameLists& host, LocalNames* local)
{
    local->variable_names = blank_rows(host.variable_capacity);
    local->variable_sections = zeroed_heap_array<VariableSection>(host.variable_capacity);
    if (local->variable_names && local->variable_sections) return true;
    print_no_memory_for_variables();
    return false;
}

// Whether a name was in the list before a merge, of which `before` is the number of rows then.
static bool was_listed(const RowSet& rows, int32_t before, const char* row)
{
    const int32_t found = find_row(rows, row);
    return found >= 0 && found < before;
}

// Finds the names that a list has; false when there is no memory for that.
static bool enter_names(const char* names, int32_t capacity, int32_t count, RowSet* rows)
{
    if (!rows->slots && !make_row_set(names, NAME_ROW_LENGTH, capacity, rows)) return false;
    enter_rows(count, rows);
    return true;
}

static bool merge_boundaries(const LocalNames& local, const NameLists& host)
{
    const int32_t before = std::min(*host.boundary_count, host.boundary_capacity);
    const int32_t written = std::min(local.boundary_count, host.boundary_capacity);
    if (!enter_names(host.boundary_names, host.boundary_capacity, before, host.boundary_rows)) {
        print_no_memory_for_boundaries();
        return false;
    }
    for (int32_t i = 0; i < written && *host.boundary_count < host.boundary_capacity; ++i) {
        const char* const row = name_row(local.boundary_names.get(), i);
        if (was_listed(*host.boundary_rows, before, row)) continue;
        memcpy(name_row(host.boundary_names, *host.boundary_count), row, NAME_ROW_LENGTH);
        ++*host.boundary_count;
    }
    return true;
}

// A variable comes with its section, and a vector whole: with three names, if one of them is new,
// or with none.
static bool merge_variables(const LocalNames& local, const NameLists& host)
{
    const int32_t before = std::min(*host.variable_count, host.variable_capacity);
    const int32_t written = std::min(local.variable_count, host.variable_capacity);
    if (!enter_names(host.variable_names, host.variable_capacity, before, host.variable_rows)) {
        print_no_memory_for_variables();
        return false;
    }
    int32_t rows = 1;
    for (int32_t i = 0; i < written; i += rows) {
        const VariableSection& section = local.variable_sections[i];
        // A vector that found no three free rows left them unwritten; nothing follows it.
        if (section.name[0] == '\0') return true;
        rows = is_vector_section(section.name) ? 3 : 1;
        const char* const names = name_row(local.variable_names.get(), i);
        bool is_new = false;
        for (int64_t k = 0; k < rows; ++k) {
            is_new |= !was_listed(*host.variable_rows, before, names + k * NAME_ROW_LENGTH);
        }
        if (!is_new || int64_t{*host.variable_count} + rows > host.variable_capacity) continue;
        memcpy(name_row(host.variable_names, *host.variable_count), names,
               static_cast<size_t>(rows) * NAME_ROW_LENGTH);
        memcpy(&host.variable_sections[*host.variable_count], &section,
               static_cast<size_t>(rows) * sizeof section);
        *host.variable_count += rows;
    }
    return true;
}

static bool merge_names(const LocalNames& local, const NameLists& host)
{
    return merge_boundaries(local, host) && merge_variables(local, host);
}

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

static bool first_grid_follows(int32_t unit)
{
    char name[SECTION_NAME_LENGTH + 1];
    return read_name_record(unit, name) && strcmp(name, "OverlapStart_0") == 0;
}

static bool scan_one_grid(uint8_t mode, int32_t unit, int32_t grid, int32_t* node_count,
                          const NameLists& lists, uint8_t* end_flag)
{
    return scan_grid_sections(mode, unit, grid, node_count, lists.boundary_capacity,
                              lists.boundary_count, lists.boundary_names, lists.variable_capacity,
                              lists.variable_count, lists.variable_names, end_flag,
                              lists.variable_sections);
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
        const NameLists& target = grid == 0 ? lists : local->lists(lists);
        if (!scan_one_grid(mode, unit, grid, &node_counts[grid], target, &end_flag)) return false;
        if (grid > 0 && !merge_names(*local, lists)) return false;
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
    *lists.boundary_count = 0;
    *lists.variable_count = 0;
    *error_flag = 1;
    host_register_callbacks(fld_free_dataset, fld_peek_time);
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
    *error_flag = 0;
}

// ---- looks at other files of a series ----

// Opens a file of a series on the unit for short looks; prints when it cannot.
static bool open_time_step_file(const char* name)
{
    const int32_t status = nzn_open_unit(TIME_STEP_UNIT, name);
    if (status == NZN_CANNOT_OPEN) print_diagnostic("Cannot open time step file: %s\n", name);
    if (status == NZN_NOT_UNFORMATTED) {
        print_diagnostic("Time step file is not unformatted: %s\n", name);
    }
    return status == NZN_OK;
}

// Reads a file's header without touching the dataset.
static bool read_time_step_header(float* time)
{
    int32_t bias = 0;
    float unused_float = 0;
    double unused_double = 0;
    return read_fld_header(TIME_STEP_UNIT, &bias, time, &unused_float, &unused_double);
}

void fld_peek_time(void* /*unused*/, const char* name, void* /*unused*/, void* /*unused*/,
                   float* time, int32_t* error_flag)
{
    *time = 0;
    *error_flag = 1;
    if (!open_time_step_file(name)) return;
    float header_time = 0;
    const bool header_read = read_time_step_header(&header_time);
    nzn_close_unit(TIME_STEP_UNIT);
    if (!header_read) return;
    *time = header_time;
    *error_flag = 0;
}

// Whether the first grid of the open file has nodes and elements.
static bool first_grid_is_complete()
{
    float time = 0;
    bool has_nodes = false;
    bool has_elements = false;
    char name[SECTION_NAME_LENGTH + 1];
    if (!read_time_step_header(&time) || !first_grid_follows(TIME_STEP_UNIT)) return false;
    while (read_name_record(TIME_STEP_UNIT, name)) {
        if (opens_grid(name) || ends_grids(name)) return false;
        has_nodes |= strcmp(name, "LS_Nodes") == 0;
        has_elements |= strcmp(name, "LS_Elements") == 0;
        if (has_nodes && has_elements) return true;
        if (!skip_item_list(TIME_STEP_UNIT)) return false;
    }
    return false;
}

static bool is_grid_file(const char* name)
{
    if (!open_time_step_file(name)) return false;
    const bool complete = first_grid_is_complete();
    nzn_close_unit(TIME_STEP_UNIT);
    return complete;
}

// The nearest earlier file of the series that holds a grid; null, and a message, when there is
// none.
static const char* find_paired_grid_file(const char* results_name)
{
    int32_t index = -1;
    empty_time_series();
    const int32_t count = time_series_names_S(results_name, &index);
    for (int32_t row = std::min(index, count - 1); row >= 0; --row) {
        const char* const path = TimeSeriesTable[row].path.get();
        if (is_grid_file(path)) return path;
    }
    print_diagnostic("Data reader error: unable to find grid file for results file: %s\n",
                     results_name);
    return nullptr;
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
    int32_t grid_count = 0;
    int32_t error_flag = 1;
    scan_fld_file(PAIRED_FILE, paired_name, unit, grid_capacity, &grid_count, node_counts,
                  local.lists(lists), &error_flag);
    return !error_flag && merge_names(local, lists);
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
    if (*grid_count == 0) {
        print_diagnostic("Data reader error: file has no grids.\n");
        return false;
    }
    if (total_nodes(node_counts, *grid_count) == 0 && *lists.variable_count == 0) {
        print_diagnostic("Data reader error: file has no nodes or variables.\n");
        return false;
    }
    if (node_counts[0] >= 1) {
        keep_file_name(name, dataset_state.grid_file_name);
    } else if (!open_paired_grid_file(name, unit, grid_capacity, node_counts, lists)) {
        return false;
    }
    return store_boundary_names(lists.boundary_capacity, *lists.boundary_count,
                                lists.boundary_names);
}

void fld_read_header(const char* name, void* /*unused*/, const int32_t* unit,
                     const int32_t* grid_capacity, const int32_t* boundary_capacity,
                     const int32_t* variable_capacity, int32_t* grid_count, int32_t* node_counts,
                     int32_t* boundary_count, char* boundary_names, void* /*unused*/,
                     int32_t* variable_count, char* variable_names, int32_t* error_flag)
{
    const int32_t grids = std::max(*grid_capacity, 0);
    const int32_t variables = std::max(*variable_capacity, 0);
    *grid_count = 0;
    *boundary_count = 0;
    *variable_count = 0;
    *error_flag = 1;
    std::fill_n(node_counts, grids, 0);
    fld_free_dataset();
    // Kept aside until all is read: a host may close the dataset from one of its services.
    HeapArray<VariableSection> variable_sections = zeroed_heap_array<VariableSection>(variables);
    if (!variable_sections) {
        print_no_memory_for_variables();
        return;
    }
    RowSet boundary_rows = {};
    RowSet variable_rows = {};
    const NameLists lists{std::max(*boundary_capacity, 0),
                          boundary_count,
                          boundary_names,
                          variables,
                          variable_count,
                          variable_names,
                          variable_sections.get(),
                          &boundary_rows,
                          &variable_rows};
    const bool opened = open_dataset(name, *unit, grids, grid_count, node_counts, lists);
    close_current_unit();
    if (!opened) {
        // Nothing can be read from half a dataset.
        fld_free_dataset();
        return;
    }
    dataset_state.variable_sections = std::move(variable_sections);
    dataset_state.variable_section_count = variables;
    *error_flag = 0;
}
