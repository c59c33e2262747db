#include "readers/cradle/elements.h"

#include "readers/cradle/array_windows.h"
#include "readers/cradle/dataset_state.h"
#include "readers/cradle/diagnostics.h"
#include "readers/cradle/host_services.h"
#include "readers/cradle/item_reads.h"

#include <algorithm>

constexpr int32_t WALL_FACE = 7; // the host's face flag for a wall; any other face has 0
constexpr int32_t MAX_NODES = 8;
constexpr int32_t MAX_FACES = 6;

// ---- element types ----

struct ElementType {
    int32_t code;
    int32_t shape; // as GridCounts has it; -1 for the flat types
    int32_t node_count;
    int32_t face_count;            // 0 for the flat types, which are never created
    int32_t host_order[MAX_NODES]; // for each host position the position in the file's node list
    uint32_t faces[MAX_FACES];     // for each face its nodes, bit k for host position k
    HostCreateCell* create;
};

static constexpr ElementType element_types[] = {
    {23, -1, 3, 0, {}, {}, nullptr}, // triangle
    {24, -1, 4, 0, {}, {}, nullptr}, // quadrilateral
    {34, 0, 4, 4, {0, 1, 2, 3}, {7, 14, 13, 11}, host_create_tet},
    {35, 1, 5, 5, {0, 1, 2, 3, 4}, {15, 22, 28, 25, 19}, host_create_pyramid},
    {36, 2, 6, 5, {0, 3, 4, 1, 5, 2}, {15, 51, 60, 41, 22}, host_create_prism},
    {38, 3, 8, 6, {0, 1, 3, 2, 4, 5, 7, 6}, {85, 170, 15, 240, 51, 204}, host_create_hex},
};

static const ElementType* find_element_type(int32_t code)
{
    for (const ElementType& type : element_types) {
        if (type.code == code) return &type;
    }
    return nullptr;
}

// ---- wall faces ----

// A wall is recognised by its set of nodes, whatever their order. There are no branches, because
// which nodes match is unpredictable.
static uint32_t match_mask(const int32_t* nodes, int32_t node_count, const int32_t (&wall)[4])
{
    uint32_t mask = 0;
    for (int32_t k = 0; k < node_count; ++k) {
        const bool is_wall_node = (nodes[k] == wall[0]) | (nodes[k] == wall[1]) |
                                  (nodes[k] == wall[2]) | (nodes[k] == wall[3]);
        mask |= static_cast<uint32_t>(is_wall_node) << k;
    }
    return mask;
}

// The face with these nodes, of which no shape has two; -1 when there is none.
static int32_t find_face(const ElementType& type, uint32_t mask)
{
    int32_t found = -1;
    for (int32_t face = 0; face < type.face_count; ++face) {
        found = type.faces[face] == mask ? face : found;
    }
    return found;
}

static void flag_wall_face(const ElementType& type, const int32_t* nodes, const ElementWall& wall,
                           int32_t* face_flags)
{
    const int32_t face = find_face(type, match_mask(nodes, type.node_count, wall.nodes));
    if (face >= 0) {
        face_flags[face] = WALL_FACE;
    } else {
        print_diagnostic("Data reader warning: element wall not found in element.\n");
    }
}

// ---- cells ----

static bool create_cell(const ElementType& type, int32_t element, const int32_t* file_nodes,
                        uint32_t shift, WallQueue* walls)
{
    if (type.face_count == 0) {
        if (!take_wall(walls, element)) return true;
        print_diagnostic("Data reader error: element has no face count.\n");
        return false;
    }
    // Node numbers of the file become 1-based. Unsigned, since numbers and bias may be anything.
    int32_t nodes[MAX_NODES];
    int32_t face_flags[MAX_FACES] = {};
    for (int32_t k = 0; k < type.node_count; ++k) {
        nodes[k] =
            static_cast<int32_t>(static_cast<uint32_t>(file_nodes[type.host_order[k]]) + shift);
    }
    while (const ElementWall* const wall = take_wall(walls, element)) {
        flag_wall_face(type, nodes, *wall, face_flags);
    }
    const int64_t generation = dataset_state.generation;
    if (type.create(face_flags, nodes)) return dataset_state.generation == generation;
    print_diagnostic("Data reader error: not enough dynamic memory for cells.\n");
    return false;
}

static bool material_is_set(const uint8_t* materials, int32_t element)
{
    return (materials[element / 8] >> (element % 8) & 1) != 0;
}

// The section's two arrays, and which elements to create.
struct ElementList {
    int32_t element_count;
    IntWindow types;
    const uint8_t* materials;
    int32_t list_length;
    IntWindow node_list;
};

