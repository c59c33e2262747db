#include "readers/cradle/dataset_files.h"

#include "readers/cradle/time_series_names_S.h"
#include "ui/util/nzn_io.h"

#include <cstring>

// ---- units and file names ----

static FileOpened* told_of_files;
static void* told_context;

void tell_of_dataset_files(FileOpened* told, void* context)
{
    told_of_files = told;
    told_context = context;
}

int32_t open_dataset_unit(int32_t unit, const char* name)
{
    if (told_of_files) told_of_files(told_context, name);
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

void close_dataset_unit(int32_t unit)
{
    close_current_unit();
    nzn_close_unit(unit);
}

void keep_file_name(const char* name, char (&kept)[FILE_NAME_LENGTH + 1])
{
    memcpy(kept, name, strlen(name) + 1);
}

// ---- the end of a dataset ----

// Paths fill the table from its start, without holes.
void empty_time_series()
{
    for (TimeSeriesEntry& entry : TimeSeriesTable) {
        if (!entry.path) break;
        entry.path.reset();
    }
}

// Whether a file was opened since all was released.
static bool dataset_is_held()
{
    return dataset_state.current_unit != NO_UNIT || dataset_state.grid_file_name[0] != '\0' ||
           dataset_state.results_file_name[0] != '\0';
}

void fld_free_dataset()
{
    if (dataset_is_held()) ++dataset_state.generation;
    close_current_unit();
    dataset_state.grid_file_name[0] = '\0';
    dataset_state.paired_grid_file_name[0] = '\0';
    dataset_state.results_file_name[0] = '\0';
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
