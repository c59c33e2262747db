#include "readers/cradle/item_reads.h"
#include "readers/cradle/item_records.h"
#include "readers/cradle/name_rows.h"
#include "readers/cradle/region_names.h"
#include "readers/cradle/surface_faces.h"
#include "readers/cradle/surface_geometry.h"

#include <algorithm>
#include <cstring>

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

// Of more regions than the file can hold counts for: all that have a character in it, and some of
// those that have none, which are not worth a warning each.
static int32_t regions_worth_a_look(const NameTable& names)
{
    const int64_t width = std::max(names.width, 1);
    const int64_t named = (names.text.gathered + width - 1) / width;
    return static_cast<int32_t>(std::min<int64_t>(named + SMALL_LENGTH, names.region_count));
}

// Collects the names, or finds the boundary type of each region; regions without a name get none.
static bool take_names(const SurfaceCaller& caller, const NameTable& names, int32_t* boundary_types)
{
    for (int32_t i = 0; i < names.region_count; ++i) {
        const char* const name = name_of_region(names, i);
        int32_t boundary_type = 0;
        if (!region_name_is_empty(name) && !take_region_name(caller, name, &boundary_type))
            return false;
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

static bool read_shared_arrays(int32_t unit, const FaceUse& use, int32_t region_count,
                               SharedArrays* shared)
{
    const bool all = uses_nodes(use);
    int32_t list_total = 0;
    return read_new_int_array_item(unit, region_count, &shared->face_counts) &&
           sum_counts(shared->face_counts.get(), region_count, &shared->face_total) &&
           open_face_array(unit, all || use.count, shared->face_total, &shared->types) &&
           open_face_array(unit, all, shared->face_total, &shared->elements) &&
           read_new_int_array_item(unit, region_count, &shared->list_lengths) &&
           sum_counts(shared->list_lengths.get(), region_count, &list_total) &&
           open_face_array(unit, all, list_total, &shared->node_list);
}

static bool pass_region(const FaceUse& use, const RegionFaces& faces)
{
    if (!pass_values(faces.types, faces.count)) return false;
    return use.count || (pass_values(faces.elements, faces.count) &&
                         pass_values(faces.node_list, faces.list_length));
}

// What becomes of the faces of any region.
static FaceUse use_of_all_faces(const SurfaceCaller& caller, const NameTable& names,
                                const int32_t* boundary_types)
{
    const ReadRequest& request = *caller.request;
    FaceUse all{request.faces && !request.boundaries && !request.counts, false,
                request.counts != nullptr};
    for (int32_t i = 0; i < names.region_count && !(all.create && all.record); ++i) {
        if (boundary_types[i] == 0) continue; // it has no name
        const FaceUse use = use_of_faces(caller, name_of_region(names, i), boundary_types[i]);
        all.create |= use.create;
        all.record |= use.record;
    }
    return all;
}

// Every region goes on in the shared arrays where the one before it ended.
static bool take_all_faces(const SurfaceCaller& caller, const FaceUse& all, const NameTable& names,
                           const int32_t* boundary_types, SharedArrays* shared)
{
    for (int32_t i = 0; i < names.region_count; ++i) {
        const RegionFaces faces{shared->face_counts[i], shared->list_lengths[i], &shared->types,
                                &shared->elements, &shared->node_list};
        const char* const name = name_of_region(names, i);
        FaceUse use{};
        if (!region_name_is_empty(name)) use = use_of_faces(caller, name, boundary_types[i]);
        const bool done = uses_nodes(use) || use.count
                              ? take_region_faces(caller, use, boundary_types[i], faces)
                              : pass_region(all, faces);
        if (!done) return false;
    }
    return true;
}

static bool read_region_table(int32_t unit, const SurfaceCaller& caller)
{
    NameTable names{};
    HeapArray<int32_t> boundary_types;
    SharedArrays shared{};
    if (!read_name_table(unit, &names)) return false;
    // Every region has a face count still to come. Without them the read fails, but not before the
    // names that the file does hold were taken.
    const bool is_backed = names.region_count <= SMALL_LENGTH ||
                           file_can_hold(unit, names.region_count, sizeof(int32_t));
    if (!is_backed) names.region_count = regions_worth_a_look(names);
    if (!caller.scan_only && names.region_count >= 1) {
        boundary_types = heap_array<int32_t>(names.region_count);
        if (!boundary_types) {
            print_no_memory_for_boundaries();
            return false;
        }
    }
    if (!take_names(caller, names, boundary_types.get()) || !is_backed) return false;
    FaceUse all{};
    if (!caller.scan_only) all = use_of_all_faces(caller, names, boundary_types.get());
    if (!read_shared_arrays(unit, all, names.region_count, &shared)) return false;
    if (caller.scan_only) return add_faces(caller, shared.face_total);
    if (!uses_nodes(all) && !all.count) return true;
    return take_all_faces(caller, all, names, boundary_types.get(), &shared);
}

bool read_fld_surface_geometry_array(int32_t unit, bool scan_only, int32_t name_capacity,
                                     int32_t* name_count, char* names, int32_t* face_count,
                                     int32_t wall_name_count, const HeapArray<char>* wall_names,
                                     int32_t* wall_count, ElementWall* walls, int32_t wall_capacity,
                                     const ReadRequest& request)
{
    return read_region_table(unit, {scan_only, name_capacity, name_count, names, face_count,
                                    wall_name_count, wall_names, wall_count, walls, wall_capacity,
                                    &request});
}
