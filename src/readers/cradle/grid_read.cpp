#include "readers/cradle/grid_read.h"

#include "readers/cradle/dataset_files.h"
#include "readers/cradle/dataset_state.h"
#include "readers/cradle/diagnostics.h"
#include "readers/cradle/elements.h"
#include "readers/cradle/nodes.h"
#include "readers/cradle/region_names.h"
#include "readers/cradle/results_read.h"
#include "readers/cradle/section_index.h"
#include "readers/cradle/surface_geometry.h"
#include "readers/cradle/wall_records.h"
#include "ui/util/nzn_io.h"

#include <algorithm>
#include <cstring>

// ---- finding sections ----

// Goes to the body of the next section of the lookup; false also when there is none.
enum class Found { yes, no, cannot_seek };

static Found go_to_next(int32_t unit, SectionLookup* next)
{
    const int64_t position = next();
    if (position < 0) return Found::no;
    return nzn_seek(unit, position) == NZN_OK ? Found::yes : Found::cannot_seek;
}

// Goes to the grid's section of this name; prints the message `missing` when there is none.
static bool go_to_section(int32_t unit, int32_t grid, const char* name, SectionLookup* next,
                          const char* missing)
{
    begin_lookup(name, grid);
    const Found found = go_to_next(unit, next);
    if (found == Found::no) print_diagnostic("%s", missing);
    return found == Found::yes;
}

// ---- the steps of reading a grid ----

static bool read_grid_coordinate_system(int32_t unit, int32_t grid)
{
    const bool is_paired = grid == 0 && dataset_state.paired_grid_file_name[0] != '\0';
    SectionLookup* const next = is_paired ? next_grid_section : next_results_section;
    const char* const missing = is_paired
                                    ? "FLD file error: grid coordinate system data not found.\n"
                                    : "FLD file error: coordinate system data not found.\n";
    if (!go_to_section(unit, grid, "LS_CoordinateSystem", next, missing)) return false;
    if (!read_coordinate_system(unit, &dataset_state.coordinate_system)) return false;
    if (!coordinate_system_is_valid(dataset_state.coordinate_system)) {
        print_diagnostic("Error: grid %d has invalid coordinate system: %d\n", grid + 1,
                         dataset_state.coordinate_system);
        return false;
    }
    return section_is_alone(next);
}

// Radius and angle as stored are kept only for a grid whose vectors will need them.
static bool read_nodes(int32_t unit, int32_t grid, int32_t node_count, float* coords,
                       HeapArray<float>* polar)
{
    int32_t nodes_read = 0;
    if (!go_to_section(unit, grid, "LS_Nodes", next_grid_section,
                       "FLD file error: node data not found.\n")) {
        return false;
    }
    if (!read_fld_nodes(unit, false, node_count, &nodes_read, coords,
                        grid_has_vectors(grid) ? polar : nullptr)) {
        return false;
    }
    if (!section_is_alone(next_grid_section)) return false;
    if (nodes_read == node_count) return true; // always: any other count has failed before
    print_diagnostic("Data reader error: node count %d does not match query count %d\n", nodes_read,
                     node_count);
    return false;
}

// The grid's wall regions and the faces that belong to them.
struct Walls {
    OwnerArray<HeapArray<char>> names;
    int32_t name_count = 0;
    HeapArray<ElementWall> faces;
    int32_t face_count = 0;
    int32_t face_capacity = 0;
};

static bool read_wall_names(int32_t unit, int32_t grid, int32_t expected, Walls* walls)
{
    walls->names = owner_array<HeapArray<char>>(expected);
    if (!walls->names) {
        print_diagnostic("Data reader error: not enough dynamic memory for wall names.\n");
        return false;
    }
    begin_lookup("LS_RegionName&Type", grid);
    Found found = Found::no;
    while ((found = go_to_next(unit, next_grid_section)) == Found::yes) {
        if (!read_fld_region_names(unit, false, &walls->name_count, walls->names.get(), expected)) {
            return false;
        }
    }
    if (found == Found::cannot_seek) return false;
    if (walls->name_count == expected) return true;
    print_diagnostic("Data reader error: grid %d wall region count %d does not match query count "
                     "%d\n",
                     grid + 1, walls->name_count, expected);
    return false;
}

static bool prepare_walls(int32_t unit, int32_t grid, Walls* walls)
{
    const int32_t expected = dataset_state.wall_region_counts[grid];
    if (expected < 1) return true;
    if (!read_wall_names(unit, grid, expected, walls)) return false;
    std::sort(walls->names.get(), walls->names.get() + walls->name_count,
              [](const HeapArray<char>& a, const HeapArray<char>& b) {
                  return strcmp(a.get(), b.get()) < 0;
              });
    walls->face_capacity = dataset_state.faces_per_grid[grid];
    walls->faces = heap_array<ElementWall>(walls->face_capacity);
    if (walls->faces) return true;
    print_diagnostic("Data reader error: not enough dynamic memory for element walls.\n");
    return false;
}

