#include "dataset.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace fld_host
{

// The unit under which the reader opens the files of the dataset.
static constexpr int32_t DATASET_UNIT = 20;

static constexpr size_t NAME_ROW = 80;

// ---- the services ----

void CheckedServices::begin_grid(GridSink& sink, int32_t node_count, int32_t boundary_count)
{
    sink_ = &sink;
    node_count_ = static_cast<uint32_t>(node_count);
    boundary_count_ = boundary_count;
    cells_ = 0;
    faces_ = 0;
    problem_.clear();
}

std::string CheckedServices::end_grid()
{
    sink_ = nullptr;
    return problem_;
}

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

static bool all_are_nodes(Shape shape, const int32_t* nodes, uint32_t node_count)
{
    switch (shape) {
    case Shape::tetrahedron: return all_are_nodes<Shape::tetrahedron>(nodes, node_count);
    case Shape::pyramid: return all_are_nodes<Shape::pyramid>(nodes, node_count);
    case Shape::prism: return all_are_nodes<Shape::prism>(nodes, node_count);
    case Shape::hexahedron: return all_are_nodes<Shape::hexahedron>(nodes, node_count);
    }
    return false;
}

static bool any_flag_set(Shape shape, const int32_t* face_flags)
{
    switch (shape) {
    case Shape::tetrahedron: return any_flag_set<Shape::tetrahedron>(face_flags);
    case Shape::pyramid: return any_flag_set<Shape::pyramid>(face_flags);
    case Shape::prism: return any_flag_set<Shape::prism>(face_flags);
    case Shape::hexahedron: return any_flag_set<Shape::hexahedron>(face_flags);
    }
    return false;
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

// Exceptions must not pass through the reader, which called: they would leave its files open.
int CheckedServices::create_cell(Shape shape, const int32_t* face_flags, const int32_t* nodes)
try {
    uint32_t walls = 0;
    if (!sink_ || !all_are_nodes(shape, nodes, node_count_) ||
        (any_flag_set(shape, face_flags) && !wall_bits(shape, face_flags, &walls))) {
        if (problem_.empty()) problem_ = cell_problem(shape, nodes);
        return 0;
    }
    ++cells_;
    sink_->add_cell(shape, walls, nodes);
    return 1;
} catch (const std::bad_alloc&) {
    problem_ = "not enough memory";
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
try {
    const bool right = sink_ && boundary_type >= 1 && boundary_type <= boundary_count_ &&
                       (vertex_count == 3 || vertex_count == 4) &&
                       first_wrong_node(nodes, vertex_count, node_count_) < 0;
    if (!right) {
        if (problem_.empty()) problem_ = face_problem(boundary_type, vertex_count, nodes);
        return 1;
    }
    ++faces_;
    sink_->add_boundary_face(boundary_type, vertex_count, nodes);
    return 0;
} catch (const std::bad_alloc&) {
    problem_ = "not enough memory";
    return 1;
}

void CheckedServices::set_options(int /*first*/, int /*second*/, unsigned char /*third*/)
{
    ++scanned_files;
}

// ---- the host ----

OnlyOne::OnlyOne(bool& taken, const char* what) : taken_(taken)
{
    if (taken) throw std::logic_error(std::string("a process has one ") + what + " at a time");
    taken = true;
}

OnlyOne::~OnlyOne()
{
    taken_ = false;
}

static bool host_exists;
static bool dataset_exists;

Host::Host(const std::string& library_path)
    : one_(host_exists, "host"), library_(library_path, services_)
{
    library_.start();
    if (readers().empty()) throw std::runtime_error("the library registered no reader");
}

const std::vector<RegisteredReader>& Host::readers() const
{
    return library_.registrations().readers;
}

const RegisteredReader* Host::find_reader(const std::string& name) const
{
    for (const RegisteredReader& reader : readers()) {
        if (reader.name == name) return &reader;
    }
    return nullptr;
}

std::optional<float> Host::peek_time(const std::string& file) const
{
    const PeekTimeCallback peek = library_.registrations().peek_time;
    if (!peek) return std::nullopt;
    float time = 0;
    int32_t error_flag = 1;
    peek(nullptr, file.c_str(), nullptr, nullptr, &time, &error_flag);
    return error_flag == 0 ? std::optional(time) : std::nullopt;
}

// ---- the dataset ----

// A list of names as the reader fills it: rows of 80 bytes, padded with NUL bytes or blanks. A
// name that fills its row has no NUL.
class NameRows
{
public:
    explicit NameRows(int32_t capacity)
        : capacity_(std::max(capacity, 0)), rows_(static_cast<size_t>(capacity_) * NAME_ROW + 1)
    {
    }
    char* data() { return rows_.data(); }
    // The first `count` names, as far as there are rows for them.
    [[nodiscard]] std::vector<std::string> names(int32_t count) const
    {
        std::vector<std::string> names;
        for (int32_t row = 0; row < std::min(count, capacity_); ++row) {
            const char* text = rows_.data() + static_cast<size_t>(row) * NAME_ROW;
            std::string name(text, strnlen(text, NAME_ROW));
            name.erase(name.find_last_not_of(' ') + 1);
            names.push_back(std::move(name));
        }
        return names;
    }

private:
    int32_t capacity_;
    std::vector<char> rows_;
};

bool Dataset::call_header_callback(const std::string& file, const Capacities& capacities)
{
    NameRows boundaries(capacities.boundaries);
    NameRows variables(capacities.variables);
    node_counts_.assign(static_cast<size_t>(std::max(capacities.grids, 1)), 0);
    int32_t grid_count = 0;
    int32_t error_flag = 1;
    reader_.read_header(file.c_str(), nullptr, &DATASET_UNIT, &capacities.grids,
                        &capacities.boundaries, &capacities.variables, &grid_count,
                        node_counts_.data(), &boundary_count_, boundaries.data(), nullptr,
                        &variable_count_, variables.data(), &error_flag);
    if (error_flag != 0) return false;
    if (grid_count < 0 || grid_count > capacities.grids || boundary_count_ < 0 ||
        variable_count_ < 0) {
        return false;
    }
    node_counts_.resize(static_cast<size_t>(grid_count));
    boundaries_ = boundaries.names(boundary_count_);
    variables_ = variables.names(variable_count_);
    return std::all_of(node_counts_.begin(), node_counts_.end(),
                       [](int32_t node_count) { return node_count >= 0; });
}

Dataset::Dataset(Host& host, const RegisteredReader& reader, const std::string& file,
                 const Capacities& capacities)
    : one_(dataset_exists, "dataset"), host_(host), reader_(reader)
{
    host_.services_.scanned_files = 0;
    const bool opened = call_header_callback(file, capacities);
    const int32_t scanned = host_.services_.scanned_files;
    if (!opened) {
        close();
        DatasetError failure("cannot be opened");
        failure.scanned = scanned > 0;
        throw failure;
    }
    // A file without a grid of its own is opened together with the file that has it.
    results_only_ = scanned > 1;
}

Dataset::~Dataset()
{
    close();
}

void Dataset::close()
{
    const CloseCallback close_file = host_.library_.registrations().close_file;
    if (close_file) close_file();
}

void Dataset::read_grid(int32_t number, GridSink& sink, NodeData& data)
{
    const std::string failure = "grid " + std::to_string(number) + " cannot be read";
    const int32_t node_count = node_counts_.at(static_cast<size_t>(number) - 1);
    const auto nodes = static_cast<size_t>(node_count);
    float* coords = nullptr;
    float* values = nullptr;
    try {
        coords = data.coords.prepare(3 * nodes);
        values = data.values.prepare(static_cast<size_t>(variable_count_) * nodes);
    } catch (const std::bad_alloc&) {
        throw DatasetError(failure, "not enough memory for " + std::to_string(node_count) +
                                        " nodes with " + std::to_string(variable_count_) +
                                        " variables");
    }
    int32_t error_flag = 1;
    host_.services_.begin_grid(sink, node_count, static_cast<int32_t>(boundaries_.size()));
    reader_.read_data(&DATASET_UNIT, &number, &node_count, coords, &variable_count_, values,
                      &error_flag);
    const std::string problem = host_.services_.end_grid();
    if (!problem.empty() || error_flag != 0) throw DatasetError(failure, problem);
}

} // namespace fld_host
