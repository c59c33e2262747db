#include "readers/cradle/grid_read.h"

#include "readers/cradle/array_windows.h"
#include "readers/cradle/dataset_files.h"
#include "readers/cradle/dataset_state.h"
#include "readers/cradle/diagnostics.h"
#include "readers/cradle/elements.h"
#include "readers/cradle/nodes.h"
#include "readers/cradle/region_names.h"
#include "readers/cradle/results_read.h"
#include "readers/cradle/section_index.h"
#include "readers/cradle/surface_geometry.h"
#include "readers/cradle/variables.h"
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

// `polar` as read_fld_nodes has it.
static bool read_nodes(int32_t unit, int32_t grid, int32_t node_count, float* coords,
                       HeapArray<float>* polar)
{
    int32_t nodes_read = 0;
    if (!go_to_section(unit, grid, "LS_Nodes", next_grid_section,
                       "FLD file error: node data not found.\n")) {
        return false;
    }
    if (!read_fld_nodes(unit, false, node_count, &nodes_read, coords, polar)) {
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
                                  SurfaceGeometryReader* read, const ReadRequest& request,
                                  Walls* walls)
{
    begin_lookup(name, grid);
    for (;;) {
        const Found found = go_to_next(unit, next_grid_section);
        if (found != Found::yes) return found == Found::no;
        int32_t name_count = 0;
        int32_t face_count = 0;
        if (!read(unit, false, 0, &name_count, nullptr, &face_count, walls->name_count,
                  walls->names.get(), &walls->face_count, walls->faces.get(), walls->face_capacity,
                  request)) {
            return false;
        }
    }
}

static bool read_surfaces(int32_t unit, int32_t grid, const ReadRequest& request, Walls* walls)
{
    if (!request.faces && !request.counts && walls->name_count == 0) return true;
    return read_surfaces_of_kind(unit, grid, "LS_SurfaceGeometry", read_fld_surface_geometry,
                                 request, walls) &&
           read_surfaces_of_kind(unit, grid, "LS_SurfaceGeometryArray",
                                 read_fld_surface_geometry_array, request, walls);
}

static bool read_cells(int32_t unit, int32_t grid, const ReadRequest& request, const Walls& walls)
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
           read_fld_elements(unit, false, material_count, materials.get(), &queue,
                             request.counts) &&
           section_is_alone(next_grid_section);
}

// Delivers boundary faces and cells of one grid.
static bool read_mesh(int32_t unit, int32_t grid, const ReadRequest& request)
{
    Walls walls;
    return (!request.cells || !request.wall_flags || prepare_walls(unit, grid, &walls)) &&
           read_surfaces(unit, grid, request, &walls) &&
           (!request.cells || read_cells(unit, grid, request, walls));
}

// ---- the files ----

// With a results file the first grid is the paired file's, any further one its own.
const char* file_of_grid(int32_t grid_number)
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

// ---- what is wanted ----

static bool wants_values(const ReadRequest& request)
{
    if (!request.rows) return true;
    return std::any_of(request.rows, request.rows + request.row_count,
                       [](const float* row) { return row != nullptr; });
}

static bool wants_vectors(const ReadRequest& request, int32_t grid)
{
    if (!request.rows) return grid_has_vectors(grid);
    for (int32_t i = 0; i < dataset_state.variable_section_count; ++i) {
        const char* const section = dataset_state.variable_sections[i].name;
        if (wants_variable(request, i) && is_vector_section(section)) return true;
    }
    return false;
}

static bool has_results_file()
{
    return dataset_state.results_file_name[0] != '\0';
}

// The coordinate system that a results file gives for the vectors of the grid, -1 when it gives
// none. It is asked for ahead when the nodes are read for such vectors only.
static bool peek_results_coordinate_system(int32_t unit, int32_t grid, int32_t* code)
{
    *code = -1;
    if (!has_results_file()) return true;
    begin_lookup("LS_CoordinateSystem", grid);
    const int64_t position = next_results_section();
    if (position < 0) return true;
    if (!open_results_file(unit, dataset_state.results_file_name)) return false;
    const bool done = nzn_seek(unit, position) == NZN_OK && read_coordinate_system(unit, code);
    close_current_unit();
    return done;
}

