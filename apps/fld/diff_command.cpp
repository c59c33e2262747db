// "fld diff": what differs between two files, or two series.
#include "commands.h"

#include "output.h"
#include "platform.h"
#include "series.h"
#include "ui/util/utf8wrap.h"

#include <algorithm>
#include <map>
#include <new>
#include <system_error>

namespace fld_host
{

// ---- text ----

static void print_line(FILE* out, const std::string& text)
{
    (void)fprintf(out, "  %s\n", printable(text).c_str());
}

static void print_names(FILE* out, const char* what, const NamesDifference& names,
                        const FileDifference& files)
{
    if (!names.only_a.empty()) {
        print_line(out, std::string(what) + " only in " + files.a + ": " + folded(names.only_a));
    }
    if (!names.only_b.empty()) {
        print_line(out, std::string(what) + " only in " + files.b + ": " + folded(names.only_b));
    }
}

static std::string component_text(const ValuesDifference& values, const ValueDifference& one)
{
    return values.components == 3 ? std::string(" ") + "xyz"[one.component] : "";
}

static void add_values(const ValuesDifference& values, Table& table)
{
    const auto add = [&](const char* what, const ValueDifference& one) {
        table.add({what, real_text(one.size), grouped(one.node + 1) + component_text(values, one),
                   real_text(one.a), real_text(one.b), real_text(one.position[0]),
                   real_text(one.position[1]), real_text(one.position[2])});
    };
    table.add({"  " + printable(values.name), grouped(values.different) + " differ"});
    if (values.only_one > 0) table.add({"    in one only", grouped(values.only_one)});
    if (values.absolute.node < 0) return;
    add("    absolute", values.absolute);
    add("    relative", values.relative);
    table.add({"    root mean square", real_text(values.root_mean_square)});
}

static void print_grid(const FileDifference& files, const GridDifference& grid, FILE* out)
{
    const std::string name = "grid " + std::to_string(grid.grid + 1) + ": ";
    if (grid.nodes_a != grid.nodes_b) {
        print_line(out, name + counted(grid.nodes_a, "node") + " in " + files.a + ", " +
                            grouped(grid.nodes_b) + " in " + files.b +
                            ": their values are not compared");
    }
    if (grid.cells_a != grid.cells_b) {
        print_line(out, name + counted(grid.cells_a, "cell") + " in " + files.a + ", " +
                            grouped(grid.cells_b) + " in " + files.b);
    }
    if (grid.different_cells > 0) {
        print_line(out, name + counted(grid.different_cells, "cell") +
                            " of other shape, nodes or " + "wall faces, the first is cell " +
                            grouped(grid.first_different_cell + 1));
    }
    if (!grid.other_regions.empty()) {
        print_line(out, name + "other faces of " + folded(grid.other_regions));
    }
    Table table({"  " + name.substr(0, name.size() - 2), "largest", "node", "first", "second", "x",
                 "y", "z"});
    size_t rows = 0;
    const auto add = [&](const ValuesDifference& values) {
        if (values.different == 0) return;
        add_values(values, table);
        ++rows;
    };
    add(grid.coordinates);
    for (const ValuesDifference& values : grid.variables) add(values);
    if (rows > 0) table.print(out, "");
}

static std::string time_text(const std::optional<float>& time)
{
    return time ? real_text(*time) : "unknown";
}

static void print_text(const FileDifference& files, FILE* out)
{
    (void)fprintf(out, "%s and %s: %s\n", printable(files.a).c_str(), printable(files.b).c_str(),
                  files.is_equal() ? "equal" : "different");
    if (!files.same_time) {
        print_line(out, "time " + time_text(files.time_a) + " and " + time_text(files.time_b));
    }
    if (files.grids_a != files.grids_b) {
        print_line(out, counted(files.grids_a, "grid") + " and " + grouped(files.grids_b));
    }
    print_names(out, "variables", files.variables, files);
    print_names(out, "boundary regions", files.boundaries, files);
    for (const GridDifference& grid : files.grids) print_grid(files, grid, out);
}

// ---- JSON ----

static nlohmann::json one_json(const ValueDifference& one)
{
    return {{"size", json_real(one.size)},
            {"node", one.node + 1},
            {"component", one.component + 1},
            {"a", json_real(one.a)},
            {"b", json_real(one.b)},
            {"position",
             {json_real(one.position[0]), json_real(one.position[1]), json_real(one.position[2])}}};
}

static nlohmann::json values_json(const ValuesDifference& values)
{
    nlohmann::json result = {
        {"name", values.name},         {"components", values.components},
        {"compared", values.compared}, {"different", values.different},
        {"only_one", values.only_one}, {"root_mean_square", json_real(values.root_mean_square)}};
    if (values.absolute.node < 0) return result;
    result["largest_absolute"] = one_json(values.absolute);
    result["largest_relative"] = one_json(values.relative);
    return result;
}

static nlohmann::json grid_json(const GridDifference& grid)
{
    nlohmann::json result = {{"grid", grid.grid + 1},
                             {"equal", grid.is_equal()},
                             {"nodes", {grid.nodes_a, grid.nodes_b}},
                             {"same_mesh_file", grid.same_mesh_file},
                             {"variables", nlohmann::json::array()}};
    if (!grid.same_mesh_file) {
        result["cells"] = {grid.cells_a, grid.cells_b};
        result["different_cells"] = grid.different_cells;
        result["different_regions"] = grid.other_regions;
        if (grid.nodes_a == grid.nodes_b) result["coordinates"] = values_json(grid.coordinates);
    }
    for (const ValuesDifference& values : grid.variables) {
        result["variables"].push_back(values_json(values));
    }
    return result;
}

static nlohmann::json names_json(const NamesDifference& names)
{
    return {{"only_a", names.only_a}, {"only_b", names.only_b}};
}

static nlohmann::json files_json(const FileDifference& files)
{
    nlohmann::json result = {{"equal", files.is_equal()},
                             {"same_time", files.same_time},
                             {"number_of_grids", {files.grids_a, files.grids_b}},
                             {"variables", names_json(files.variables)},
                             {"boundary_regions", names_json(files.boundaries)},
                             {"grids", nlohmann::json::array()}};
    put_file(result, "a", files.a);
    put_file(result, "b", files.b);
    for (const GridDifference& grid : files.grids) result["grids"].push_back(grid_json(grid));
    return result;
}

// ---- the command ----

using Pair = std::pair<std::string, std::string>; // an empty name: there is none

static std::vector<SeriesFile> steps_of(const std::string& file)
{
    if (!split_series_name(file)) {
        throw Error(Error::Kind::cannot_open, file,
                    "the name has no number, so the file is part of no series");
    }
    const std::string misnamed = why_in_no_series(file);
    if (!misnamed.empty()) throw Error(Error::Kind::cannot_open, file, misnamed);
    std::vector<SeriesFile> files;
    try {
        files = list_steps(file);
    } catch (const std::system_error& failure) {
        throw Error(Error::Kind::cannot_open, file, error_text(failure.code().value()));
    }
    if (files.empty()) throw Error(Error::Kind::cannot_open, file, "there is no such series");
    return files;
}

// Steps of one number, those whose numbers are written alike first.
static void add_pairs(std::vector<SeriesFile> a, std::vector<SeriesFile> b,
                      std::vector<Pair>& pairs)
{
    using Place = std::vector<SeriesFile>::iterator;
    const auto digits = [](const SeriesFile& file) { return split_series_name(file.path)->digits; };
    const auto take = [&](Place one, Place other) {
        pairs.emplace_back(one->path, other->path);
        b.erase(other);
        return a.erase(one);
    };
    for (auto one = a.begin(); one != a.end();) {
        const auto other = std::find_if(b.begin(), b.end(), [&](const SeriesFile& file) {
            return digits(file) == digits(*one);
        });
        one = other == b.end() ? one + 1 : take(one, other);
    }
    while (!a.empty() && !b.empty()) (void)take(a.begin(), b.begin());
    pairs.reserve(pairs.size() + a.size() + b.size());
    for (const SeriesFile& file : a) pairs.emplace_back(file.path, "");
    for (const SeriesFile& file : b) pairs.emplace_back("", file.path);
}

static bool is_same_file(const std::string& a, const std::string& b)
{
    utf8wrap::FileStatus status_a{};
    utf8wrap::FileStatus status_b{};
    return utf8wrap::_stat64(a.c_str(), &status_a) == 0 &&
           utf8wrap::_stat64(b.c_str(), &status_b) == 0 && status_a.device == status_b.device &&
           status_a.file_number == status_b.file_number;
}

static std::vector<Pair> pairs_of(const std::string& a, const std::string& b)
{
    const std::vector<SeriesFile> files_a = steps_of(a);
    const std::vector<SeriesFile> files_b = steps_of(b);
    if (is_same_file(files_a[0].path, files_b[0].path)) {
        throw Error(Error::Kind::cannot_open, b, "is part of the same series as " + a);
    }
    struct Step {
        std::vector<SeriesFile> a, b;
    };
    std::map<std::pair<size_t, std::string>, Step> steps; // longer numbers are larger
    for (const SeriesFile& file : files_a)
        steps[{file.number.size(), file.number}].a.push_back(file);
    for (const SeriesFile& file : files_b)
        steps[{file.number.size(), file.number}].b.push_back(file);
    std::vector<Pair> pairs;
    for (const auto& [number, step] : steps) add_pairs(step.a, step.b, pairs);
    return pairs;
}

// Whether the two are equal; false also when one is missing. Throws Error.
static bool compare_pair(const Request& request, const Pair& pair, const Tolerances& tolerances,
                         Report& report)
{
    if (pair.first.empty() || pair.second.empty()) {
        const std::string& file = pair.first.empty() ? pair.second : pair.first;
        if (request.json) {
            nlohmann::json result = {{"equal", false}};
            put_file(result, pair.first.empty() ? "b" : "a", file);
            report.add(std::move(result));
        } else {
            (void)fprintf(request.out, "%s: no such step in the other series\n",
                          printable(file).c_str());
        }
        return false;
    }
    Progress progress("comparing");
    const FileDifference difference =
        compare_files(request.reader, pair.first, pair.second, tolerances,
                      [&](const std::string& file, const std::string& what, int64_t done,
                          int64_t all) { return progress.show(file + ", " + what, done, all); });
    clear_progress();
    report.hear();
    if (request.json)
        report.add(files_json(difference));
    else
        print_text(difference, request.out);
    return difference.is_equal();
}

int run_diff(const Request& request, const std::string& a, const std::string& b,
             const Tolerances& tolerances, bool whole_series)
{
    Report report(request);
    bool equal = true;
    try {
        const std::vector<Pair> pairs = whole_series ? pairs_of(a, b) : std::vector<Pair>{{a, b}};
        for (const Pair& pair : pairs) {
            try {
                equal = compare_pair(request, pair, tolerances, report) && equal;
            } catch (const Error& failure) {
                (void)report.fail(failure);
            } catch (const std::bad_alloc&) {
                (void)report.fail(Error(Error::Kind::no_memory, pair.first,
                                        "cannot be compared: not enough memory"));
            }
            (void)fflush(request.out);
        }
    } catch (const Error& failure) {
        (void)report.fail(failure);
    }
    report.finish();
    if (report.failed()) return UNREADABLE;
    return equal ? DONE : DIFFERENT;
}

} // namespace fld_host
