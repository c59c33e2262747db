#include "checked_services.h"

#include <utility>

namespace fld_host
{

constexpr size_t BLOCK = 2048; // cells, or faces: what the processor keeps at hand

void CheckedServices::begin_call()
{
    cancelled_ = false;
    sink_threw_ = false;
}

void CheckedServices::begin_grid(GridSink& sink, const Filter& filter, int32_t node_count,
                                 int32_t boundary_count)
{
    sink_ = &sink;
    direct_ = sink.direct();
    filter_ = filter;
    node_count_ = static_cast<uint32_t>(node_count);
    boundary_count_ = boundary_count;
    cell_shapes_.resize(BLOCK);
    cell_walls_.resize(BLOCK);
    cell_nodes_.resize(8 * BLOCK);
    block_cells_ = 0;
    block_nodes_ = 0;
    cells_ = 0;
    faces_ = 0;
    problem_.clear();
    thrown_ = nullptr;
}

std::string CheckedServices::end_grid()
{
    (void)guarded([&] {
        if (!thrown_ && problem_.empty()) {
            hand_over_cells();
            hand_over_faces();
        }
    });
    sink_ = nullptr;
    direct_ = nullptr;
    block_cells_ = 0;
    block_nodes_ = 0;
    face_boundaries_.clear();
    face_sizes_.clear();
    face_nodes_.clear();
    if (thrown_) {
        sink_threw_ = true;
        std::rethrow_exception(std::exchange(thrown_, nullptr));
    }
    return problem_;
}

// Exceptions must not pass through the reader, which called: they would leave its files open.
template <class Work> bool CheckedServices::guarded(Work work)
{
    try {
        work();
        return true;
    } catch (...) {
        thrown_ = std::current_exception();
        return false;
    }
}

bool CheckedServices::go_on(int64_t bytes_done, int64_t bytes_in_all)
{
    if (thrown_ || cancelled_) return false;
    return guarded([&] { cancelled_ = !sink_->go_on(bytes_done, bytes_in_all); }) && !cancelled_;
}

void CheckedServices::hand_over_cells()
{
    if (block_cells_ == 0) return;
    sink_->take_cells({static_cast<int64_t>(block_cells_), cell_shapes_.data(), cell_walls_.data(),
                       cell_nodes_.data()});
    block_cells_ = 0;
    block_nodes_ = 0;
}

void CheckedServices::hand_over_faces()
{
    if (face_boundaries_.empty()) return;
    sink_->take_faces({static_cast<int64_t>(face_boundaries_.size()), face_boundaries_.data(),
                       face_sizes_.data(), face_nodes_.data()});
    face_boundaries_.clear();
    face_sizes_.clear();
    face_nodes_.clear();
}

// ---- checks ----

static bool is_node(int32_t number, uint32_t node_count)
{
    return static_cast<uint32_t>(number) - 1U < node_count;
}

// Passed for every cell of a grid: the totals of the shape are known to the compiler.
template <Shape shape> static bool all_are_nodes(const int32_t* nodes, uint32_t node_count)
{
    bool right = true;
    for (int k = 0; k < shape_nodes[static_cast<int>(shape)]; ++k) {
        right &= is_node(nodes[k], node_count);
    }
    return right;
}

template <Shape shape> static bool any_flag_set(const int32_t* face_flags)
{
    int32_t flags = 0;
    for (int k = 0; k < shape_faces[static_cast<int>(shape)]; ++k) flags |= face_flags[k];
    return flags != 0;
}

// The position of the first node number that no node has, -1 when there is none.
static int first_wrong_node(const int32_t* nodes, int count, uint32_t node_count)
{
    for (int k = 0; k < count; ++k) {
        if (!is_node(nodes[k], node_count)) return k;
    }
    return -1;
}

static std::string wrong_node(const std::string& owner, int32_t node, uint32_t node_count)
{
    return owner + " names node " + std::to_string(node) + ", but the grid has " +
           std::to_string(node_count) + " nodes";
}

// One bit for each wall face; false when a flag is neither that of a wall nor that of an ordinary
// face.
static bool wall_bits(Shape shape, const int32_t* face_flags, uint32_t* walls)
{
    *walls = 0;
    for (int k = 0; k < shape_faces[static_cast<int>(shape)]; ++k) {
        if (face_flags[k] == WALL_FACE)
            *walls |= 1U << k;
        else if (face_flags[k] != 0)
            return false;
    }
    return true;
}

std::string CheckedServices::cell_problem(Shape shape, const int32_t* nodes) const
{
    if (!sink_) return "a cell was created while no grid is read";
    const std::string cell = "cell " + std::to_string(cells_ + 1);
    const int wrong = first_wrong_node(nodes, shape_nodes[static_cast<int>(shape)], node_count_);
    if (wrong >= 0) return wrong_node(cell, nodes[wrong], node_count_);
    return cell + " has a face flag that is neither 0 nor " + std::to_string(WALL_FACE);
}

// ---- what is right ----

// Called for every cell of a grid: all that depends on the shape is known to the compiler.
template <Shape shape>
[[gnu::always_inline]] inline void CheckedServices::add_cell(uint32_t walls, const int32_t* nodes)
{
    constexpr size_t COUNT = shape_nodes[static_cast<int>(shape)];
    if (direct_) {
        const auto cell = direct_->cell[static_cast<int>(shape)];
        if (!cell) return;
        int32_t numbers[COUNT];
        for (size_t k = 0; k < COUNT; ++k) numbers[k] = nodes[k] - 1;
        cell(direct_->context, walls, numbers);
        return;
    }
    cell_shapes_[block_cells_] = shape;
    cell_walls_[block_cells_] = static_cast<uint8_t>(walls);
    int32_t* const numbers = cell_nodes_.data() + block_nodes_;
    for (size_t k = 0; k < COUNT; ++k) numbers[k] = nodes[k] - 1;
    block_nodes_ += COUNT;
    if (++block_cells_ == BLOCK) hand_over_cells();
}

void CheckedServices::add_face(int32_t boundary, int32_t vertex_count, const int32_t* nodes)
{
    int32_t numbers[4];
    for (int k = 0; k < vertex_count; ++k) numbers[k] = nodes[k] - 1;
    if (direct_) {
        if (direct_->face) direct_->face(direct_->context, boundary, vertex_count, numbers);
        return;
    }
    face_boundaries_.push_back(boundary);
    face_sizes_.push_back(static_cast<uint8_t>(vertex_count));
    face_nodes_.insert(face_nodes_.end(), numbers, numbers + vertex_count);
    if (face_boundaries_.size() == BLOCK) hand_over_faces();
}

// What is wrong is kept in words.
int CheckedServices::refuse_cell(Shape shape, const int32_t* nodes)
{
    if (problem_.empty() && !thrown_ && !cancelled_) {
        (void)guarded([&] { problem_ = cell_problem(shape, nodes); });
    }
    return 0;
}

template <Shape shape>
int CheckedServices::take_cell(const int32_t* face_flags, const int32_t* nodes)
try {
    uint32_t walls = 0;
    if (!sink_ || thrown_ || cancelled_ || !all_are_nodes<shape>(nodes, node_count_) ||
        (any_flag_set<shape>(face_flags) && !wall_bits(shape, face_flags, &walls))) {
        return refuse_cell(shape, nodes);
    }
    ++cells_;
    if (filter_.cells) add_cell<shape>(filter_.wall_flags ? walls : 0, nodes);
    return 1;
} catch (...) {
    thrown_ = std::current_exception();
    return 0;
}

int CheckedServices::create_cell(Shape shape, const int32_t* face_flags, const int32_t* nodes)
{
    switch (shape) {
    case Shape::tetrahedron: return take_cell<Shape::tetrahedron>(face_flags, nodes);
    case Shape::pyramid: return take_cell<Shape::pyramid>(face_flags, nodes);
    case Shape::prism: return take_cell<Shape::prism>(face_flags, nodes);
    case Shape::hexahedron: return take_cell<Shape::hexahedron>(face_flags, nodes);
    }
    return 0;
}

std::string CheckedServices::face_problem(int32_t boundary_type, int32_t vertex_count,
                                          const int32_t* nodes) const
{
    if (!sink_) return "a boundary face was created while no grid is read";
    const std::string face = "boundary face " + std::to_string(faces_ + 1);
    if (boundary_type < 1 || boundary_type > boundary_count_) {
        return face + " is of boundary " + std::to_string(boundary_type) +
               ", but the dataset has " + std::to_string(boundary_count_);
    }
    if (vertex_count != 3 && vertex_count != 4) {
        return face + " has " + std::to_string(vertex_count) + " vertices";
    }
    const int wrong = first_wrong_node(nodes, vertex_count, node_count_);
    return wrong < 0 ? "" : wrong_node(face, nodes[wrong], node_count_);
}

int CheckedServices::create_boundary_face(int32_t boundary_type, int32_t vertex_count,
                                          const int32_t* nodes, int32_t /*constant*/)
{
    const bool right = sink_ && !thrown_ && !cancelled_ && boundary_type >= 1 &&
                       boundary_type <= boundary_count_ &&
                       (vertex_count == 3 || vertex_count == 4) &&
                       first_wrong_node(nodes, vertex_count, node_count_) < 0;
    if (!right) {
        if (problem_.empty() && !thrown_ && !cancelled_) {
            (void)guarded([&] { problem_ = face_problem(boundary_type, vertex_count, nodes); });
        }
        return 1;
    }
    ++faces_;
    const auto boundary = static_cast<size_t>(boundary_type) - 1;
    if (filter_.boundaries && !(*filter_.boundaries)[boundary]) return 0;
    return guarded([&] { add_face(boundary_type - 1, vertex_count, nodes); }) ? 0 : 1;
}

} // namespace fld_host
