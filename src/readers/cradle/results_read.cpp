#include "readers/cradle/results_read.h"

#include "readers/cradle/array_windows.h"
#include "readers/cradle/dataset_state.h"
#include "readers/cradle/diagnostics.h"
#include "readers/cradle/item_reads.h"
#include "readers/cradle/nodes.h"
#include "readers/cradle/section_index.h"
#include "readers/cradle/variables.h"
#include "ui/util/nzn_io.h"

#include <algorithm>
#include <cmath>
#include <limits>

// One call's arguments. Block i of the values, `node_count` floats, belongs to variable i.
struct ResultsRead {
    int32_t unit;
    int32_t grid_number; // 1-based
    int32_t node_count;
    int32_t variable_count;
    GridNodes* nodes;
    float* values;
    const ReadRequest* request;
};

// ---- the coordinate system of the results ----

// A results file may say how its vectors are given; otherwise the grid's own system stays in force.
static bool read_results_coordinate_system(const ResultsRead& read)
{
    begin_lookup("LS_CoordinateSystem", read.grid_number - 1);
    const int64_t position = next_results_section();
    if (position < 0) return true;
    if (nzn_seek(read.unit, position) != NZN_OK) return false;
    if (!read_coordinate_system(read.unit, &dataset_state.coordinate_system)) return false;
    if (!coordinate_system_is_valid(dataset_state.coordinate_system)) {
        print_diagnostic("Error: results grid %d has invalid coordinate system: %d\n",
                         read.grid_number, dataset_state.coordinate_system);
        return false;
    }
    if (next_results_section() < 0) return true;
    print_diagnostic("Error: results grid %d has more than 1 LS_CoordinateSystem section.\n",
                     read.grid_number);
    return false;
}

// Radius and angle of the nodes, where the node section did not store them: from x and y.
static bool make_polar(const ResultsRead& read)
{
    if (read.nodes->polar) return true;
    if (!read.nodes->coords) {
        // The file said something else when it was decided that the nodes are not needed.
        print_diagnostic("Error: results grid %d has changed its coordinate system.\n",
                         read.grid_number);
        return false;
    }
    read.nodes->polar = heap_array<float>(int64_t{2} * read.node_count);
    if (!read.nodes->polar) {
        print_no_memory_for_items(read.node_count);
        return false;
    }
    const float* const x = read.nodes->coords;
    const float* const y = x + read.node_count;
    float* const radius = read.nodes->polar.get();
    float* const angle = radius + read.node_count;
    for (int32_t i = 0; i < read.node_count; ++i) {
        const double wide_x = x[i];
        const double wide_y = y[i];
        // The squares of floats neither overflow nor underflow in a double.
        radius[i] = static_cast<float>(std::sqrt(wide_x * wide_x + wide_y * wide_y));
        angle[i] = static_cast<float>(std::atan2(wide_y, wide_x));
    }
    return true;
}

// ---- variables ----

static float* block_of(const ResultsRead& read, int32_t variable)
{
    if (read.request->rows) return read.request->rows[variable];
    return read.values ? read.values + static_cast<int64_t>(variable) * read.node_count : nullptr;
}

static bool fill_undefined(const ResultsRead& read, bool is_vector, int32_t first, int32_t blocks)
{
    if (!value_buffer_is_there(is_vector, read.node_count, block_of(read, first))) return false;
    std::fill_n(block_of(read, first), static_cast<int64_t>(blocks) * read.node_count,
                std::numeric_limits<float>::infinity());
    return true;
}

static bool read_vector(const ResultsRead& read, int32_t first)
{
    int32_t name_count = 0;
    const bool needs_polar = dataset_state.coordinate_system == CYLINDRICAL &&
                             read.node_count > 0 && block_of(read, first);
    if (needs_polar && !make_polar(read)) return false;
    return read_vector_section(read.unit, false, nullptr, 0, read.node_count,
                               read.nodes->polar.get(), &name_count, nullptr,
                               block_of(read, first));
}

static bool read_scalar(const ResultsRead& read, int32_t first)
{
    int32_t name_count = 0;
    return read_scalar_section(read.unit, false, nullptr, 0, read.node_count, &name_count, nullptr,
                               block_of(read, first));
}

// Reads the section into the blocks from `first` on. What the grid lacks, and a vector of which
// not every block is wanted, becomes undefined.
static bool read_variable(const ResultsRead& read, const char* section, int32_t first,
                          int32_t blocks)
{
    const bool is_vector = is_vector_section(section);
    begin_lookup(section, read.grid_number - 1);
    const int64_t position = next_results_section();
    if (position < 0 || (is_vector && blocks < 3))
        return fill_undefined(read, is_vector, first, blocks);
    if (nzn_seek(read.unit, position) != NZN_OK) return false;
    if (!(is_vector ? read_vector(read, first) : read_scalar(read, first))) return false;
    return section_is_alone(next_results_section);
}

static bool read_variables(const ResultsRead& read)
{
    const int32_t rows = std::min(read.variable_count, dataset_state.variable_section_count);
    int32_t blocks = 1;
    for (int32_t i = 0; i < rows; i += blocks) {
        const char* const section = dataset_state.variable_sections[i].name;
        blocks = std::min(is_vector_section(section) ? 3 : 1, read.variable_count - i);
        if (!wants_variable(*read.request, i)) continue;
        // A variable for which the host's list had no row has no section either.
        const bool complete = section[0] == '\0' ? fill_undefined(read, false, i, blocks)
                                                 : read_variable(read, section, i, blocks);
        if (!complete) return false;
    }
    return read.request->rows || read.variable_count == rows ||
           fill_undefined(read, false, rows, read.variable_count - rows);
}

void read_results(const int32_t* unit, const int32_t* grid_number, const int32_t* node_count,
                  const int32_t* variable_count, GridNodes* nodes, float* values,
                  const ReadRequest& request, int32_t* error_flag)
{
    const ResultsRead read{*unit, *grid_number, *node_count, *variable_count,
                           nodes, values,       &request};
    *error_flag = 1;
    if (read.variable_count < 1 || (read_results_coordinate_system(read) && read_variables(read))) {
        *error_flag = 0;
    }
}
