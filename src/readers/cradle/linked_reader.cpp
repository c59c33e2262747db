#include "readers/cradle/linked_reader.h"

#include "readers/cradle/dataset_files.h"
#include "readers/cradle/dataset_state.h"
#include "readers/cradle/diagnostics.h"
#include "readers/cradle/grid_read.h"
#include "readers/cradle/time_series_names_S.h"
#include "readers/cradle/time_steps.h"
#include "readers/cradle/variables.h"
#include "ui/util/nzn_io.h"
#include "ui/util/utf8wrap.h"

#include <algorithm>
#include <cstring>

// The unit of the reads that have no host to choose one.
constexpr int32_t LINKED_UNIT = 20;

void set_reader_hooks(const ReaderHooks& hooks)
{
    send_messages_to(hooks.message, hooks.context);
    nzn_ask_while_reading(hooks.go_on, hooks.context);
    tell_of_dataset_files(hooks.opened, hooks.context);
    note_lack_of_memory(hooks.no_memory);
}

bool read_grid_of_dataset(int32_t grid_number, int32_t node_count, float* coords,
                          int32_t variable_count, const ReadRequest& request)
{
    int32_t error_flag = 1;
    fld_read_wanted(LINKED_UNIT, grid_number, node_count, coords, variable_count, nullptr, request,
                    &error_flag);
    return error_flag == 0;
}

bool count_grid_of_dataset(int32_t grid_number, GridCounts* counts)
{
    ReadRequest request;
    request.nodes = false;
    request.wall_flags = false;
    request.counts = counts;
    float* const no_row = nullptr;
    request.rows = &no_row;
    return read_grid_of_dataset(grid_number, 0, nullptr, 0, request);
}

bool look_for_grid(const char* path, bool* holds_grid)
{
    const FirstGrid found = look_at_first_grid(path);
    *holds_grid = found == FirstGrid::complete;
    return found != FirstGrid::unknown;
}

const char* section_of_variable(int32_t row)
{
    const bool is_there = row >= 0 && row < dataset_state.variable_section_count;
    return is_there ? dataset_state.variable_sections[row].name : "";
}

const char* file_of_dataset_grid(int32_t grid_number)
{
    return file_of_grid(grid_number);
}

// ---- how much a read takes in ----

static bool is_wanted(const SectionEntry& entry, const ReadRequest& request)
{
    const char* const name = entry.name;
    if (strcmp(name, "LS_Nodes") == 0) return request.nodes;
    if (strcmp(name, "LS_Elements") == 0 || strcmp(name, "LS_MatOfElements") == 0) {
        return request.cells;
    }
    if (strncmp(name, "LS_SurfaceGeometry", strlen("LS_SurfaceGeometry")) == 0) {
        return request.faces || (request.cells && request.wall_flags);
    }
    for (int32_t i = 0; i < dataset_state.variable_section_count; ++i) {
        if (strcmp(name, dataset_state.variable_sections[i].name) != 0) continue;
        if (wants_variable(request, i)) return true;
    }
    return false;
}

// The file that a section stands in.
static const char* file_of(const SectionTable* table, const SectionEntry& entry)
{
    const bool is_of_grid_file = table == &dataset_state.grid_sections && entry.grid == 0;
    return is_of_grid_file || dataset_state.results_file_name[0] == '\0'
               ? file_of_grid(1)
               : dataset_state.results_file_name;
}

static const SectionTable* const tables[] = {&dataset_state.grid_sections,
                                             &dataset_state.results_sections};

// The bytes from a section to the next one of its file, or to the file's end.
static int64_t bytes_of_section(const char* file, int64_t begin)
{
    utf8wrap::FileStatus status{};
    int64_t end = utf8wrap::_stat64(file, &status) == 0 ? status.size : begin;
    for (const SectionTable* table : tables) {
        for (int32_t i = 0; i < table->count; ++i) {
            const SectionEntry& entry = table->entries[i];
            if (entry.position > begin && file_of(table, entry) == file) {
                end = std::min(end, entry.position);
            }
        }
    }
    return std::max<int64_t>(0, end - begin);
}

int64_t bytes_to_read(int32_t grid_number, const ReadRequest& request)
{
    int64_t bytes = 0;
    for (const SectionTable* table : tables) {
        for (int32_t i = 0; i < table->count; ++i) {
            const SectionEntry& entry = table->entries[i];
            if (entry.grid != grid_number - 1 || !is_wanted(entry, request)) continue;
            bytes += bytes_of_section(file_of(table, entry), entry.position);
        }
    }
    return bytes;
}
