#include "readers/cradle/surface_faces.h"

#include "readers/cradle/dataset_state.h"
#include "readers/cradle/diagnostics.h"
#include "readers/cradle/host_services.h"
#include "readers/cradle/item_reads.h"
#include "readers/cradle/name_rows.h"

#include <algorithm>
#include <cstring>

// ---- names ----

static bool is_wall_region(const SurfaceCaller& caller, const char* name)
{
    const HeapArray<char>* const end = caller.wall_names + caller.wall_name_count;
    const HeapArray<char>* const found = std::lower_bound(
        caller.wall_names, end, name, [](const HeapArray<char>& wall, const char* wanted) {
            return strcmp(wall.get(), wanted) < 0;
        });
    return found != end && strcmp(found->get(), name) == 0;
}

// The 1-based position of a region's name among the dataset's boundary names, which hold at most
// 80 characters without trailing blanks; 0, and a message, when it is not there.
static int32_t find_boundary_type(const char* name)
{
    char row[NAME_ROW_LENGTH + 1];
    trim_name_row(name, strnlen(name, NAME_ROW_LENGTH), row);
    if (dataset_state.boundary_count > 0) {
        const int32_t found = find_row(dataset_state.boundary_rows, row);
        if (found >= 0) return found + 1;
    }
    print_diagnostic("Data reader error: boundary type not found: %s\n", name);
    return 0;
}

bool take_region_name(const SurfaceCaller& caller, const char* name, int32_t* boundary_type)
{
    if (!caller.scan_only) {
        *boundary_type = find_boundary_type(name);
        return *boundary_type > 0;
    }
    append_name_row(name, caller.name_capacity, caller.name_count, caller.names);
    return true;
}

// ---- faces ----

bool add_faces(const SurfaceCaller& caller, int32_t count)
{
    if (count > INT32_MAX - *caller.face_count) return false;
    *caller.face_count += count;
    return true;
}

bool open_face_array(int32_t unit, bool wanted, int32_t count, IntWindow* array)
{
    return wanted ? open_int_window(unit, count, array) : read_int_array_item(unit, count, nullptr);
}

static int32_t face_nodes(int32_t type)
{
    switch (type) {
    case 122: return 2; // line
    case 133: return 3; // triangle
    case 134: return 4; // quadrilateral
    default: return 0;
    }
}

// Numbers of the file may be anything: unsigned arithmetic wraps where int32 must not.
static int32_t wrapping_sum(int32_t a, uint32_t b)
{
    return static_cast<int32_t>(static_cast<uint32_t>(a) + b);
}

static bool append_wall(const SurfaceCaller& caller, int32_t element, const int32_t* nodes,
                        int32_t node_count)
{
    // The room is what the scan counted; the file may have changed since.
    if (*caller.wall_count >= caller.wall_capacity) {
        print_diagnostic("Data reader error: more wall faces than the %d counted when the dataset "
                         "was opened\n",
                         caller.wall_capacity);
        return false;
    }
    caller.walls[(*caller.wall_count)++] = {
        element, {nodes[0], nodes[1], nodes[2], node_count == 4 ? nodes[3] : -1}};
    return true;
}

static bool create_face(int32_t boundary_type, int32_t node_count, const int32_t* nodes)
{
    const int64_t generation = dataset_state.generation;
    if (host_create_boundary_face(boundary_type, node_count, nodes)) {
        return dataset_state.generation == generation;
    }
    print_no_memory_for_boundaries();
    return false;
}

FaceUse use_of_faces(const SurfaceCaller& caller, const char* name, int32_t boundary_type)
{
    const ReadRequest& request = *caller.request;
    const bool is_wanted =
        request.faces && (!request.boundaries || request.boundaries[boundary_type - 1]);
    return {is_wanted && !request.counts, is_wall_region(caller, name), request.counts != nullptr};
}

static bool print_unknown_type(int32_t face, int32_t type)
{
    print_diagnostic("FLD file error: face %d has unknown type %d\n", face + 1, type);
    return false;
}

static bool count_faces(const SurfaceCaller& caller, int32_t boundary_type,
                        const RegionFaces& faces)
{
    const GridCounts& counts = *caller.request->counts;
    for (int32_t j = 0; j < faces.count; ++j) {
        const int32_t* const type = take_values(faces.types, 1);
        if (!type) return false;
        const int32_t node_count = face_nodes(*type);
        if (node_count == 0) return print_unknown_type(j, *type);
        counts.triangles[boundary_type - 1] += node_count == 3;
        counts.quadrilaterals[boundary_type - 1] += node_count == 4;
    }
    return true;
}

bool take_region_faces(const SurfaceCaller& caller, const FaceUse& use, int32_t boundary_type,
                       const RegionFaces& faces)
{
    if (use.count) return count_faces(caller, boundary_type, faces);
    const uint32_t bias = static_cast<uint32_t>(dataset_state.bias);
    int32_t nodes_left = faces.list_length;
    for (int32_t j = 0; j < faces.count; ++j) {
        const int32_t* const type = take_values(faces.types, 1);
        const int32_t* const element = take_values(faces.elements, 1);
        if (!type || !element) return false;
        const int32_t node_count = face_nodes(*type);
        if (node_count == 0) return print_unknown_type(j, *type);
        if (node_count > nodes_left) {
            print_diagnostic("FLD file error: node list of %d entries is too short for face %d\n",
                             faces.list_length, j + 1);
            return false;
        }
        const int32_t* const file_nodes = take_values(faces.node_list, node_count);
        if (!file_nodes) return false;
        nodes_left -= node_count;
        if (node_count < 3) continue;
        int32_t nodes[4];
        for (int32_t k = 0; k < node_count; ++k) nodes[k] = wrapping_sum(file_nodes[k], 1U - bias);
        if (use.create && !create_face(boundary_type, node_count, nodes)) return false;
        if (use.record &&
            !append_wall(caller, wrapping_sum(*element, 0U - bias), nodes, node_count)) {
            return false;
        }
    }
    return pass_values(faces.node_list, nodes_left);
}
