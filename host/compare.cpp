#include "compare.h"

#include "grid.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace fld_host
{

bool GridDifference::is_equal() const
{
    return nodes_a == nodes_b && coordinates.different == 0 && cells_a == cells_b &&
           different_cells == 0 && other_regions.empty() &&
           std::all_of(variables.begin(), variables.end(),
                       [](const ValuesDifference& one) { return one.different == 0; });
}

bool FileDifference::is_equal() const
{
    return same_time && grids_a == grids_b && variables.none() && boundaries.none() &&
           std::all_of(grids.begin(), grids.end(),
                       [](const GridDifference& grid) { return grid.is_equal(); });
}

bool is_named(const Variable& variable, const std::string& name)
{
    return variable.name == name || variable.key == name;
}

// ---- values ----

static bool is_same_kind(float a, float b)
{
    return a == b || (std::isnan(a) && std::isnan(b));
}

static bool is_within(double a, double b, const Tolerance& tolerance)
{
    const double distance = std::fabs(a - b);
    return distance <= tolerance.absolute ||
           distance <= tolerance.relative * std::max(std::fabs(a), std::fabs(b));
}

namespace
{

// Planes of values at the nodes of one grid.
struct Planes {
    const float* values;
    size_t nodes;
    int components;
};

} // namespace

static void note_largest(double size, const float* a, const float* b, size_t at, size_t nodes,
                         ValueDifference& largest)
{
    if (largest.node >= 0 && !(size > largest.size)) return;
    largest = {size, a[at], b[at], static_cast<int64_t>(at % nodes), static_cast<int>(at / nodes),
               {}};
}

// `coordinates`: of the nodes.
static ValuesDifference compare_values(const std::string& name, const Planes& a, const float* b,
                                       const Tolerance& tolerance, const float* coordinates)
{
    ValuesDifference result;
    result.name = name;
    result.components = a.components;
    double squares = 0;
    for (size_t i = 0; i < a.nodes * static_cast<size_t>(a.components); ++i) {
        const float x = a.values[i];
        const float y = b[i];
        if (!std::isfinite(x) || !std::isfinite(y)) {
            result.only_one += !is_same_kind(x, y);
            continue;
        }
        ++result.compared;
        if (x == y) continue;
        const double distance = std::fabs(double{x} - double{y});
        squares += distance * distance;
        result.different += !is_within(x, y, tolerance);
        note_largest(distance, a.values, b, i, a.nodes, result.absolute);
        note_largest(distance / std::max(std::fabs(double{x}), std::fabs(double{y})), a.values, b,
                     i, a.nodes, result.relative);
    }
    result.different += result.only_one;
    if (result.compared > 0) {
        result.root_mean_square = std::sqrt(squares / static_cast<double>(result.compared));
    }
    for (ValueDifference* one : {&result.absolute, &result.relative}) {
        for (size_t axis = 0; one->node >= 0 && axis < 3; ++axis) {
            one->position[axis] = coordinates[axis * a.nodes + static_cast<size_t>(one->node)];
        }
    }
    return result;
}

// ---- meshes ----

namespace
{

// Keeps cells and the faces of each boundary, by its name.
class Mesh : public GridSink
{
public:
    Mesh(const std::vector<std::string>& boundaries, std::function<bool(int64_t, int64_t)> progress)
        : boundaries_(boundaries), progress_(std::move(progress))
    {
        for (const std::string& name : boundaries) faces[name];
    }

    void take_cells(const CellBlock& block) override
    {
        const int32_t* nodes = block.nodes;
        for (int64_t i = 0; i < block.count; ++i) {
            const auto shape = static_cast<uint8_t>(block.shapes[i]);
            cells.push_back(static_cast<uint16_t>(shape | block.walls[i] << 8));
            cell_nodes.insert(cell_nodes.end(), nodes, nodes + shape_nodes[shape]);
            nodes += shape_nodes[shape];
        }
    }

    void take_faces(const FaceBlock& block) override
    {
        const int32_t* nodes = block.nodes;
        for (int64_t i = 0; i < block.count; nodes += block.node_counts[i++]) {
            auto& list = faces[boundaries_[static_cast<size_t>(block.boundaries[i])]];
            list.push_back(block.node_counts[i]);
            list.insert(list.end(), nodes, nodes + block.node_counts[i]);
        }
    }

    bool go_on(int64_t done, int64_t all) override { return progress_(done, all); }

    std::vector<uint16_t> cells; // shape, and walls above it
    std::vector<int32_t> cell_nodes;
    std::map<std::string, std::vector<int32_t>> faces; // of each its number of nodes, and these

private:
    const std::vector<std::string>& boundaries_;
    std::function<bool(int64_t, int64_t)> progress_;
};

// Nothing but values is read.
class Progressing : public GridSink
{
public:
    explicit Progressing(std::function<bool(int64_t, int64_t)> progress)
        : progress_(std::move(progress))
    {
    }
    bool go_on(int64_t done, int64_t all) override { return progress_(done, all); }

private:
    std::function<bool(int64_t, int64_t)> progress_;
};

} // namespace

static void compare_cells(const Mesh& a, const Mesh& b, GridDifference& result)
{
    result.cells_a = std::ssize(a.cells);
    result.cells_b = std::ssize(b.cells);
    size_t at_a = 0;
    size_t at_b = 0;
    for (size_t i = 0; i < std::min(a.cells.size(), b.cells.size()); ++i) {
        const auto count_a = static_cast<size_t>(shape_nodes[a.cells[i] & 0xFF]);
        const auto count_b = static_cast<size_t>(shape_nodes[b.cells[i] & 0xFF]);
        const bool same =
            a.cells[i] == b.cells[i] &&
            std::equal(a.cell_nodes.data() + at_a, a.cell_nodes.data() + at_a + count_a,
                       b.cell_nodes.data() + at_b);
        if (!same && result.different_cells++ == 0) {
            result.first_different_cell = static_cast<int64_t>(i);
        }
        at_a += count_a;
        at_b += count_b;
    }
}

static void compare_regions(const Mesh& a, const Mesh& b, GridDifference& result)
{
    for (const auto& [name, faces] : a.faces) {
        const auto found = b.faces.find(name);
        if (found != b.faces.end() && found->second != faces) result.other_regions.push_back(name);
    }
}

// ---- files ----

static NamesDifference compare_names(std::vector<std::string> a, std::vector<std::string> b)
{
    NamesDifference result;
    std::sort(a.begin(), a.end());
    std::sort(b.begin(), b.end());
    std::set_difference(a.begin(), a.end(), b.begin(), b.end(), std::back_inserter(result.only_a));
    std::set_difference(b.begin(), b.end(), a.begin(), a.end(), std::back_inserter(result.only_b));
    return result;
}

static bool is_chosen(const Variable& variable, const Tolerances& tolerances)
{
    return tolerances.chosen.empty() ||
           std::any_of(tolerances.chosen.begin(), tolerances.chosen.end(),
                       [&](const std::string& name) { return is_named(variable, name); });
}

// A scalar and a vector of one name have nothing to compare.
static std::vector<std::string> names_of(const Contents& contents, const Tolerances& tolerances)
{
    std::vector<std::string> names;
    for (const Variable& variable : contents.variables) {
        if (!is_chosen(variable, tolerances)) continue;
        names.push_back(variable.name + (variable.components == 3 ? " (vector)" : ""));
    }
    return names;
}

// Of the names that were given each means something in one file at least.
static void check_names(const Contents& a, const Contents& b, const Tolerances& tolerances,
                        const std::string& file)
{
    std::vector<std::string> names = tolerances.chosen;
    for (const auto& [name, tolerance] : tolerances.variables) {
        if (name != "time" && name != "coordinates") names.push_back(name);
    }
    for (const std::string& name : names) {
        const auto is_it = [&](const Variable& variable) { return is_named(variable, name); };
        if (std::any_of(a.variables.begin(), a.variables.end(), is_it)) continue;
        if (std::any_of(b.variables.begin(), b.variables.end(), is_it)) continue;
        throw Error(Error::Kind::cannot_open, file,
                    "has no variable \"" + name + "\", and neither has the other file");
    }
}

static Tolerance tolerance_of_mesh(const char* what, const Tolerances& tolerances)
{
    const auto found = tolerances.variables.find(what);
    return found == tolerances.variables.end() ? Tolerance() : found->second;
}

static const Tolerance& tolerance_of(const Variable& variable, const Tolerances& tolerances)
{
    for (const auto& [name, tolerance] : tolerances.variables) {
        if (is_named(variable, name)) return tolerance;
    }
    return tolerances.all;
}

namespace
{

// Two open files and what is read of them.
class Comparison
{
public:
    Comparison(const std::shared_ptr<Reader>& reader, const std::string& a, const std::string& b,
               const Tolerances& tolerances, const CompareProgress& progress)
        : reader_(reader), tolerances_(tolerances), progress_(progress), a_(reader, a),
          b_(reader, b)
    {
    }

    FileDifference compare()
    {
        FileDifference result;
        result.a = a_.file();
        result.b = b_.file();
        result.time_a = time_of(a_.file());
        result.time_b = time_of(b_.file());
        result.same_time = is_same_time(result.time_a, result.time_b);
        const Contents& a = a_.contents();
        const Contents& b = b_.contents();
        check_names(a, b, tolerances_, a_.file());
        result.grids_a = static_cast<int>(a.node_counts.size());
        result.grids_b = static_cast<int>(b.node_counts.size());
        result.variables = compare_names(names_of(a, tolerances_), names_of(b, tolerances_));
        result.boundaries = compare_names(a.boundaries, b.boundaries);
        for (int grid = 0; grid < std::min(result.grids_a, result.grids_b); ++grid) {
            result.grids.push_back(compare_grid(grid));
        }
        return result;
    }

private:
    [[nodiscard]] bool is_same_time(std::optional<float> a, std::optional<float> b) const
    {
        if (!a || !b) return a.has_value() == b.has_value();
        return is_same_kind(*a, *b) || is_within(*a, *b, tolerance_of_mesh("time", tolerances_));
    }

    std::optional<float> time_of(const std::string& file)
    {
        try {
            return reader_->time(file);
        } catch (const Error&) {
            return std::nullopt;
        }
    }

    auto progress_of(const Dataset& dataset, const std::string& what)
    {
        return [this, &dataset, what](int64_t done, int64_t all) {
            return progress_(dataset.file(), what, done, all);
        };
    }

    // The coordinates are left in the first buffer.
    GridDifference compare_grid(int grid)
    {
        GridDifference result;
        result.grid = grid;
        result.nodes_a = a_.contents().node_counts[static_cast<size_t>(grid)];
        result.nodes_b = b_.contents().node_counts[static_cast<size_t>(grid)];
        const auto identity = a_.mesh_identity(grid);
        result.same_mesh_file = identity && identity == b_.mesh_identity(grid);
        const auto nodes = static_cast<size_t>(result.nodes_a);
        float* const coordinates = coords_.prepare(3 * nodes);
        if (result.same_mesh_file) {
            read_nodes(a_, grid, coordinates);
        } else {
            compare_meshes(grid, coordinates, result);
        }
        if (result.nodes_a == result.nodes_b) compare_variables(grid, coordinates, result);
        return result;
    }

    void read_nodes(Dataset& dataset, int grid, float* coordinates)
    {
        Progressing sink(progress_of(dataset, "nodes of grid " + std::to_string(grid + 1)));
        dataset.read(grid, {true, false, false, {}, {}}, {coordinates, {}}, sink);
    }

    void compare_meshes(int grid, float* coordinates, GridDifference& result)
    {
        const std::string what = "grid " + std::to_string(grid + 1);
        Mesh mesh_a(a_.contents().boundaries, progress_of(a_, what));
        Mesh mesh_b(b_.contents().boundaries, progress_of(b_, what));
        float* const others = values_b_.prepare(3 * static_cast<size_t>(result.nodes_b));
        const auto read = [grid](Dataset& dataset, float* nodes, Mesh& mesh) {
            Wanted wanted = dataset.everything();
            wanted.variables.clear();
            dataset.read(grid, wanted, {nodes, {}}, mesh);
        };
        read(a_, coordinates, mesh_a);
        read(b_, others, mesh_b);
        compare_cells(mesh_a, mesh_b, result);
        compare_regions(mesh_a, mesh_b, result);
        if (result.nodes_a != result.nodes_b) return;
        result.coordinates =
            compare_values("coordinates", {coordinates, static_cast<size_t>(result.nodes_a), 3},
                           others, tolerance_of_mesh("coordinates", tolerances_), coordinates);
    }

    void compare_variables(int grid, const float* coordinates, GridDifference& result)
    {
        const auto& list_a = a_.contents().variables;
        const auto& list_b = b_.contents().variables;
        const auto nodes = static_cast<size_t>(result.nodes_a);
        std::vector<bool> taken(list_b.size(), false);
        for (size_t i = 0; i < list_a.size(); ++i) {
            const Variable& variable = list_a[i];
            if (!is_chosen(variable, tolerances_)) continue;
            // Names may repeat: the first with the first, the second with the second.
            size_t other = 0;
            while (other < list_b.size() && (taken[other] || list_b[other].name != variable.name ||
                                             list_b[other].components != variable.components)) {
                ++other;
            }
            if (other == list_b.size()) continue;
            taken[other] = true;
            const size_t count = nodes * static_cast<size_t>(variable.components);
            float* const values_a = values_a_.prepare(count);
            float* const values_b = values_b_.prepare(count);
            read_variable(a_, grid, static_cast<int>(i), values_a);
            read_variable(b_, grid, static_cast<int>(other), values_b);
            result.variables.push_back(
                compare_values(variable.name, {values_a, nodes, variable.components}, values_b,
                               tolerance_of(variable, tolerances_), coordinates));
        }
    }

    void read_variable(Dataset& dataset, int grid, int variable, float* values)
    {
        Progressing sink(
            progress_of(dataset, dataset.contents().variables[static_cast<size_t>(variable)].name));
        dataset.read(grid, {false, false, false, {}, {variable}}, {nullptr, {values}}, sink);
    }

    std::shared_ptr<Reader> reader_;
    const Tolerances& tolerances_;
    const CompareProgress& progress_;
    Dataset a_;
    Dataset b_;
    FloatBuffer coords_, values_a_, values_b_;
};

} // namespace

FileDifference compare_files(const std::shared_ptr<Reader>& reader, const std::string& a,
                             const std::string& b, const Tolerances& tolerances,
                             const CompareProgress& progress)
{
    return Comparison(reader, a, b, tolerances, progress).compare();
}

} // namespace fld_host