// The type of the next element, mostly that of the last one; null when it cannot be read or is
// unknown.
static const ElementType* take_type(ElementList* list, int32_t element, const ElementType* last)
{
    const int32_t* const code = take_values(&list->types, 1);
    if (!code || (last && last->code == *code)) return code ? last : nullptr;
    const ElementType* const type = find_element_type(*code);
    if (!type) {
        print_diagnostic("FLD file error: element %d has unknown type %d\n", element + 1, *code);
    }
    return type;
}

static bool count_cells(ElementList* list, GridCounts* counts)
{
    const ElementType* type = nullptr;
    for (int32_t i = 0; i < list->element_count; ++i) {
        type = take_type(list, i, type);
        if (!type) return false;
        if (type->shape >= 0 && material_is_set(list->materials, i)) ++counts->cells[type->shape];
    }
    return true;
}

static bool create_cells(ElementList* list, WallQueue* walls)
{
    const uint32_t shift = 1U - static_cast<uint32_t>(dataset_state.bias);
    const ElementType* type = nullptr;
    int32_t nodes_left = list->list_length;
    for (int32_t i = 0; i < list->element_count; ++i) {
        type = take_type(list, i, type);
        if (!type) return false;
        if (type->node_count > nodes_left) {
            print_diagnostic("FLD file error: node list of %d entries is too short for element "
                             "%d\n",
                             list->list_length, i + 1);
            return false;
        }
        const int32_t* const file_nodes = take_values(&list->node_list, type->node_count);
        if (!file_nodes) return false;
        nodes_left -= type->node_count;
        if (!material_is_set(list->materials, i)) continue;
        if (!create_cell(*type, i, file_nodes, shift, walls)) return false;
    }
    return true;
}

// ---- materials ----

// Reads the item of material numbers into one bit per element.
static bool read_material_bits(int32_t unit, int32_t count, HeapArray<uint8_t>* materials)
{
    IntWindow numbers{};
    if (!open_int_window(unit, count, &numbers)) return false;
    *materials = zeroed_heap_array<uint8_t>(int64_t{count} / 8 + 1);
    if (!*materials) {
        print_no_memory_for_items(count);
        return false;
    }
    for (int32_t i = 0; i < count; ++i) {
        const int32_t* const number = take_values(&numbers, 1);
        if (!number) return false;
        (*materials)[i / 8] = static_cast<uint8_t>((*materials)[i / 8] | (*number != 0) << (i % 8));
    }
    return true;
}

// ---- sections ----

bool read_fld_element_materials(int32_t unit, bool scan_only, int32_t* material_count,
                                HeapArray<uint8_t>* materials)
{
    *material_count = 0;
    materials->reset();
    int32_t not_interpreted = 0;
    if (!read_int_item(unit, &not_interpreted) || !read_int_item(unit, material_count)) {
        return false;
    }
    return scan_only ? read_int_array_item(unit, *material_count, nullptr)
                     : read_material_bits(unit, *material_count, materials);
}

// One array of the section: passed over in the scan, otherwise to be taken through a window.
static bool open_array(int32_t unit, bool scan_only, int32_t count, IntWindow* window)
{
    return scan_only ? read_int_array_item(unit, count, nullptr)
                     : open_int_window(unit, count, window);
}

bool read_fld_elements(int32_t unit, bool scan_only, int32_t material_count,
                       const uint8_t* materials, WallQueue* walls, GridCounts* counts)
{
    int32_t not_interpreted = 0;
    int32_t element_count = 0;
    if (!read_int_item(unit, &not_interpreted) || !read_int_item(unit, &element_count)) {
        return false;
    }
    // The scan knows no number of materials: it passes 0.
    if ((!scan_only || material_count >= 1) && material_count != element_count) {
        print_diagnostic("Error: element count %d does not match element material count %d\n",
                         element_count, material_count);
        return false;
    }
    ElementList list{};
    list.element_count = element_count;
    list.materials = materials;
    if (!open_array(unit, scan_only, element_count, &list.types)) return false;
    if (!read_int_item(unit, &list.list_length) || list.list_length < element_count) return false;
    const bool without_nodes = scan_only || counts;
    if (!open_array(unit, without_nodes, list.list_length, &list.node_list)) return false;
    if (scan_only) return true;

    if (element_count >= 1 && !materials) { // never: there are as many materials as elements
        print_diagnostic("Data reader error: element material array is NULL.\n");
        return false;
    }
    return counts ? count_cells(&list, counts) : create_cells(&list, walls);
}