static bool read_surfaces_of_kind(int32_t unit, int32_t grid, const char* name,
                                  SurfaceGeometryReader* read, Walls* walls)
{
    begin_lookup(name, grid);
    for (;;) {
        const Found found = go_to_next(unit, next_grid_section);
        if (found != Found::yes) return found == Found::no;
        int32_t name_count = 0;
        int32_t face_count = 0;
        if (!read(unit, false, 0, &name_count, nullptr, &face_count, walls->name_count,
                  walls->names.get(), &walls->face_count, walls->faces.get(),
                  walls->face_capacity)) {
            return false;
        }
    }
}

static bool read_surfaces(int32_t unit, int32_t grid, Walls* walls)
{
    return read_surfaces_of_kind(unit, grid, "LS_SurfaceGeometry", read_fld_surface_geometry,
                                 walls) &&
           read_surfaces_of_kind(unit, grid, "LS_SurfaceGeometryArray",
                                 read_fld_surface_geometry_array, walls);
}

static bool read_cells(int32_t unit, int32_t grid, const Walls& walls)
{
    int32_t material_count = 0;
    HeapArray<uint8_t> materials;
    if (!go_to_section(unit, grid, "LS_MatOfElements", next_grid_section,
                       "FLD file error: element material data not found.\n") ||
        !read_fld_element_materials(unit, false, &material_count, &materials)) {
        return false;
    }
    if (!materials) { // never: they were read
        print_diagnostic("Error: null array of element materials.\n");
        return false;
    }
    if (!section_is_alone(next_grid_section)) return false;
    WallQueue queue;
    fill_wall_queue(walls.faces.get(), walls.face_count, &queue);
    return go_to_section(unit, grid, "LS_Elements", next_grid_section,
                         "FLD file error: element data not found.\n") &&
           read_fld_elements(unit, false, material_count, materials.get(), &queue) &&
           section_is_alone(next_grid_section);
}

// Delivers coordinates, boundary faces and cells of one grid; `polar` as read_fld_nodes has it.
static void read_grid(int32_t unit, int32_t grid_number, int32_t node_count, float* coords,
                      HeapArray<float>* polar, int32_t* error_flag)
{
    const int32_t grid = grid_number - 1;
    Walls walls;
    *error_flag = 1;
    if (read_grid_coordinate_system(unit, grid) &&
        read_nodes(unit, grid, node_count, coords, polar) && prepare_walls(unit, grid, &walls) &&
        read_surfaces(unit, grid, &walls) && read_cells(unit, grid, walls)) {
        *error_flag = 0;
    }
}

// ---- the data callback ----

// With a results file the first grid is the paired file's, any further one its own.
static const char* file_of_grid(int32_t grid_number)
{
    const bool has_pair = dataset_state.paired_grid_file_name[0] != '\0';
    const bool has_results = dataset_state.results_file_name[0] != '\0';
    if (grid_number == 1) {
        return has_pair ? dataset_state.paired_grid_file_name : dataset_state.grid_file_name;
    }
    return has_results ? dataset_state.results_file_name : dataset_state.grid_file_name;
}

static bool open_grid_file(int32_t unit, const char* name)
{
    const int32_t status = open_dataset_unit(unit, name);
    if (status == NZN_CANNOT_OPEN) print_diagnostic("Cannot open grid file: %s\n", name);
    if (status == NZN_NOT_UNFORMATTED) print_diagnostic("Grid file is not unformatted: %s\n", name);
    return status == NZN_OK;
}

static bool open_results_file(int32_t unit, const char* name)
{
    const int32_t status = open_dataset_unit(unit, name);
    if (status == NZN_CANNOT_OPEN) print_diagnostic("Cannot open results file: %s\n", name);
    if (status == NZN_NOT_UNFORMATTED) {
        print_diagnostic("Results file is not unformatted: %s\n", name);
    }
    return status == NZN_OK;
}

// Reads the grid and then its variables, which a results file holds when the dataset has one;
// otherwise they stand in the file that is open already.
static void read_grid_and_results(int32_t unit, int32_t grid_number, int32_t node_count,
                                  float* coords, int32_t variable_count, float* values,
                                  int32_t* error_flag)
{
    GridNodes nodes{coords, nullptr};
    read_grid(unit, grid_number, node_count, coords, &nodes.polar, error_flag);
    if (*error_flag) return;
    if (dataset_state.results_file_name[0] != '\0') {
        close_current_unit();
        if (!open_results_file(unit, dataset_state.results_file_name)) {
            *error_flag = 1;
            return;
        }
    }
    read_results(&unit, &grid_number, &node_count, &variable_count, &nodes, values, error_flag);
}

void fld_read_data(const int32_t* unit, const int32_t* grid_number, const int32_t* node_count,
                   float* coords, const int32_t* variable_count, float* values, int32_t* error_flag)
{
    *error_flag = 1;
    dataset_state.coordinate_system = -1;
    dataset_state.current_unit = NO_UNIT;
    // No grid has a number below 1; the largest one below it would have no predecessor.
    const int32_t number = std::max(*grid_number, 0);
    const int32_t file_unit = *unit;
    if (!open_grid_file(file_unit, file_of_grid(number))) return;
    read_grid_and_results(file_unit, number, *node_count, coords, *variable_count, values,
                          error_flag);
    close_dataset_unit(file_unit);
}
