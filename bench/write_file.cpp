#include "write_file.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <type_traits>
#include <vector>

namespace
{

constexpr int32_t BIAS = 1;
constexpr float UNUSED = -1.0e30F;
constexpr int64_t LONGEST_SUBRECORD = 2'147'483'632;
constexpr size_t BUFFER_SIZE = size_t{4} << 20;

struct CloseFile {
    void operator()(FILE* file) const { fclose(file); }
};

// ---- records and items ----

class RecordWriter
{
public:
    RecordWriter(const std::string& path, const FileForm& form)
        : file_(fopen(path.c_str(), "wb")), form_(form), buffer_(BUFFER_SIZE)
    {
        if (!file_) throw std::runtime_error("cannot write " + path);
        setvbuf(file_.get(), nullptr, _IONBF, 0);
    }

    // One record of `count` values, value_of(0) first.
    template <class T, class ValueOf> void record(int64_t count, ValueOf value_of)
    {
        constexpr auto size = static_cast<int64_t>(sizeof(T));
        const int64_t piece = (form_.subrecord > 0 ? form_.subrecord : LONGEST_SUBRECORD) / size;
        int64_t at = 0;
        do {
            const int64_t n = std::min(piece, count - at);
            const auto length = static_cast<int32_t>(n * size);
            put(at + n < count ? -length : length);
            for (int64_t i = at; i < at + n; ++i) put(static_cast<T>(value_of(i)));
            put(at > 0 ? -length : length);
            at += n;
        } while (at < count);
        ++records_;
    }

    void text_record(const std::string& text)
    {
        record<char>(static_cast<int64_t>(text.size()),
                     [&](int64_t i) { return text[static_cast<size_t>(i)]; });
    }

    void triple(int64_t first, int64_t second, int64_t third)
    {
        const std::array values{first, second, third};
        record<int32_t>(3, [&](int64_t i) { return values[static_cast<size_t>(i)]; });
    }

    template <class T, class ValueOf> void array(int64_t count, ValueOf value_of)
    {
        const int64_t wanted = form_.values_per_record;
        const int64_t per_record = wanted > 0 ? std::min(wanted, count) : count;
        triple(sizeof(T), per_record, count > 0 ? (count - 1) / per_record + 1 : 1);
        int64_t first = 0;
        do {
            record<T>(std::min(per_record, count - first),
                      [&](int64_t i) { return value_of(first + i); });
            first += per_record;
        } while (first < count);
    }

    template <class T> void value(T single)
    {
        triple(sizeof(T), 1, 1);
        record<T>(1, [&](int64_t) { return single; });
    }
    void integer(int64_t number) { value(static_cast<int32_t>(number)); }

    void text(const std::string& characters)
    {
        triple(1, static_cast<int64_t>(characters.size()), 1);
        text_record(characters);
    }

    void name(std::string words)
    {
        words.resize(32, ' ');
        text_record(words);
    }
    void end() { triple(0, 0, 0); }

    // Reals in the precision of the file.
    template <class ValueOf> void reals(int64_t count, ValueOf value_of)
    {
        if (form_.doubles) {
            array<double>(count, value_of);
        } else {
            array<float>(count, value_of);
        }
    }

    // What is still in the buffer goes out; fills in the totals.
    void finish(FileFacts* facts)
    {
        flush();
        facts->bytes = bytes_;
        facts->records = records_;
    }

private:
    template <class T> void put(T single)
    {
        if (used_ + sizeof single > buffer_.size()) flush();
        std::array<unsigned char, sizeof(T)> bytes = std::bit_cast<decltype(bytes)>(single);
        if (form_.big_endian) std::reverse(bytes.begin(), bytes.end());
        memcpy(buffer_.data() + used_, bytes.data(), sizeof single);
        used_ += sizeof single;
    }

    void flush()
    {
        if (fwrite(buffer_.data(), 1, used_, file_.get()) != used_) {
            throw std::runtime_error("the disk does not take the file");
        }
        bytes_ += static_cast<int64_t>(used_);
        used_ = 0;
    }

    std::unique_ptr<FILE, CloseFile> file_;
    const FileForm& form_;
    std::vector<unsigned char> buffer_;
    size_t used_ = 0;
    int64_t bytes_ = 0;
    int64_t records_ = 0;
};

// ---- the block ----

// n nodes in each direction, x fastest.
struct Block {
    int64_t n;

    [[nodiscard]] int64_t nodes() const { return n * n * n; }
    [[nodiscard]] int64_t cells() const { return (n - 1) * (n - 1) * (n - 1); }
    [[nodiscard]] std::array<int64_t, 8> cell_nodes(int64_t cell) const
    {
        const int64_t m = n - 1;
        const int64_t low = cell % m + n * (cell / m % m + n * (cell / (m * m))) + BIAS;
        const int64_t high = low + n * n;
        return {low, low + 1, low + n + 1, low + n, high, high + 1, high + n + 1, high + n};
    }
};

// The corners of each side of a cell, going round it.
constexpr std::array<std::array<int, 4>, 6> SIDES = {
    {{0, 3, 7, 4}, {1, 2, 6, 5}, {0, 1, 2, 3}, {4, 5, 6, 7}, {0, 1, 5, 4}, {3, 2, 6, 7}}};

// A region of boundary faces: the same side of elements spread over the whole block.
struct Region {
    std::string name;
    const char* type;
    int64_t faces;
    int side;