// ---- the read ----

// One call's arguments.
struct GridRead {
    int32_t unit;
    int32_t grid; // 0-based
    int32_t node_count;
    float* coords;
    const ReadRequest* request;
};

// Reads the nodes when they are wanted, or when vectors cannot be turned without them. Radius and
// angle as stored are kept only when vectors may need them.
static bool read_wanted_nodes(const GridRead& read, bool vectors, bool turned, GridNodes* nodes)
{
    float* coords = read.coords;
    if (!read.request->nodes) {
        if (!turned) return true;
        nodes->own_coords = heap_array<float>(int64_t{3} * read.node_count);
        if (!nodes->own_coords) {
            print_no_memory_for_items(read.node_count);
            return false;
        }
        coords = nodes->own_coords.get();
    }
    nodes->coords = coords;
    return read_nodes(read.unit, read.grid, read.node_count, coords,
                      vectors ? &nodes->polar : nullptr);
}

// Reads what the file of the grid has to give. It stays open.
static bool read_from_grid_file(const GridRead& read, GridNodes* nodes)
{
    const ReadRequest& request = *read.request;
    const bool vectors = wants_vectors(request, read.grid);
    int32_t results_system = -1;
    if (!request.nodes && vectors &&
        !peek_results_coordinate_system(read.unit, read.grid, &results_system)) {
        return false;
    }
    if (!open_grid_file(read.unit, file_of_grid(read.grid + 1))) return false;
    if (!request.counts && !read_grid_coordinate_system(read.unit, read.grid)) return false;
    const bool turned = vectors && (dataset_state.coordinate_system == CYLINDRICAL ||
                                    results_system == CYLINDRICAL);
    return read_wanted_nodes(read, vectors, turned, nodes) &&
           read_mesh(read.unit, read.grid, request);
}

// Reads the variables, which a results file holds when the dataset has one; otherwise they stand in
// the file of the grid.
static bool read_values(const GridRead& read, int32_t variable_count, float* values,
                        GridNodes* nodes)
{
    const char* const file =
        has_results_file() ? dataset_state.results_file_name : file_of_grid(read.grid + 1);
    const bool is_open = dataset_state.current_unit != NO_UNIT && !has_results_file();
    if (!is_open) close_current_unit();
    if (!is_open && !open_results_file(read.unit, file)) return false;
    const int32_t grid_number = read.grid + 1;
    int32_t error_flag = 1;
    read_results(&read.unit, &grid_number, &read.node_count, &variable_count, nodes, values,
                 *read.request, &error_flag);
    return error_flag == 0;
}

static bool needs_grid_file(const ReadRequest& request, int32_t grid)
{
    return request.nodes || request.cells || request.faces || wants_vectors(request, grid);
}

void fld_read_wanted(int32_t unit, int32_t grid_number, int32_t node_count, float* coords,
                     int32_t variable_count, float* values, const ReadRequest& request,
                     int32_t* error_flag)
{
    dataset_state.coordinate_system = -1;
    dataset_state.current_unit = NO_UNIT;
    const GridRead read{unit, grid_number - 1, node_count, coords, &request};
    GridNodes nodes{};
    const bool done = (!needs_grid_file(request, read.grid) || read_from_grid_file(read, &nodes)) &&
                      (!wants_values(request) || read_values(read, variable_count, values, &nodes));
    close_dataset_unit(unit);
    *error_flag = done ? 0 : 1;
}

void fld_read_data(const int32_t* unit, const int32_t* grid_number, const int32_t* node_count,
                   float* coords, const int32_t* variable_count, float* values, int32_t* error_flag)
{
    *error_flag = 1;
    // No grid has a number below 1; the largest one below it would have no predecessor.
    fld_read_wanted(*unit, std::max(*grid_number, 0), *node_count, coords, *variable_count, values,
                    {}, error_flag);
}
