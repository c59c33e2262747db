#include "measure_dataset.h"

#include "dataset.h"
#include "series.h"
#include "timing.h"

#include <cstring>
#include <filesystem>
#include <stdexcept>

namespace
{

using namespace fld_host;

// Copies hexahedra and quadrilaterals, which is what the measured files hold.
class CopyingSink : public GridSink
{
public:
    CopyingSink(const FileFacts& facts, bool by_function)
        : by_function_(by_function), nodes_(static_cast<size_t>(facts.grid_cells) * 8),
          walls_(static_cast<size_t>(facts.grid_cells)),
          faces_(static_cast<size_t>(facts.faces) * 4)
    {
        direct_.context = this;
        direct_.cell[static_cast<int>(Shape::hexahedron)] = take_cell;
        direct_.face = take_face;
    }

    void take_cells(const CellBlock& block) override
    {
        if ((cells + static_cast<size_t>(block.count)) > walls_.size()) return;
        memcpy(nodes_.data() + 8 * cells, block.nodes,
               8 * sizeof(int32_t) * static_cast<size_t>(block.count));
        memcpy(walls_.data() + cells, block.walls, static_cast<size_t>(block.count));
        cells += static_cast<size_t>(block.count);
    }

    void take_faces(const FaceBlock& block) override
    {
        if (4 * (faces + static_cast<size_t>(block.count)) > faces_.size()) return;
        memcpy(faces_.data() + 4 * faces, block.nodes,
               4 * sizeof(int32_t) * static_cast<size_t>(block.count));
        faces += static_cast<size_t>(block.count);
    }

    const DirectSink* direct() override { return by_function_ ? &direct_ : nullptr; }

    size_t cells = 0;
    size_t faces = 0;

private:
    static void take_cell(void* context, uint32_t walls, const int32_t* nodes)
    {
        auto* const self = static_cast<CopyingSink*>(context);
        if (self->cells == self->walls_.size()) return;
        memcpy(self->nodes_.data() + 8 * self->cells, nodes, 8 * sizeof(int32_t));
        self->walls_[self->cells++] = static_cast<uint8_t>(walls);
    }

    static void take_face(void* context, int32_t /*boundary*/, int32_t node_count,
                          const int32_t* nodes)
    {
        auto* const self = static_cast<CopyingSink*>(context);
        if (node_count != 4 || 4 * self->faces == self->faces_.size()) return;
        memcpy(self->faces_.data() + 4 * self->faces++, nodes, 4 * sizeof(int32_t));
    }

    bool by_function_;
    DirectSink direct_;
    std::vector<int32_t> nodes_;
    std::vector<uint8_t> walls_;
    std::vector<int32_t> faces_;
};

double time_everything(Dataset& dataset, const FileFacts& facts, const Buffers& buffers,
                       bool by_function)
{
    CopyingSink sink(facts, by_function);
    const double seconds =
        seconds_of([&] { dataset.read(0, dataset.everything(), buffers, sink); });
    if (sink.cells != static_cast<size_t>(facts.grid_cells) ||
        sink.faces != static_cast<size_t>(facts.faces)) {
        throw std::runtime_error("the host library does not deliver all of " + dataset.file());
    }
    return seconds;
}

double time_plain_read(const std::string& path, std::vector<float>& memory, size_t bytes)
{
    FILE* const file = fopen(path.c_str(), "rb");
    if (!file) throw std::runtime_error("cannot read " + path);
    const double seconds = seconds_of([&] {
        fseek(file, 0, SEEK_SET);
        if (fread(memory.data(), 1, bytes, file) != bytes) memory.clear();
    });
    fclose(file);
    if (memory.empty()) throw std::runtime_error("cannot read " + path);
    return seconds;
}

} // namespace

DatasetSeconds measure_dataset(const std::string& path, const FileFacts& facts)
{
    Dataset dataset(Reader::linked(), path);
    const auto nodes = static_cast<size_t>(facts.grid_nodes);
    std::vector<float> coords(3 * nodes);
    std::vector<float> values(dataset.contents().rows.size() * nodes);
    const Buffers buffers = buffers_of(dataset.contents(), coords.data(), values.data(), nodes);
    DatasetSeconds seconds;
    seconds.blocks = time_everything(dataset, facts, buffers, false);
    seconds.functions = time_everything(dataset, facts, buffers, true);
    Wanted first{false, false, false, {}, {0}};
    GridSink nothing;
    seconds.one_variable = seconds_of([&] {
        dataset.read(0, first, {nullptr, {values.data()}}, nothing);
    });
    seconds.plain_variable = time_plain_read(path, coords, nodes * sizeof(float));
    return seconds;
}

SwitchSeconds measure_switch(const std::string& first, const std::string& second)
{
    const std::shared_ptr<Reader> reader = Reader::linked();
    SwitchSeconds seconds;
    { // once unmeasured: what the reader remembers of a series is known from then on
        const Dataset known(reader, first);
    }
    seconds.open = median_seconds_of([&] { const Dataset dataset(reader, first); });
    Dataset a(reader, first);
    Dataset b(reader, second);
    std::vector<float> values(static_cast<size_t>(a.contents().node_counts.at(0)));
    const auto read = [&](Dataset& dataset) {
        GridSink nothing;
        dataset.read(0, {false, false, false, {}, {0}}, {nullptr, {values.data()}}, nothing);
    };
    const auto two_reads = [&](Dataset& x, Dataset& y) {
        return median_seconds_of([&] {
            read(x);
            read(y);
        });
    };
    seconds.turn = (two_reads(a, b) - two_reads(a, a)) / 2;
    const auto name = split_series_name(first);
    const auto list = [&] {
        for (const SeriesFile& file : list_series(*name)) {
            (void)std::filesystem::last_write_time(file.path);
        }
    };
    if (name) seconds.list = median_seconds_of(list);
    return seconds;
}
