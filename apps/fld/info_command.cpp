// "fld info": what files hold.
#include "commands.h"

#include "grid.h"
#include "output.h"
#include "paths.h"
#include "ui/util/utf8wrap.h"

#include <algorithm>
#include <array>
#include <new>
#include <optional>

namespace fld_host
{

// ---- gathering ----

// The values of one row of a variable; a vector has three.
struct RowInfo {
    std::string name; // as it is shown
    const Variable* variable;
    int component; // from 0
    ValueSummary values;
    std::array<float, 3> minimum_position{}, maximum_position{};
};

struct GridInfo {
    int number = 0; // from 1
    int64_t node_count = 0;
    std::array<ValueSummary, 3> box;
    std::array<int64_t, SHAPE_COUNT> cells{};
    int64_t flagged_faces = 0;
    std::vector<RegionSummary> regions; // one per boundary name
    std::vector<RowInfo> rows;
    bool is_read = false;
};

struct FileInfo {
    std::string file;
    std::optional<int64_t> bytes; // on disk
    int64_t delivered_bytes = 0;  // what the reader handed over
    std::optional<float> time;
    Contents contents;
    std::vector<GridInfo> grids;
    std::vector<Error> errors;
};

// Coordinates and values are floats; cells are node numbers and face flags, faces node numbers.
static int64_t delivered_bytes(const GridInfo& grid)
{
    int64_t words = grid.node_count * (3 + std::ssize(grid.rows));
    for (size_t shape = 0; shape < SHAPE_COUNT; ++shape) {
        words += grid.cells[shape] * (shape_nodes[shape] + shape_faces[shape]);
    }
    for (const RegionSummary& region : grid.regions) {
        words += 3 * region.triangles + 4 * region.quadrilaterals;
    }
    return 4 * words;
}

class ShownSummary : public GridSummary
{
public:
    ShownSummary(Progress& progress, std::string what) : progress_(progress), what_(std::move(what))
    {
    }
    bool go_on(int64_t done, int64_t all) override { return progress_.show(what_, done, all); }

private:
    Progress& progress_;
    std::string what_;
};

// What a grid has at its nodes; keeps its memory for the next grid.
struct NodeData {
    FloatBuffer coords;
    FloatBuffer values;
};

static std::string row_name(const Contents& contents, const Variable& variable, int component)
{
    std::string name =
        contents.rows[static_cast<size_t>(variable.first_row) + static_cast<size_t>(component)];
    // The name of a vector's first component also names the vector, after "; ".
    if (variable.components == 3 && component == 0)
        name.erase(std::min(name.find("; "), name.size()));
    return name;
}

static std::array<float, 3> position_of(int64_t node, const float* coords, size_t nodes)
{
    const auto at = static_cast<size_t>(node);
    return {coords[at], coords[nodes + at], coords[2 * nodes + at]};
}

static void summarise_variable(const Contents& contents, const Variable& variable,
                               const float* values, const float* coords, GridInfo& info)
{
    const auto nodes = static_cast<size_t>(info.node_count);
    for (int component = 0; component < variable.components; ++component) {
        RowInfo row{row_name(contents, variable, component), &variable, component,
                    summary_of(values + static_cast<size_t>(component) * nodes, nodes)};
        if (row.values.finite > 0) {
            row.minimum_position = position_of(row.values.minimum_at, coords, nodes);
            row.maximum_position = position_of(row.values.maximum_at, coords, nodes);
        }
        info.rows.push_back(std::move(row));
    }
}

static bool is_chosen(const Variable& variable, const InfoChoice& choice)
{
    return choice.variables.empty() ||
           std::any_of(choice.variables.begin(), choice.variables.end(),
                       [&](const std::string& name) { return is_named(variable, name); });
}

// Throws Error. Chosen variables alone need no cells.
static void read_grid_info(Dataset& dataset, const Contents& contents, const InfoChoice& choice,
                           Progress& progress, NodeData& data, GridInfo& info)
{
    const int grid = info.number - 1;
    const auto nodes = static_cast<size_t>(info.node_count);
    Wanted wanted = dataset.everything();
    if (!choice.variables.empty()) wanted = {true, false, false, {}, {}};
    wanted.variables.clear();
    size_t planes = 0;
    for (size_t i = 0; i < contents.variables.size(); ++i) {
        if (!is_chosen(contents.variables[i], choice)) continue;
        wanted.variables.push_back(static_cast<int>(i));
        planes += static_cast<size_t>(contents.variables[i].components);
    }
    float* const coords = data.coords.prepare(3 * nodes);
    Buffers buffers{coords, {}};
    float* next = data.values.prepare(planes * nodes);
    for (const int variable : wanted.variables) {
        buffers.variables.push_back(next);
        next += nodes *
                static_cast<size_t>(contents.variables[static_cast<size_t>(variable)].components);
    }
    ShownSummary summary(progress, "reading grid " + std::to_string(info.number));
    dataset.read(grid, wanted, buffers, summary);
    for (size_t axis = 0; axis < 3; ++axis) {
        info.box[axis] = summary_of(coords + axis * nodes, nodes);
    }
    info.cells = summary.cells;
    info.flagged_faces = summary.flagged_faces();
    if (wanted.cells) info.regions = summary.regions(contents.boundaries.size());
    for (size_t i = 0; i < wanted.variables.size(); ++i) {
        summarise_variable(contents, contents.variables[static_cast<size_t>(wanted.variables[i])],
                           buffers.variables[i], coords, info);
    }
    info.is_read = true;
}

static void read_grids(Dataset& dataset, const InfoChoice& choice, Progress& progress,
                       Report& report, FileInfo& info)
{
    NodeData data;
    const int count = static_cast<int>(info.contents.node_counts.size());
    for (int number = 1; number <= count; ++number) {
        if (!choice.grids.empty() && std::ranges::count(choice.grids, number) == 0) continue;
        GridInfo& grid = info.grids.emplace_back();
        grid.number = number;
        grid.node_count = info.contents.node_counts[static_cast<size_t>(number) - 1];
        try {
            read_grid_info(dataset, info.contents, choice, progress, data, grid);
            info.delivered_bytes += delivered_bytes(grid);
        } catch (const Error& failure) {
            info.errors.push_back(report.fail(failure));
        } catch (const std::bad_alloc&) {
            info.errors.push_back(report.fail(Error(Error::Kind::no_memory, info.file,
                                                    "grid " + std::to_string(number) +
                                                        " cannot be read: not enough memory for " +
                                                        counted(grid.node_count, "node"))));
        }
    }
}

// What was chosen by name or number must be there.
static void check_choice(const FileInfo& info, const InfoChoice& choice)
{
    const auto fail = [&](const std::string& what) {
        throw Error(Error::Kind::cannot_open, info.file, what);
    };
    const auto grids = std::ssize(info.contents.node_counts);
    for (const int grid : choice.grids) {
        if (grid < 1 || grid > grids) {
            fail("has no grid " + std::to_string(grid) + ", but " + counted(grids, "grid"));
        }
    }
    for (const std::string& name : choice.variables) {
        const auto& variables = info.contents.variables;
        if (std::none_of(variables.begin(), variables.end(),
                         [&](const Variable& one) { return is_named(one, name); })) {
            std::string names;
            for (const Variable& one : variables) names += (names.empty() ? "" : ", ") + one.name;
            fail("has no variable \"" + name + "\"" +
                 (names.empty() ? ", it has none" : "; there are " + names));
        }
    }
}

// The variables of `info` must stay where they are: rows point to them.
static void read_file(const Request& request, const InfoChoice& choice, Progress& progress,
                      Report& report, FileInfo& info)
{
    utf8wrap::FileStatus status{};
    const bool is_there = utf8wrap::_stat64(info.file.c_str(), &status) == 0;
    if (is_there && status.is_regular) info.bytes = status.size;
    (void)progress.show("looking for grids");
    try {
        Dataset dataset(request.reader, info.file);
        info.contents = dataset.contents();
        try {
            info.time = request.reader->time(info.file);
        } catch (const Error&) {
            // It is shown as unknown.
        }
        check_choice(info, choice);
        read_grids(dataset, choice, progress, report, info);
    } catch (const Error& failure) {
        info.errors.push_back(report.fail(failure));
    }
    clear_progress();
    report.hear();
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

static std::string text_or_dash(const ValueSummary& values, float value)
{
    return values.finite == 0 ? "-" : real_text(value);
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
    int64_t unknown = 0;
    for (size_t axis = 0; axis < 3; ++axis) {
        const ValueSummary& box = grid.box[axis];
        table.add({std::string("  ") + axes[axis], text_or_dash(box, box.minimum),
                   text_or_dash(box, box.maximum)});
        unknown += grid.node_count - box.finite;
    }
    (void)fputc('\n', out);
    table.print(out, "    ");
    if (unknown > 0) {
        (void)fprintf(out, "      %s coordinates are no finite numbers\n",
                      grouped(unknown).c_str());
    }
}

static void print_regions(const Contents& contents, const GridInfo& grid, FILE* out)
{
    if (grid.regions.empty()) return;
    Table table({"boundary regions", "faces", "triangles", "quadrilaterals", "flagged", "wall"});
    for (size_t i = 0; i < grid.regions.size(); ++i) {
        const RegionSummary& region = grid.regions[i];
        table.add({"  " + printable(contents.boundaries[i]),
                   grouped(region.triangles + region.quadrilaterals), grouped(region.triangles),
                   grouped(region.quadrilaterals), grouped(region.flagged),
                   region.flagged > 0 ? "yes" : "no"});
    }
    (void)fputc('\n', out);
    table.print(out, "    ");
}

static void print_variables(const GridInfo& grid, FILE* out)
{
    if (grid.rows.empty()) return;
    const bool has_others = std::any_of(grid.rows.begin(), grid.rows.end(), [](const RowInfo& row) {
        return row.values.not_numbers + row.values.infinite > 0;
    });
    std::vector<std::string> head = {"variables", "minimum", "maximum", "mean", "undefined"};
    if (has_others) head.insert(head.end(), {"NaN", "infinite"});
    Table table(head);
    Table places({"where", "value", "node", "x", "y", "z"});
    const auto add_place = [&](const char* what, float value, int64_t node,
                               const std::array<float, 3>& at) {
        places.add({what, real_text(value), grouped(node + 1), real_text(at[0]), real_text(at[1]),
                    real_text(at[2])});
    };
    for (const RowInfo& row : grid.rows) {
        const ValueSummary& values = row.values;
        std::vector<std::string> cells = {
            "  " + printable(row.name), text_or_dash(values, values.minimum),
            text_or_dash(values, values.maximum),
            text_or_dash(values, static_cast<float>(values.mean)), grouped(values.undefined)};
        if (has_others) {
            cells.insert(cells.end(), {grouped(values.not_numbers), grouped(values.infinite)});
        }
        table.add(cells);
        if (values.finite == 0) continue;
        places.add({"  " + printable(row.name)});
        add_place("    minimum", values.minimum, values.minimum_at, row.minimum_position);
        add_place("    maximum", values.maximum, values.maximum_at, row.maximum_position);
    }
    (void)fputc('\n', out);
    table.print(out, "    ");
    if (std::all_of(grid.rows.begin(), grid.rows.end(),
                    [](const RowInfo& row) { return row.values.finite == 0; })) {
        return;
    }
    (void)fputc('\n', out);
    places.print(out, "    ");
}

static void print_grid(const FileInfo& info, const GridInfo& grid, bool with_mesh, FILE* out)
{
    (void)fprintf(out, "\n  grid %d of %zu\n", grid.number, info.contents.node_counts.size());
    if (!grid.is_read) {
        (void)fputs("    cannot be read\n", out);
        return;
    }
    if (with_mesh) {
        print_grid_size(grid, out);
        print_bounding_box(grid, out);
        print_regions(info.contents, grid, out);
    }
    print_variables(grid, out);
}

// A file of which not even the grids are known is left to standard error.
static void print_text(const Request& request, const FileInfo& info, bool with_mesh)
{
    if (info.grids.empty()) return;
    FILE* const out = request.out;
    const std::string bytes = info.bytes ? grouped(*info.bytes) : "unknown";
    (void)fprintf(out, "%s\n", printable(info.file).c_str());
    if (!request.reader_name.empty()) {
        (void)fprintf(out, "  read by    %s\n", printable(request.reader_name).c_str());
    }
    (void)fprintf(out, "  bytes      %s on disk, %s delivered by the reader\n", bytes.c_str(),
                  grouped(info.delivered_bytes).c_str());
    (void)fprintf(out, "  time       %s\n", info.time ? real_text(*info.time).c_str() : "unknown");
    (void)fprintf(out, "  grids      %zu\n", info.contents.node_counts.size());
    if (info.contents.results_only) {
        const std::string& file = info.contents.grid_file;
        (void)fprintf(out, "  grid file  %s\n",
                      file.empty() ? "an earlier file of the series" : printable(file).c_str());
    }
    for (const GridInfo& grid : info.grids) print_grid(info, grid, with_mesh, out);
}

// ---- JSON ----

static nlohmann::json place_json(int64_t node, const std::array<float, 3>& position)
{
    return {{"node", node + 1},
            {"position", {json_real(position[0]), json_real(position[1]), json_real(position[2])}}};
}

static nlohmann::json row_json(const RowInfo& row)
{
    const ValueSummary& values = row.values;
    nlohmann::json result = {{"name", row.name},
                             {"key", row.variable->key},
                             {"components", row.variable->components},
                             {"component", row.component + 1},
                             {"finite", values.finite},
                             {"undefined", values.undefined},
                             {"nan", values.not_numbers},
                             {"infinite", values.infinite}};
    if (values.finite == 0) return result;
    result["minimum"] = json_real(values.minimum);
    result["maximum"] = json_real(values.maximum);
    result["mean"] = json_real(values.mean);
    result["minimum_at"] = place_json(values.minimum_at, row.minimum_position);
    result["maximum_at"] = place_json(values.maximum_at, row.maximum_position);
    return result;
}

static nlohmann::json grid_json(const Contents& contents, const GridInfo& grid, bool with_mesh)
{
    nlohmann::json result = {
        {"grid", grid.number}, {"nodes", grid.node_count}, {"read", grid.is_read}};
    if (!grid.is_read) return result;
    result["variables"] = nlohmann::json::array();
    for (const RowInfo& row : grid.rows) result["variables"].push_back(row_json(row));
    if (!with_mesh) return result;
    result["flagged_faces"] = grid.flagged_faces;
    result["boundary_regions"] = nlohmann::json::array();
    for (size_t axis = 0; axis < 3; ++axis) {
        const ValueSummary& box = grid.box[axis];
        if (box.finite == 0) continue;
        result["bounding_box"][std::string(1, "xyz"[axis])] = {{"minimum", json_real(box.minimum)},
                                                               {"maximum", json_real(box.maximum)}};
    }
    for (size_t shape = 0; shape < SHAPE_COUNT; ++shape) {
        result["cells"][shape_names[shape]] = grid.cells[shape];
    }
    for (size_t i = 0; i < grid.regions.size(); ++i) {
        const RegionSummary& region = grid.regions[i];
        result["boundary_regions"].push_back({{"name", contents.boundaries[i]},
                                              {"faces", region.triangles + region.quadrilaterals},
                                              {"triangles", region.triangles},
                                              {"quadrilaterals", region.quadrilaterals},
                                              {"flagged_faces", region.flagged},
                                              {"wall", region.flagged > 0}});
    }
    return result;
}

static nlohmann::json file_json(const Request& request, const FileInfo& info, bool with_mesh)
{
    nlohmann::json result = {{"read_by", request.reader_name.empty()
                                             ? request.reader->names().front()
                                             : request.reader_name},
                             {"errors", nlohmann::json::array()}};
    put_file(result, "file", info.file);
    if (info.bytes) result["bytes"] = *info.bytes;
    for (const Error& error : info.errors) result["errors"].push_back(error_json(error));
    if (info.grids.empty()) return result;
    result["delivered_bytes"] = info.delivered_bytes;
    if (info.time) result["time"] = json_real(*info.time);
    result["results_only"] = info.contents.results_only;
    if (!info.contents.grid_file.empty()) put_file(result, "grid_file", info.contents.grid_file);
    for (const GridInfo& grid : info.grids) {
        result["grids"].push_back(grid_json(info.contents, grid, with_mesh));
    }
    return result;
}

int run_info(const Request& request, const std::vector<std::string>& files,
             const InfoChoice& choice)
{
    Report report(request);
    const bool with_mesh = choice.variables.empty();
    bool printed = false;
    size_t number = 0;
    for (const std::string& file : files) {
        Progress progress(name_of(file), ++number, files.size());
        FileInfo info;
        info.file = file;
        read_file(request, choice, progress, report, info);
        if (request.json) {
            report.add(file_json(request, info, with_mesh));
            continue;
        }
        if (printed && !info.grids.empty()) (void)fputc('\n', request.out);
        printed = printed || !info.grids.empty();
        print_text(request, info, with_mesh);
        // Ahead of what the next file has to say on standard error.
        (void)fflush(request.out);
    }
    report.finish();
    return report.failed() ? FAILURE : DONE;
}

} // namespace fld_host
