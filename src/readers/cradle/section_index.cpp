#include "readers/cradle/section_index.h"

#include "readers/cradle/ale.h"
#include "readers/cradle/diagnostics.h"
#include "readers/cradle/elements.h"
#include "readers/cradle/item_reads.h"
#include "readers/cradle/nodes.h"
#include "readers/cradle/region_names.h"
#include "readers/cradle/surface_geometry.h"
#include "readers/cradle/variables.h"
#include "readers/cradle/volume_geometry.h"
#include "ui/util/nzn_io.h"

#include <algorithm>
#include <cstring>

// ---- what the walk does with each kind of section ----

// The caller's arguments.
struct Scan {
    int32_t unit;
    int32_t grid;
    int32_t* node_count;
    int32_t boundary_capacity;
    int32_t* boundary_count;
    char* boundary_names;
    int32_t variable_capacity;
    int32_t* variable_count;
    char* variable_names;
    VariableSection* variable_sections;
};

static bool scan_coordinate_system(const Scan& scan, const char* /*name*/)
{
    int32_t code = 0;
    return read_coordinate_system(scan.unit, &code) && check_coordinate_system(code);
}

static bool scan_elements(const Scan& scan, const char* /*name*/)
{
    return read_fld_elements(scan.unit, true, 0, nullptr, nullptr, nullptr);
}

static bool scan_element_materials(const Scan& scan, const char* /*name*/)
{
    int32_t material_count = 0;
    HeapArray<uint8_t> materials;
    return read_fld_element_materials(scan.unit, true, &material_count, &materials);
}

static bool scan_nodes(const Scan& scan, const char* /*name*/)
{
    return read_fld_nodes(scan.unit, true, 0, scan.node_count, nullptr, nullptr);
}

static bool scan_region_names(const Scan& scan, const char* /*name*/)
{
    if (!dataset_state.wall_region_counts) { // never: the scan begins by making both counts
        print_diagnostic("Data reader error: not enough dynamic memory for walls.\n");
        return false;
    }
    return read_fld_region_names(scan.unit, true, &dataset_state.wall_region_counts[scan.grid],
                                 nullptr, 0);
}

template <SurfaceGeometryReader* read>
static bool scan_surfaces(const Scan& scan, const char* /*name*/)
{
    if (!dataset_state.faces_per_grid) { // never, likewise
        print_diagnostic("Data reader error: not enough dynamic memory for face count.\n");
        return false;
    }
    int32_t wall_count = 0;
    return read(scan.unit, true, scan.boundary_capacity, scan.boundary_count, scan.boundary_names,
                &dataset_state.faces_per_grid[scan.grid], 0, nullptr, &wall_count, nullptr, 0, {});
}

template <bool (*read)(int32_t)> static bool scan_whole(const Scan& scan, const char* /*name*/)
{
    return read(scan.unit);
}

constexpr int32_t PREFIX_LENGTH = 10; // of "LS_Scalar:" and "LS_Vector:"

// Row i of the sections belongs to variable i: a section has a row exactly when its name has one.
// The rows that a vector cannot fill are left empty, and nothing follows them.
static void store_variable_section(const Scan& scan, const char* name, int32_t first, int32_t rows)
{
    const int64_t end = int64_t{first} + rows;
    for (int64_t row = first; row < std::min<int64_t>(end, scan.variable_capacity); ++row) {
        scan.variable_sections[row].name[0] = '\0';
    }
    if (end > scan.variable_capacity) return;
    memcpy(scan.variable_sections[first].name, name, strlen(name) + 1);
}

static bool scan_scalar(const Scan& scan, const char* name)
{
    const int32_t first = *scan.variable_count;
    const bool read =
        read_scalar_section(scan.unit, true, name + PREFIX_LENGTH, scan.variable_capacity, 0,
                            scan.variable_count, scan.variable_names, nullptr);
    if (read) store_variable_section(scan, name, first, 1);
    return read;
}

static bool scan_vector(const Scan& scan, const char* name)
{
    const int32_t first = *scan.variable_count;
    const bool read =
        read_vector_section(scan.unit, true, name + PREFIX_LENGTH, scan.variable_capacity, 0,
                            nullptr, scan.variable_count, scan.variable_names, nullptr);
    if (read) store_variable_section(scan, name, first, 3);
    return read;
}

// The meaning of its three integers is not known.
static bool scan_stream_coc(const Scan& scan, const char* /*name*/)
{
    int32_t not_interpreted = 0;
    return read_int_item(scan.unit, &not_interpreted) && read_int_array_item(scan.unit, 3, nullptr);
}

// ---- the kinds of section ----

struct SectionKind {
    const char* name;
    bool is_prefix;
    SectionTable* tables[2]; // where mode 0 and mode 1 index it; null: nowhere
    bool (*scan)(const Scan& scan, const char* name);
};

static SectionTable* const grids = &dataset_state.grid_sections;
static SectionTable* const results = &dataset_state.results_sections;

