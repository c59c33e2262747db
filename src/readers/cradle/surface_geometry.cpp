#include "readers/cradle/surface_geometry.h"

#include "readers/cradle/item_reads.h"
#include "readers/cradle/region_names.h"
#include "readers/cradle/surface_faces.h"

// Type codes, element numbers and node list of one region; opened only when they are wanted.
struct RegionArrays {
    int32_t face_count;
    IntWindow types;
    IntWindow elements;
    int32_t list_length;
    IntWindow node_list;
};

static bool read_region_arrays(int32_t unit, const FaceUse& use, RegionArrays* region)
{
    const bool all = uses_nodes(use);
    return read_int_item(unit, &region->face_count) &&
           open_face_array(unit, all || use.count, region->face_count, &region->types) &&
           open_face_array(unit, all, region->face_count, &region->elements) &&
           read_int_item(unit, &region->list_length) &&
           open_face_array(unit, all, region->list_length, &region->node_list);
}

static bool read_region(int32_t unit, int32_t name_length, const SurfaceCaller& caller)
{
    HeapArray<char> name;
    RegionArrays region{};
    int32_t boundary_type = 0;
    FaceUse use{};
    if (!read_region_name(unit, name_length, &name)) return false;
    if (region_name_is_empty(name.get())) return read_region_arrays(unit, use, &region);
    if (!take_region_name(caller, name.get(), &boundary_type)) return false;
    if (!caller.scan_only) use = use_of_faces(caller, name.get(), boundary_type);
    if (!read_region_arrays(unit, use, &region)) return false;
    if (caller.scan_only) return add_faces(caller, region.face_count);
    if (!uses_nodes(use) && !use.count) return true;
    return take_region_faces(caller, use, boundary_type,
                             {region.face_count, region.list_length, &region.types,
                              &region.elements, &region.node_list});
}

static bool read_regions(int32_t unit, const SurfaceCaller& caller)
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
                               int32_t* wall_count, ElementWall* walls, int32_t wall_capacity,
                               const ReadRequest& request)
{
    return read_regions(unit,
                        {scan_only, name_capacity, name_count, names, face_count, wall_name_count,
                         wall_names, wall_count, walls, wall_capacity, &request});
}
