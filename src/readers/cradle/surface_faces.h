// What both layouts of boundary regions share: their names, and the faces of one region.
#pragma once

#include "readers/cradle/array_windows.h"
#include "readers/cradle/heap_array.h"
#include "readers/cradle/read_request.h"
#include "readers/cradle/wall_records.h"

#include <cstdint>

// The arguments of a surface reader. In the scan the first group counts, in load mode the second.
struct SurfaceCaller {
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

    const ReadRequest* request;
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

// Collects the name in the scan; in load mode finds its boundary type, the 1-based position among
// the dataset's boundary names, and prints when it is not there.
[[nodiscard]] bool take_region_name(const SurfaceCaller& caller, const char* name,
                                    int32_t* boundary_type);

// What becomes of a region's faces in load mode.
struct FaceUse {
    bool create; // in the host
    bool record; // as walls
    bool count;
};
[[nodiscard]] FaceUse use_of_faces(const SurfaceCaller& caller, const char* name,
                                   int32_t boundary_type);

// Whether the arrays behind the types are used as well.
[[nodiscard]] inline bool uses_nodes(const FaceUse& use)
{
    return use.create || use.record;
}

// Adds a region's faces to those of the grid, which the scan counts.
[[nodiscard]] bool add_faces(const SurfaceCaller& caller, int32_t count);

// One array of the section: opened when its values are wanted, otherwise passed over.
[[nodiscard]] bool open_face_array(int32_t unit, bool wanted, int32_t count, IntWindow* array);

// Creates the region's faces in the host, records them, or counts them.
[[nodiscard]] bool take_region_faces(const SurfaceCaller& caller, const FaceUse& use,
                                     int32_t boundary_type, const RegionFaces& faces);
