#include "readers/cradle/nodes.h"

#include "readers/cradle/array_windows.h"
#include "readers/cradle/dataset_state.h"
#include "readers/cradle/diagnostics.h"
#include "readers/cradle/item_reads.h"

#include <cmath>
#include <cstring>

bool coordinate_system_is_valid(int32_t code)
{
    return code == CARTESIAN || code == CYLINDRICAL;
}

bool check_coordinate_system(int32_t code)
{
    if (coordinate_system_is_valid(code)) return true;
    print_diagnostic("FLD file error: invalid coordinate system: %d\n", code);
    return false;
}

bool read_coordinate_system(int32_t unit, int32_t* code)
{
    int32_t not_interpreted = 0;
    return read_int_item(unit, &not_interpreted) && read_int_item(unit, code);
}

// Copies the radius and angle planes as they were stored; prints when there is no memory for them.
static bool keep_polar(const float* coords, int32_t node_count, HeapArray<float>* polar)
{
    *polar = heap_array<float>(int64_t{2} * node_count);
    if (!*polar) {
        print_no_memory_for_items(node_count);
        return false;
    }
    memcpy(polar->get(), coords, static_cast<size_t>(node_count) * 2 * sizeof(float));
    return true;
}

// Radius and angle become x and y, in place and in double precision.
static void make_cartesian(float* first_plane, float* second_plane, int32_t node_count)
{
    for (int32_t i = 0; i < node_count; ++i) {
        const double radius = first_plane[i];
        const double angle = second_plane[i];
        first_plane[i] = static_cast<float>(std::cos(angle) * radius);
        second_plane[i] = static_cast<float>(std::sin(angle) * radius);
    }
}

bool read_fld_nodes(int32_t unit, bool scan_only, int32_t query_count, int32_t* node_count,
                    float* coords, HeapArray<float>* polar)
{
    *node_count = 0;
    if (!scan_only && query_count >= 1 && !coords) {
        print_diagnostic("Error: NULL array for grid coordinates.\n");
        return false;
    }
    int32_t not_interpreted = 0;
    if (!read_int_item(unit, &not_interpreted) || !read_int_item(unit, node_count)) return false;
    if (!scan_only && *node_count != query_count) {
        print_diagnostic("Error: node count %d does not match query count %d\n", *node_count,
                         query_count);
        return false;
    }
    // A scan passes the values over, and so does a grid of no nodes without a buffer.
    for (int64_t plane = 0; plane < 3; ++plane) {
        float* const values = scan_only || !coords ? nullptr : coords + plane * query_count;
        if (!read_real_array_item(unit, *node_count, values)) return false;
    }
    if (scan_only) return true;
    // Always valid: the grid was refused before otherwise.
    if (!check_coordinate_system(dataset_state.coordinate_system)) return false;
    if (dataset_state.coordinate_system == CARTESIAN || query_count < 1) return true;
    if (polar && !keep_polar(coords, query_count, polar)) return false;
    make_cartesian(coords, coords + query_count, query_count);
    return true;
}
