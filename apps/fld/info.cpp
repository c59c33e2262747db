#include "info.h"

#include "grid.h"
#include "json_output.h"
#include "output.h"

#include <array>
#include <filesystem>
#include <new>
#include <optional>

namespace fld_host
{

// ---- gathering ----

struct GridInfo {
    int32_t number = 0;
    int32_t node_count = 0;
    std::array<ValueRange, 3> box;
    std::array<int64_t, SHAPE_COUNT> cells{};
    int64_t flagged_faces = 0;
    std::vector<RegionSummary> regions; // one per boundary name
    std::vector<ValueRange> variables;  // one per variable name
    std::string error;                  // not empty: the rest is not known
};

struct FileInfo {
    std::string file;
    std::string reader;
    std::optional<uintmax_t> bytes; // on disk
    int64_t delivered_bytes = 0;    // what the reader handed over
    std::optional<float> time;
    bool results_only = false;
    std::vector<std::string> boundary_names;
    std::vector<std::string> variable_names;
    std::vector<GridInfo> grids;
    std::vector<std::string> errors; // in one line each
};

// Coordinates and values are floats; cells are node numbers and face flags, faces node numbers.
static int64_t delivered_bytes(const GridInfo& grid, int32_t variable_count)
{
    int64_t words = int64_t{grid.node_count} * (3 + variable_count);
    for (size_t shape = 0; shape < SHAPE_COUNT; ++shape) {
        words += grid.cells[shape] * (shape_nodes[shape] + shape_faces[shape]);
    }
    for (const RegionSummary& region : grid.regions) {
        words += 3 * region.triangles + 4 * region.quadrilaterals;
    }
    return 4 * words;
}

// Shows how far a read is.
class ShownSummary : public GridSummary
{
public:
    explicit ShownSummary(std::string what) : what_(std::move(what)) { show_progress(what_); }
    bool go_on(int64_t done, int64_t all) override
    {
        const int64_t percent = all > 0 ? 100 * done / all : 0;
        if (percent != percent_) show_progress(what_ + ", " + std::to_string(percent) + " %");
        percent_ = percent;
        return true;
    }

private:
    std::string what_;
    int64_t percent_ = 0;
};

// What a grid has at its nodes; keeps its memory for the next grid.
struct NodeData {
    FloatBuffer coords;
    FloatBuffer values;
};

static Buffers prepare(const Contents& contents, size_t nodes, NodeData& data)
{
    Buffers buffers{data.coords.prepare(3 * nodes), {}};
    float* const values = data.values.prepare(contents.rows.size() * nodes);
    for (const Variable& variable : contents.variables) {
        buffers.variables.push_back(values + static_cast<size_t>(variable.first_row) * nodes);
    }
    return buffers;
}

// Throws Error.
static void read_grid_info(Dataset& dataset, ShownSummary& summary, NodeData& data, GridInfo& info)
{
    const Contents& contents = dataset.contents();
    const int grid = info.number - 1;
    info.node_count = contents.node_counts[static_cast<size_t>(grid)];
    const auto nodes = static_cast<size_t>(info.node_count);
    dataset.read(grid, dataset.everything(), prepare(contents, nodes, data), summary);
    for (size_t axis = 0; axis < 3; ++axis) {
        info.box[axis] = value_range(data.coords.data() + axis * nodes, nodes);
    }
    info.cells = summary.cells;
    info.flagged_faces = summary.flagged_faces();
    info.regions = summary.regions(contents.boundaries.size());
    for (size_t row = 0; row < contents.rows.size(); ++row) {
        info.variables.push_back(value_range(data.values.data() + row * nodes, nodes));
    }
}

static void read_grids(Dataset& dataset, const std::string& name, FileInfo& info)
{
    NodeData data;
    const size_t count = dataset.contents().node_counts.size();
    for (size_t i = 0; i < count; ++i) {
        const std::string number = std::to_string(i + 1);
        ShownSummary summary("reading " + name + ": grid " + number + " of " +
                             std::to_string(count));
        GridInfo& grid = info.grids.emplace_back();
        grid.number = static_cast<int32_t>(i) + 1;
        std::string error;
        try {
            read_grid_info(dataset, summary, data, grid);
            info.delivered_bytes +=
                delivered_bytes(grid, static_cast<int32_t>(info.variable_names.size()));
        } catch (const Error& failure) {
            error = failure.what();
        } catch (const std::bad_alloc&) {
            error = info.file + ": grid " + number + " cannot be read: not enough memory for " +
                    std::to_string(grid.node_count) + " nodes";
        }
        if (error.empty()) continue;
        grid.error = error;
        info.errors.push_back(error);
    }
}

static FileInfo read_file_info(const std::shared_ptr<Reader>& reader,
                               const std::string& reader_name, const std::string& file)
{
    FileInfo info;
    info.file = file;
    info.reader = reader_name;
    std::error_code failed;
    const uintmax_t bytes = std::filesystem::file_size(file, failed);
    if (!failed) info.bytes = bytes;
    const std::string name = std::filesystem::path(file).filename().string();
    show_progress("reading " + name + ": looking for grids");
    try {
        Dataset dataset(reader, file);
        info.results_only = dataset.contents().results_only;
        info.boundary_names = dataset.contents().boundaries;
        info.variable_names = dataset.contents().rows;
        try {
            info.time = reader->time(file);
        } catch (const Error&) {
            // It is shown as unknown.
        }
        read_grids(dataset, name, info);
    } catch (const Error& failure) {
        info.errors.emplace_back(failure.what());
    }
    (void)fflush(stdout);
    clear_progress();
    pass_on(reader->take_messages());
    for (const std::string& error : info.errors) complain(error);
    return info;
}

// ---- text ----

static constexpr const char* shape_names[SHAPE_COUNT] = {"tetrahedra", "pyramids", "prisms",
                                                         "hexahedra"};

static int64_t cell_total(const GridInfo& grid)
{
    int64_t total = 0;
    for (const int64_t cells : grid.cells) total += cells;
    return total;
}

// The name of a vector's first component also names the vector, after "; ".
static std::string display_name(const std::string& name)
{
    const size_t vector_name = name.find("; ");
    const bool is_component = name.find("(x-component)") < vector_name;
    return printable(is_component ? name.substr(0, vector_name) : name);
}

static std::vector<std::string> range_cells(const ValueRange& range)
{
    if (range.defined == 0) return {"-", "-"};
    return {real_text(range.minimum), real_text(range.maximum)};
}

static void print_grid_size(const GridInfo& grid, FILE* out)
{
    Table table({"nodes", grouped(grid.node_count)});
    table.add({"cells", grouped(cell_total(grid))});
    for (size_t shape = 0; shape < SHAPE_COUNT; ++shape) {
        if (grid.cells[shape] == 0) continue;
        table.add({std::string("  ") + shape_names[shape], grouped(grid.cells[shape])});
    }
    table.add({"flagged cell faces", grouped(grid.flagged_faces)});
    table.print(out, "    ");
}

static void print_bounding_box(const GridInfo& grid, FILE* out)
{
    static constexpr const char* axes[] = {"x", "y", "z"};
    Table table({"bounding box", "minimum", "maximum"});
    for (size_t axis = 0; axis < 3; ++axis) {
        const auto range = range_cells(grid.box[axis]);
        table.add({std::string("  ") + axes[axis], range[0], range[1]});
    }
    (void)fputc('\n', out);
    table.print(out, "    ");
    const int64_t undefined = grid.box[0].undefined + grid.box[1].undefined + grid.box[2].undefined;
    if (undefined > 0) {
        (void)fprintf(out, "      %s coordinates are undefined\n", grouped(undefined).c_str());
    }
}

static void print_regions(const FileInfo& info, const GridInfo& grid, FILE* out)
{
    if (grid.regions.empty()) return;
    Table table({"boundary regions", "faces", "triangles", "quadrilaterals", "flagged", "wall"});
    for (size_t i = 0; i < grid.regions.size(); ++i) {
        const RegionSummary& region = grid.regions[i];
        table.add({"  " + printable(info.boundary_names[i]),
                   grouped(region.triangles + region.quadrilaterals), grouped(region.triangles),
                   grouped(region.quadrilaterals), grouped(region.flagged),
                   region.flagged > 0 ? "yes" : "no"});
    }
    (void)fputc('\n', out);
    table.print(out, "    ");
}

static void print_variables(const FileInfo& info, const GridInfo& grid, FILE* out)
{
    if (grid.variables.empty()) return;
    Table table({"variables", "minimum", "maximum", "undefined"});
    for (size_t i = 0; i < grid.variables.size(); ++i) {
        const auto range = range_cells(grid.variables[i]);
        table.add({"  " + display_name(info.variable_names[i]), range[0], range[1],
                   grouped(grid.variables[i].undefined)});
    }
    (void)fputc('\n', out);
    table.print(out, "    ");
}

static void print_grid(const FileInfo& info, const GridInfo& grid, FILE* out)
{
    (void)fprintf(out, "\n  grid %d of %zu\n", grid.number, info.grids.size());
    if (!grid.error.empty()) {
        (void)fputs("    cannot be read\n", out);
        return;
    }
    print_grid_size(grid, out);
    print_bounding_box(grid, out);
    print_regions(info, grid, out);
    print_variables(info, grid, out);
}

// A file of which not even the grids are known is left to standard error.
static void print_text(const FileInfo& info, FILE* out)
{
    if (info.grids.empty()) return;
    const std::string bytes =
        info.bytes ? grouped(static_cast<long long>(*info.bytes)) : std::string("unknown");
    (void)fprintf(out, "%s\n", printable(info.file).c_str());
    (void)fprintf(out, "  reader     %s\n", printable(info.reader).c_str());
    (void)fprintf(out, "  bytes      %s on disk, %s delivered by the reader\n", bytes.c_str(),
                  grouped(info.delivered_bytes).c_str());
    (void)fprintf(out, "  time       %s\n", info.time ? real_text(*info.time).c_str() : "unknown");
    (void)fprintf(out, "  grids      %zu%s\n", info.grids.size(),
                  info.results_only ? " (results only; grid 1 is that of an earlier file)" : "");
    for (const GridInfo& grid : info.grids) print_grid(info, grid, out);
}

// ---- JSON ----

static nlohmann::json range_json(const ValueRange& range)
{
    if (range.defined == 0) return {{"minimum", nullptr}, {"maximum", nullptr}};
    return {{"minimum", json_real(range.minimum)}, {"maximum", json_real(range.maximum)}};
}

static nlohmann::json grid_json(const FileInfo& info, const GridInfo& grid)
{
    if (!grid.error.empty()) return {{"number", grid.number}, {"error", grid.error}};
    nlohmann::json result = {{"number", grid.number},
                             {"nodes", grid.node_count},
                             {"flagged_faces", grid.flagged_faces},
                             {"boundary_regions", nlohmann::json::array()},
                             {"variables", nlohmann::json::array()}};
    for (size_t axis = 0; axis < 3; ++axis) {
        result["bounding_box"][std::string(1, "xyz"[axis])] = range_json(grid.box[axis]);
    }
    for (size_t shape = 0; shape < SHAPE_COUNT; ++shape) {
        result["cells"][shape_names[shape]] = grid.cells[shape];
    }
    for (size_t i = 0; i < grid.regions.size(); ++i) {
        const RegionSummary& region = grid.regions[i];
        result["boundary_regions"].push_back({{"name", info.boundary_names[i]},
                                              {"faces", region.triangles + region.quadrilaterals},
                                              {"triangles", region.triangles},
                                              {"quadrilaterals", region.quadrilaterals},
                                              {"flagged_faces", region.flagged},
                                              {"wall", region.flagged > 0}});
    }
    for (size_t i = 0; i < grid.variables.size(); ++i) {
        nlohmann::json variable = range_json(grid.variables[i]);
        variable["name"] = info.variable_names[i];
        variable["undefined"] = grid.variables[i].undefined;
        result["variables"].push_back(std::move(variable));
    }
    return result;
}

static nlohmann::json file_json(const FileInfo& info)
{
    nlohmann::json result = {{"file", info.file}, {"reader", info.reader}};
    result["bytes"] = info.bytes ? nlohmann::json(*info.bytes) : nlohmann::json(nullptr);
    if (!info.errors.empty()) result["errors"] = info.errors;
    if (info.grids.empty()) return result;
    result["delivered_bytes"] = info.delivered_bytes;
    result["time"] = info.time ? json_real(*info.time) : nlohmann::json(nullptr);
    result["results_only"] = info.results_only;
    for (const GridInfo& grid : info.grids) result["grids"].push_back(grid_json(info, grid));
    return result;
}

bool run_info(const std::shared_ptr<Reader>& reader, const std::string& reader_name,
              const std::vector<std::string>& files, bool json, FILE* out)
{
    bool all_read = true;
    bool printed = false;
    nlohmann::json results = nlohmann::json::array();
    for (const std::string& file : files) {
        const FileInfo info = read_file_info(reader, reader_name, file);
        all_read = all_read && info.errors.empty();
        if (json) {
            results.push_back(file_json(info));
            continue;
        }
        if (printed && !info.grids.empty()) (void)fputc('\n', out);
        printed = printed || !info.grids.empty();
        print_text(info, out);
        // Ahead of what the next file has to say on standard error.
        (void)fflush(out);
    }
    if (json) print_json(results, out);
    return all_read;
}

} // namespace fld_host