    [[nodiscard]] int64_t element(const Block& block, int64_t face) const
    {
        return (face * 6 + side) * block.cells() / (faces * 6);
    }
};

// Walls come as six regions, as those of a block do: each in order of its elements, not so all of
// them together.
std::vector<Region> regions_of(const FileForm& form)
{
    std::vector<Region> regions;
    if (form.faces > 0) regions.push_back({"inlet ", "INLET(VELOCITY)", form.faces, 0});
    for (int side = 0; form.wall_faces >= 6 && side < 6; ++side) {
        regions.push_back(
            {"wall_" + std::to_string(side), "Wall_Boundary", form.wall_faces / 6, side});
    }
    return regions;
}

// ---- sections ----

void write_header(RecordWriter& out, const FileForm& form)
{
    out.text_record("CRDL-FLD");
    out.record<int32_t>(1, [](int64_t) { return 4; });
    out.name("Dimension");
    out.integer(3);
    out.end();
    out.name("Bias");
    out.integer(BIAS);
    out.end();
    out.name("Unused");
    out.value(UNUSED);
    if (form.doubles) out.value(double{UNUSED});
    out.end();
    out.name("HeaderDataEnd");
}

void write_nodes(RecordWriter& out, const FileForm& form, const Block& block)
{
    const int64_t n = block.n;
    const double angle = form.cylindrical ? 6.28 / static_cast<double>(n) : 1;
    out.name("LS_CoordinateSystem");
    out.integer(0);
    out.integer(form.cylindrical ? 1 : 0);
    out.end();
    out.name("LS_Nodes");
    out.integer(0);
    out.integer(block.nodes());
    out.reals(block.nodes(), [=](int64_t i) { return static_cast<double>(i % n + 1); });
    out.reals(block.nodes(), [=](int64_t i) { return angle * static_cast<double>(i / n % n); });
    out.reals(block.nodes(), [=](int64_t i) {
        const int64_t layer = i / (n * n);
        return static_cast<double>(layer);
    });
    out.end();
}

void write_region_types(RecordWriter& out, const std::vector<Region>& regions)
{
    out.name("LS_RegionName&Type");
    out.integer(0);
    out.integer(static_cast<int64_t>(regions.size()));
    out.integer(6);
    for (const Region& region : regions) {
        out.text(region.type);
        out.text(region.name);
    }
    out.end();
}

void write_surfaces(RecordWriter& out, const Block& block, const std::vector<Region>& regions)
{
    out.name("LS_SurfaceGeometry");
    out.integer(0);
    out.integer(static_cast<int64_t>(regions.size()));
    out.integer(6);
    for (const Region& region : regions) {
        const auto& corners = SIDES[static_cast<size_t>(region.side)];
        out.text(region.name);
        out.integer(region.faces);
        out.array<int32_t>(region.faces, [](int64_t) { return 134; });
        out.array<int32_t>(region.faces,
                           [&](int64_t i) { return region.element(block, i) + BIAS; });
        out.integer(region.faces * 4);
        out.array<int32_t>(region.faces * 4, [&](int64_t i) {
            const auto nodes = block.cell_nodes(region.element(block, i / 4));
            return nodes[static_cast<size_t>(corners[static_cast<size_t>(i % 4)])];
        });
    }
    out.end();
}

void write_elements(RecordWriter& out, const Block& block, int64_t cells)
{
    out.name("LS_MatOfElements");
    out.integer(0);
    out.integer(cells);
    out.array<int32_t>(cells, [](int64_t) { return 1; });
    out.end();
    out.name("LS_Elements");
    out.integer(0);
    out.integer(cells);
    out.array<int32_t>(cells, [](int64_t) { return 38; });
    out.integer(cells * 8);
    std::array<int64_t, 8> nodes{};
    out.array<int32_t>(cells * 8, [&](int64_t i) {
        if (i % 8 == 0) nodes = block.cell_nodes(i / 8);
        return nodes[static_cast<size_t>(i % 8)];
    });
    out.end();
}

void write_variables(RecordWriter& out, const FileForm& form, const Block& block)
{
    const auto value = [](int64_t i) { return 0.5 * static_cast<double>(i & 1023); };
    for (int32_t k = 0; k < form.scalars; ++k) {
        out.name("LS_Scalar:S" + std::to_string(k));
        out.integer(0);
        out.text("Scalar " + std::to_string(k));
        out.integer(block.nodes());
        out.reals(block.nodes(), value);
        out.end();
    }
    if (!form.vector) return;
    out.name("LS_Vector:VEL");
    out.integer(0);
    out.integer(0);
    out.text("Velocity");
    out.integer(block.nodes());
    for (int component = 0; component < 3; ++component) out.reals(block.nodes(), value);
    out.end();
}

void write_mesh(RecordWriter& out, const FileForm& form, const Block& block, int32_t grid,
                FileFacts* facts)
{
    const auto regions = grid == 0 && form.cells ? regions_of(form) : std::vector<Region>();
    for (const Region& region : regions) facts->faces += region.faces;
    write_nodes(out, form, block);
    if (!regions.empty()) {
        write_region_types(out, regions);
        write_surfaces(out, block, regions);
    }
    write_elements(out, block, facts->grid_cells);
}

} // namespace

FileFacts write_fld_file(const std::string& path, const FileForm& form)
{
    const double grid_nodes = static_cast<double>(form.nodes) / form.grids;
    const Block block{std::max<int64_t>(3, std::llround(std::cbrt(grid_nodes)))};
    FileFacts facts;
    facts.grid_nodes = block.nodes();
    facts.grid_cells = form.cells && !form.results ? block.cells() : 0;
    facts.nodes = block.nodes() * form.grids;

    RecordWriter out(path, form);
    write_header(out, form);
    for (int32_t grid = 0; grid < form.grids; ++grid) {
        out.name("OverlapStart_" + std::to_string(grid));
        if (!form.results) write_mesh(out, form, block, grid, &facts);
        write_variables(out, form, block);
    }
    out.name("OverlapEnd");
    out.finish(&facts);
    return facts;
}
