#include "readers/cradle/time_steps.h"

#include "readers/cradle/dataset_files.h"
#include "readers/cradle/diagnostics.h"
#include "readers/cradle/fld_header.h"
#include "readers/cradle/item_reads.h"
#include "readers/cradle/section_index.h"
#include "readers/cradle/time_series_names_S.h"
#include "ui/util/nzn_io.h"
#include "ui/util/utf8wrap.h"

#include <algorithm>
#include <cstring>

constexpr int32_t TIME_STEP_UNIT = 4; // whatever unit the host has given

// ---- looks ----

// Prints when the file cannot be opened.
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
    if (!open_time_step_file(name ? name : "")) return;
    float header_time = 0;
    const bool header_read = read_time_step_header(&header_time);
    nzn_close_unit(TIME_STEP_UNIT);
    if (!header_read) return;
    *time = header_time;
    *error_flag = 0;
}

// Walks the first grid of the open file.
static FirstGrid walk_first_grid()
{
    bool has_nodes = false;
    bool has_elements = false;
    char name[SECTION_NAME_LENGTH + 1];
    while (read_name_record(TIME_STEP_UNIT, name)) {
        if (opens_grid(name) || ends_grids(name)) return FirstGrid::lacking;
        has_nodes |= strcmp(name, "LS_Nodes") == 0;
        has_elements |= strcmp(name, "LS_Elements") == 0;
        if (has_nodes && has_elements) return FirstGrid::complete;
        if (!skip_item_list(TIME_STEP_UNIT)) break;
    }
    return nzn_file_ended(TIME_STEP_UNIT) ? FirstGrid::lacking : FirstGrid::unknown;
}

FirstGrid look_at_first_grid(const char* name)
{
    if (!open_time_step_file(name)) return FirstGrid::unknown;
    float time = 0;
    const bool begins = read_time_step_header(&time) && first_grid_follows(TIME_STEP_UNIT);
    const FirstGrid found = begins ? walk_first_grid() : FirstGrid::unknown;
    nzn_close_unit(TIME_STEP_UNIT);
    return found;
}

// ---- the files that need no second look ----

// Whoever walks through a series opens one results file after the other, and each is paired with
// the same grid file, past all steps between them. So files without a grid are remembered, beyond
// the life of a dataset, as long as nobody writes to them, and only where a file's times tell that.
// (What a program writes through a mapping of the file shows in them only now and then; solvers
// write records.) A set holds the files of one hash value, the one remembered last in front; a file
// that is pushed out of its set is looked at once more.
constexpr size_t REMEMBERED_SETS = 8192;
constexpr size_t SET_SIZE = 16;
using RememberedSet = utf8wrap::FileStatus[SET_SIZE];
static RememberedSet files_without_grid[REMEMBERED_SETS];

static RememberedSet& set_of(const utf8wrap::FileStatus& file)
{
    const uint64_t mixed = (file.file_number ^ file.device) * 0x9E3779B97F4A7C15U;
    return files_without_grid[mixed >> 32 & (REMEMBERED_SETS - 1)];
}

static bool is_without_grid(const utf8wrap::FileStatus& file)
{
    const RememberedSet& set = set_of(file);
    return std::find(set, set + SET_SIZE, file) != set + SET_SIZE;
}

// The times of a file tell its versions apart only when they lie further from each other than the
// clocks of file systems tick, 2 seconds at most.
constexpr int64_t STEADY_NANOSECONDS = 2'000'000'000;

static bool is_steady(const utf8wrap::FileStatus& file, int64_t now)
{
    return file.tells_changes && file.modified <= now - STEADY_NANOSECONDS &&
           file.changed <= now - STEADY_NANOSECONDS;
}

static void remember_without_grid(const utf8wrap::FileStatus& file)
{
    RememberedSet& set = set_of(file);
    std::copy_backward(set, set + SET_SIZE - 1, set + SET_SIZE);
    set[0] = file;
}

static bool is_grid_file(const char* path)
{
    utf8wrap::FileStatus before{};
    utf8wrap::FileStatus after{};
    const bool is_known = utf8wrap::_stat64(path, &before) == 0;
    if (is_known && is_without_grid(before)) return false;
    const bool was_steady = is_known && is_steady(before, utf8wrap::time_now());
    const FirstGrid found = look_at_first_grid(path);
    // Nobody has written to what was looked at.
    if (found == FirstGrid::lacking && was_steady && utf8wrap::_stat64(path, &after) == 0 &&
        after == before) {
        remember_without_grid(before);
    }
    return found == FirstGrid::complete;
}

// ---- the search ----

const char* find_paired_grid_file(const char* results_name)
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
