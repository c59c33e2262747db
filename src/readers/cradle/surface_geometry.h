// "LS_SurfaceGeometry" and "LS_SurfaceGeometryArray": the boundary faces of a grid, by region.
#pragma once

#include "readers/cradle/heap_array.h"
#include "readers/cradle/read_request.h"
#include "readers/cradle/wall_records.h"

#include <cstdint>

// Both readers do the same on their layouts.
// In the scan: append the region names to `names` (`name_capacity` rows of 80 bytes, padded with
// NUL; `name_count` also counts those without a row) and add the faces to `face_count`.
// In load mode: create the triangles and quadrilaterals in the host, and append those of regions
// that `wall_names`, in ascending order, lists to `walls`, which has room for `wall_capacity`.
using SurfaceGeometryReader = bool(int32_t unit, bool scan_only, int32_t name_capacity,
                                   int32_t* name_count, char* names, int32_t* face_count,
                                   int32_t wall_name_count, const HeapArray<char>* wall_names,
                                   int32_t* wall_count, ElementWall* walls, int32_t wall_capacity,
                                   const ReadRequest& request);

SurfaceGeometryReader read_fld_surface_geometry;
SurfaceGeometryReader read_fld_surface_geometry_array;