static const SectionKind section_kinds[] = {
    {"LS_CoordinateSystem", false, {results, grids}, scan_coordinate_system},
    {"LS_Elements", false, {grids, grids}, scan_elements},
    {"LS_MatOfElements", false, {grids, grids}, scan_element_materials},
    {"LS_Nodes", false, {grids, grids}, scan_nodes},
    {"LS_RegionName&Type", false, {grids, grids}, scan_region_names},
    {"LS_SurfaceGeometry", false, {grids, grids}, scan_surfaces<read_fld_surface_geometry>},
    {"LS_SurfaceGeometryArray",
     false,
     {grids, grids},
     scan_surfaces<read_fld_surface_geometry_array>},
    {"LS_VolumeGeometry", false, {grids, grids}, scan_whole<read_volume_geometry_section>},
    {"LS_VolumeGeometryArray",
     false,
     {grids, grids},
     scan_whole<read_volume_geometry_array_section>},
    {"LS_ALE", false, {results, nullptr}, scan_whole<read_ale_section>},
    {"LS_Scalar:", true, {results, nullptr}, scan_scalar},
    {"LS_Vector:", true, {results, nullptr}, scan_vector},
    {"LS_STREAMcoc", false, {nullptr, nullptr}, scan_stream_coc},
};

static const SectionKind* find_section_kind(const char* name)
{
    for (const SectionKind& kind : section_kinds) {
        if (kind.is_prefix ? strncmp(name, kind.name, strlen(kind.name)) == 0
                           : strcmp(name, kind.name) == 0) {
            return &kind;
        }
    }
    return nullptr;
}

// ---- the walk ----

static bool index_section(SectionTable* table, int32_t unit, int32_t grid, const char* name)
{
    if (table->count >= MAX_SECTIONS) {
        print_diagnostic("Too many data sections in FLD file.\n");
        return false;
    }
    SectionEntry* entry = &table->entries[table->count];
    entry->position = nzn_tell(unit);
    if (entry->position < 0) {
        print_diagnostic("Error: unable to get file position in FLD file.\n");
        return false;
    }
    entry->grid = grid;
    memcpy(entry->name, name, sizeof entry->name);
    ++table->count;
    return true;
}

static bool scan_section(const Scan& scan, uint8_t mode, const char* name)
{
    const SectionKind* kind = find_section_kind(name);
    if (!kind) return skip_item_list(scan.unit);
    SectionTable* const table = kind->tables[mode];
    if (table && !index_section(table, scan.unit, scan.grid, name)) return false;
    return kind->scan(scan, name) && read_item_end(scan.unit);
}

bool opens_grid(const char* name)
{
    return strncmp(name, "OverlapStart_", strlen("OverlapStart_")) == 0;
}

bool ends_grids(const char* name)
{
    return strcmp(name, "OverlapEnd") == 0;
}

bool first_grid_follows(int32_t unit)
{
    char name[SECTION_NAME_LENGTH + 1];
    return read_name_record(unit, name) && strcmp(name, "OverlapStart_0") == 0;
}

bool scan_grid_sections(uint8_t mode, int32_t unit, int32_t grid, int32_t* node_count,
                        int32_t boundary_capacity, int32_t* boundary_count, char* boundary_names,
                        int32_t variable_capacity, int32_t* variable_count, char* variable_names,
                        uint8_t* end_flag, VariableSection* variable_sections)
{
    *boundary_count = 0;
    *variable_count = 0;
    *end_flag = 0;
    const Scan scan{unit,
                    grid,
                    node_count,
                    boundary_capacity,
                    boundary_count,
                    boundary_names,
                    variable_capacity,
                    variable_count,
                    variable_names,
                    variable_sections};
    char name[SECTION_NAME_LENGTH + 1] = "";
    // A file may stop after any section; its last grid then ends there.
    while (read_name_record(unit, name)) {
        if (opens_grid(name)) return true;
        if (ends_grids(name)) {
            *end_flag = 1;
            return true;
        }
        if (!scan_section(scan, mode, name)) return false;
    }
    return true;
}

// ---- lookup ----

char lookup_name[SECTION_NAME_LENGTH + 1];
int32_t lookup_grid;
int32_t grid_cursor = -1;
int32_t results_cursor = -1;

void begin_lookup(const char* name, int32_t grid)
{
    const size_t length = strnlen(name, SECTION_NAME_LENGTH);
    memcpy(lookup_name, name, length);
    lookup_name[length] = '\0';
    lookup_grid = grid;
    grid_cursor = -1;
    results_cursor = -1;
}

static int64_t next_section(const SectionTable& table, int32_t* cursor)
{
    while (*cursor < table.count) {
        ++*cursor;
        if (*cursor >= table.count) break;
        const SectionEntry& entry = table.entries[*cursor];
        if (entry.grid == lookup_grid && strcmp(entry.name, lookup_name) == 0) {
            return entry.position;
        }
    }
    return -1;
}

int64_t next_grid_section()
{
    return next_section(*grids, &grid_cursor);
}

int64_t next_results_section()
{
    return next_section(*results, &results_cursor);
}

bool section_is_alone(SectionLookup* next)
{
    if (next() < 0) return true;
    print_diagnostic("Error: grid %d has more than 1 %s section.\n", lookup_grid + 1, lookup_name);
    return false;
}

bool grid_has_vectors(int32_t grid)
{
    SectionEntry* const end = results->entries + results->count;
    return std::any_of(results->entries, end, [grid](const SectionEntry& entry) {
        return entry.grid == grid && is_vector_section(entry.name);
    });
}
