#include "readers/cradle/surface_geometry.h"

#include "readers/cradle/dataset_state.h"
#include "readers/cradle/diagnostics.h"
#include "readers/cradle/host_services.h"
#include "readers/cradle/int_window.h"
#include "readers/cradle/item_reads.h"
#include "readers/cradle/name_rows.h"
#include "readers/cradle/region_names.h"

#include <algorithm>
#include <cstring>

// ---- what both layouts share ----

// The caller's arguments. In the scan the first group counts, in load mode the second.
struct Caller {
    bool scan_only;

    int32_t name_capacity;
    int32_t* name_count;
    char* names;
    int32_t* face_count;

    int32_t wall_name_count;
    const HeapArray<char>* wall_names;
    int32_t* wall_count;
    ElementWall* walls;
    int32_t wall_capacity;
};

// One region's faces: how many, how many node entries they may take, and the arrays from which
// both come, which may go on with the next region's.
struct RegionFaces {
    int32_t count;
    int32_t list_length;
    IntWindow* types;
    IntWindow* elements;
    IntWindow* node_list;
};

static bool is_wall_region(const Caller& caller, const char* name)
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

// Collects the name in the scan, finds its boundary type in load mode.
static bool take_name(const Caller& caller, const char* name, int32_t* boundary_type)
{
    if (!caller.scan_only) {
        *boundary_type = find_boundary_type(name);
        return *boundary_type > 0;
    }
    append_name_row(name, caller.name_capacity, caller.name_count, caller.names);
    return true;
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

static bool append_wall(const Caller& caller, int32_t element, const int32_t* nodes,
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

// Creates the region's faces in the host and records those of a wall.
static bool create_region_faces(const Caller& caller, const char* name, int32_t boundary_type,
                                const RegionFaces& faces)
{
    const bool is_wall = is_wall_region(caller, name);
    const uint32_t bias = static_cast<uint32_t>(dataset_state.bias);
    int32_t nodes_left = faces.list_length;
    for (int32_t j = 0; j < faces.count; ++j) {
        const int32_t* const type = take_values(faces.types, 1);
        const int32_t* const element = take_values(faces.elements, 1);
        if (!type || !element) return false;
        const int32_t node_count = face_nodes(*type);
        if (node_count == 0) {
            print_diagnostic("FLD file error: face %d has unknown type %d\n", j + 1, *type);
            return false;
        }
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
        if (!host_create_boundary_face(boundary_type, node_count, nodes)) {
            print_no_memory_for_boundaries();
            return false;
        }
        if (is_wall && !append_wall(caller, wrapping_sum(*element, 0U - bias), nodes, node_count)) {
            return false;
        }
    }
    return pass_values(faces.node_list, nodes_left);
}

// ---- "LS_SurfaceGeometry": one region after the other ----

// Type codes, element numbers and node list of one region; opened only when they are wanted.
struct RegionArrays {
    int32_t face_count;
    IntWindow types;
    IntWindow elements;
    int32_t list_length;
    IntWindow node_list;
};

static bool open_array(int32_t unit, bool wanted, int32_t count, IntWindow* array)
{
    return wanted ? open_int_window(unit, count, array) : read_int_array_item(unit, count, nullptr);
}

static bool read_region_arrays(int32_t unit, bool wanted, RegionArrays* region)
{
    return read_int_item(unit, &region->face_count) &&
           open_array(unit, wanted, region->face_count, &region->types) &&
           open_array(unit, wanted, region->face_count, &region->elements) &&
           read_int_item(unit, &region->list_length) &&
           open_array(unit, wanted, region->list_length, &region->node_list);
}

static bool add_faces(const Caller& caller, int32_t count)
{
    if (count > INT32_MAX - *caller.face_count) return false;
    *caller.face_count += count;
    return true;
}

static bool read_region(int32_t unit, int32_t name_length, const Caller& caller)
{
    HeapArray<char> name;
    RegionArrays region{};
    int32_t boundary_type = 0;
    if (!read_region_name(unit, name_length, &name)) return false;
    if (region_name_is_empty(name.get())) return read_region_arrays(unit, false, &region);
    if (!take_name(caller, name.get(), &boundary_type)) return false;
    if (!read_region_arrays(unit, !caller.scan_only, &region)) return false;
    if (caller.scan_only) return add_faces(caller, region.face_count);
    return create_region_faces(caller, name.get(), boundary_type,
                               {region.face_count, region.list_length, &region.types,
                                &region.elements, &region.node_list});
}

static bool read_regions(int32_t unit, const Caller& caller)
{
    int32_t region_count = 0;
    int32_t name_length = 0;
    if (!read_region_counts(unit, &region_count, &name_length)) return false;
    for (int32_t i = 0; i < region_count; ++i) {
        if (!read_region(unit, name_length, caller)) return false;
    }
    return true;
}

bool read_fld_surface_geometry(int32_t unit, bool scan_only, int32_t name_capacity,
                               int32_t* name_count, char* names, int32_t* face_count,
                               int32_t wall_name_count, const HeapArray<char>* wall_names,
                               int32_t* wall_count, ElementWall* walls, int32_t wall_capacity)
{
    return read_regions(unit, {scan_only, name_capacity, name_count, names, face_count,
                               wall_name_count, wall_names, wall_count, walls, wall_capacity});
}

// ---- "LS_SurfaceGeometryArray": all regions in shared arrays ----

// All region names side by side, and room for one of them at a time.
struct NameTable {
    int32_t region_count;
    int32_t width;
    FixedString text;
    HeapArray<char> name;
};

// A region's name, trimmed; valid until the next call.
static const char* name_of_region(const NameTable& names, int32_t region)
{
    const int64_t begin = static_cast<int64_t>(region) * names.width;
    const int64_t length = std::clamp<int64_t>(names.text.gathered - begin, 0, names.width);
    if (length > 0) {
        memcpy(names.name.get(), names.text.characters.get() + begin, static_cast<size_t>(length));
    }
    trim_text(names.name.get(), static_cast<int32_t>(length));
    return names.name.get();
}

static bool read_name_table(int32_t unit, NameTable* names)
{
    if (!read_region_counts(unit, &names->region_count, &names->width)) return false;
    if (names->width < 0) {
        print_no_memory_for_boundaries();
        return false;
    }
    const int64_t total = static_cast<int64_t>(names->width) * names->region_count;
    if (total < 0 || total > INT32_MAX) return false;
    if (!read_fixed_string_item(unit, static_cast<int32_t>(total), &names->text)) return false;
    if (names->region_count < 1) return true;
    names->name = heap_array<char>(int64_t{std::min(names->width, names->text.gathered)} + 1);
    if (!names->name) print_no_memory_for_boundaries();
    return names->name != nullptr;
}

// Collects the names, or finds the boundary type of each region; regions without a name get none.
static bool take_names(const Caller& caller, const NameTable& names, int32_t* boundary_types)
{
    for (int32_t i = 0; i < names.region_count; ++i) {
        const char* const name = name_of_region(names, i);
        int32_t boundary_type = 0;
        if (!region_name_is_empty(name) && !take_name(caller, name, &boundary_type)) return false;
        if (!caller.scan_only) boundary_types[i] = boundary_type;
    }
    return true;
}

// The sum of counts that each say how many entries of a shared array belong to a region. False
// when one is negative or the sum does not fit an int32.
static bool sum_counts(const int32_t* counts, int32_t region_count, int32_t* sum)
{
    int64_t total = 0;
    for (int32_t i = 0; i < region_count; ++i) {
        if (counts[i] < 0) return false;
        total += counts[i];
        if (total > INT32_MAX) return false;
    }
    *sum = static_cast<int32_t>(total);
    return true;
}

struct SharedArrays {
    HeapArray<int32_t> face_counts;
    int32_t face_total;
    IntWindow types;
    IntWindow elements;
    HeapArray<int32_t> list_lengths;
    IntWindow node_list;
};

static bool read_shared_arrays(int32_t unit, bool wanted, int32_t region_count,
                               SharedArrays* shared)
{
    int32_t list_total = 0;
    return read_new_int_array_item(unit, region_count, &shared->face_counts) &&
           sum_counts(shared->face_counts.get(), region_count, &shared->face_total) &&
           open_array(unit, wanted, shared->face_total, &shared->types) &&
           open_array(unit, wanted, shared->face_total, &shared->elements) &&
           read_new_int_array_item(unit, region_count, &shared->list_lengths) &&
           sum_counts(shared->list_lengths.get(), region_count, &list_total) &&
           open_array(unit, wanted, list_total, &shared->node_list);
}

static bool pass_region(const RegionFaces& faces)
{
    return pass_values(faces.types, faces.count) && pass_values(faces.elements, faces.count) &&
           pass_values(faces.node_list, faces.list_length);
}

// Every region goes on in the shared arrays where the one before it ended.
static bool create_all_faces(const Caller& caller, const NameTable& names,
                             const int32_t* boundary_types, SharedArrays* shared)
{
    for (int32_t i = 0; i < names.region_count; ++i) {
        const RegionFaces faces{shared->face_counts[i], shared->list_lengths[i], &shared->types,
                                &shared->elements, &shared->node_list};
        const char* const name = name_of_region(names, i);
        const bool done = region_name_is_empty(name)
                              ? pass_region(faces)
                              : create_region_faces(caller, name, boundary_types[i], faces);
        if (!done) return false;
    }
    return true;
}

static bool read_region_table(int32_t unit, const Caller& caller)
{
    NameTable names{};
    HeapArray<int32_t> boundary_types;
    SharedArrays shared{};
    if (!read_name_table(unit, &names)) return false;
    // Every region has a face count still to come. A file that cannot hold them fails in any case,
    // and is not worth a warning for each of very many regions that it claims to have.
    if (names.region_count > SMALL_LENGTH &&
        !file_can_hold(unit, names.region_count, sizeof(int32_t))) {
        return false;
    }
    if (!caller.scan_only && names.region_count >= 1) {
        boundary_types = heap_array<int32_t>(names.region_count);
        if (!boundary_types) {
            print_no_memory_for_boundaries();
            return false;
        }
    }
    if (!take_names(caller, names, boundary_types.get())) return false;
    if (!read_shared_arrays(unit, !caller.scan_only, names.region_count, &shared)) return false;
    if (caller.scan_only) return add_faces(caller, shared.face_total);
    return create_all_faces(caller, names, boundary_types.get(), &shared);
}

bool read_fld_surface_geometry_array(int32_t unit, bool scan_only, int32_t name_capacity,
                                     int32_t* name_count, char* names, int32_t* face_count,
                                     int32_t wall_name_count, const HeapArray<char>* wall_names,
                                     int32_t* wall_count, ElementWall* walls, int32_t wall_capacity)
{
    return read_region_table(unit, {scan_only, name_capacity, name_count, names, face_count,
                                    wall_name_count, wall_names, wall_count, walls, wall_capacity});
}
