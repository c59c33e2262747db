#include "linked_host.h"

#include "trace_text.h"

#include <bit>
#include <cstring>

namespace fld_test
{

using fld_host::Shape;

// ---- cells and faces ----

static void add_cell(Recorder& recorder, Shape shape, uint32_t walls, const int32_t* nodes)
{
    int32_t flags[6], numbers[8];
    for (int k = 0; k < 6; ++k) flags[k] = (walls >> k & 1) != 0 ? fld_host::WALL_FACE : 0;
    for (int k = 0; k < fld_host::shape_nodes[int(shape)]; ++k) numbers[k] = nodes[k] + 1;
    recorder.lines += cell_line(shape, flags, numbers);
}

template <Shape shape> static void cell(void* recorder, uint32_t walls, const int32_t* nodes)
{
    add_cell(*static_cast<Recorder*>(recorder), shape, walls, nodes);
}

static void face(void* recorder, int32_t boundary, int32_t count, const int32_t* nodes)
{
    int32_t numbers[4];
    for (int k = 0; k < count; ++k) numbers[k] = nodes[k] + 1;
    static_cast<Recorder*>(recorder)->lines += face_line(boundary + 1, count, numbers);
}

Recorder::Recorder(bool by_function)
    : direct_{this,
              {cell<Shape::tetrahedron>, cell<Shape::pyramid>, cell<Shape::prism>,
               cell<Shape::hexahedron>},
              face},
      by_function_(by_function)
{
}

void Recorder::take_cells(const fld_host::CellBlock& block)
{
    const int32_t* nodes = block.nodes;
    for (int64_t i = 0; i < block.count; ++i) {
        add_cell(*this, block.shapes[i], block.walls[i], nodes);
        nodes += fld_host::shape_nodes[int(block.shapes[i])];
    }
}

void Recorder::take_faces(const fld_host::FaceBlock& block)
{
    const int32_t* nodes = block.nodes;
    for (int64_t i = 0; i < block.count; nodes += block.node_counts[i++]) {
        face(this, block.boundaries[i], block.node_counts[i], nodes);
    }
}

// ---- a visit ----

namespace
{

// The values of a grid that was read whole.
struct GridValues {
    int grid;
    std::vector<float> values;
};

} // namespace

static void read_grid(fld_host::Dataset& dataset, int grid, LinkedVisit& visit,
                      std::vector<GridValues>& whole)
{
    const fld_host::Contents& contents = dataset.contents();
    const auto nodes = static_cast<size_t>(contents.node_counts[static_cast<size_t>(grid)]);
    const auto untouched = std::bit_cast<float>(UNTOUCHED * 0x01010101U);
    std::vector<float> coords(3 * nodes, untouched);
    std::vector<float> values(contents.rows.size() * nodes, untouched);
    const auto buffers = fld_host::buffers_of(contents, coords.data(), values.data(), nodes);
    visit.trace += "read " + std::to_string(grid + 1) + "\n";
    Recorder sink(true);
    try {
        dataset.read(grid, dataset.everything(), buffers, sink);
        visit.trace += sink.lines + "flag 0\n";
    } catch (const fld_host::Error& failure) {
        visit.errors.push_back(failure);
        visit.trace += sink.lines + "flag 1\n";
        return;
    }
    const auto count = static_cast<int64_t>(nodes);
    for (size_t row = 0; row < 3; ++row) {
        visit.trace += reals_line({"xyz"[row]}, coords.data() + row * nodes, count);
    }
    for (size_t row = 0; row < contents.rows.size(); ++row) {
        visit.trace += reals_line("value", values.data() + row * nodes, count);
    }
    whole.push_back({grid, std::move(values)});
}

// Every variable alone has the values that it has among the others. Only what is wrong is written
// down.
static void read_alone(fld_host::Dataset& dataset, const GridValues& whole, LinkedVisit& visit)
{
    const fld_host::Contents& contents = dataset.contents();
    const auto nodes = static_cast<size_t>(contents.node_counts[static_cast<size_t>(whole.grid)]);
    for (size_t i = 0; i < contents.variables.size(); ++i) {
        const fld_host::Variable& variable = contents.variables[i];
        std::vector<float> values(nodes * static_cast<size_t>(variable.components) + 1);
        fld_host::GridSink nothing;
        try {
            dataset.read(whole.grid, {false, false, false, {}, {static_cast<int>(i)}},
                         {nullptr, {values.data()}}, nothing);
        } catch (const fld_host::Error& failure) {
            visit.errors.push_back(failure);
            visit.trace += "read alone\nflag 1\n";
            continue;
        }
        const float* const among =
            whole.values.data() + static_cast<size_t>(variable.first_row) * nodes;
        const size_t bytes = (values.size() - 1) * sizeof(float);
        if (bytes > 0 && memcmp(values.data(), among, bytes) != 0) {
            visit.trace += "other values alone: " + variable.name + "\n";
        }
    }
}

LinkedVisit visit_linked(const std::string& path, const std::function<void()>& meanwhile)
{
    LinkedVisit visit;
    const auto reader = fld_host::Reader::linked();
    (void)reader->take_messages(); // of whoever called it before
    visit.trace = "open\n";
    try {
        fld_host::Dataset dataset(reader, path, {4, 8, 8});
        const fld_host::Contents& contents = dataset.contents();
        visit.trace += "flag 0\nnodes" +
                       list_text(contents.node_counts.data(), std::ssize(contents.node_counts)) +
                       "\n";
        for (const std::string& name : contents.boundaries)
            visit.trace += "boundary " + name + "\n";
        for (const std::string& name : contents.rows) visit.trace += "variable " + name + "\n";
        visit.trace += "peek\n";
        try {
            visit.trace += "time " + real_text(reader->time(path)) + " flag 0\n";
        } catch (const fld_host::Error& failure) {
            visit.errors.push_back(failure);
            visit.trace += "time 0 flag 1\n";
        }
        if (meanwhile) meanwhile();
        std::vector<GridValues> whole;
        for (int grid = 0; grid < std::ssize(contents.node_counts); ++grid) {
            read_grid(dataset, grid, visit, whole);
        }
        visit.trace += "close\n";
        visit.messages = reader->take_messages();
        for (const GridValues& values : whole) read_alone(dataset, values, visit);
        for (int grid = 0; grid < std::ssize(contents.node_counts); ++grid) {
            try {
                (void)dataset.size(grid); // whatever the file holds by now
            } catch (const fld_host::Error&) {
                continue;
            }
        }
    } catch (const fld_host::Error& failure) {
        visit.errors.push_back(failure);
        visit.trace += "flag 1\n";
        visit.messages = reader->take_messages();
    }
    (void)reader->take_messages(); // again, of variables alone
    return visit;
}

} // namespace fld_test
