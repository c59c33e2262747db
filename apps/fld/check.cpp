#include "check.h"

#include "grid.h"
#include "json_output.h"
#include "output.h"
#include "record_walk.h"

#include <algorithm>
#include <filesystem>
#include <new>
#include <sstream>

namespace fld_host
{

// ---- gathering ----

struct FileCheck {
    std::string file;
    FileWalk walk;
    // What the reader makes of the file.
    bool opened = false;
    std::string open_error;
    bool results_only = false;
    bool grid_file_found = true;
    std::vector<std::string> grid_errors; // one entry per grid, empty for one that can be read
};

// A reader that reads the grid to its end delivers it all: nothing of it is kept.
class PassedOver : public GridSink
{
public:
    const DirectSink* direct() override { return &nothing_; }

private:
    DirectSink nothing_;
};

// The failure with a loaded reader's own last words.
static std::string reader_error(const Error& failure)
{
    constexpr size_t most_lines = 3;
    std::vector<std::string> lines;
    std::istringstream text(take_library_text());
    for (std::string line; std::getline(text, line);) {
        if (line.starts_with("Data reader warning: ")) continue;
        lines.push_back(line);
        if (lines.size() > most_lines) lines.erase(lines.begin());
    }
    std::string error = failure.what();
    for (const std::string& line : lines)
        error += &line == lines.data() ? ": " + line : " / " + line;
    return error;
}

static void read_all_grids(Dataset& dataset, const std::string& name, FileCheck& check)
{
    FloatBuffer coords;
    FloatBuffer values;
    PassedOver sink;
    const Contents& contents = dataset.contents();
    for (size_t grid = 0; grid < contents.node_counts.size(); ++grid) {
        show_progress("checking " + name + ": reading grid " + std::to_string(grid + 1) + " of " +
                      std::to_string(contents.node_counts.size()));
        (void)take_library_text();
        const auto nodes = static_cast<size_t>(contents.node_counts[grid]);
        try {
            Buffers buffers{coords.prepare(3 * nodes), {}};
            float* const rows = values.prepare(contents.rows.size() * nodes);
            for (const Variable& variable : contents.variables) {
                buffers.variables.push_back(rows + static_cast<size_t>(variable.first_row) * nodes);
            }
            dataset.read(static_cast<int>(grid), dataset.everything(), buffers, sink);
            check.grid_errors.emplace_back();
        } catch (const Error& failure) {
            check.grid_errors.push_back(reader_error(failure));
        } catch (const std::bad_alloc&) {
            check.grid_errors.push_back("grid " + std::to_string(grid + 1) +
                                        " cannot be read: not enough memory");
        }
    }
}

static FileCheck check_file(const std::shared_ptr<Reader>& reader, const std::string& file)
{
    FileCheck check;
    check.file = file;
    const std::string name = std::filesystem::path(file).filename().string();
    show_progress("checking " + name + ": walking its records");
    check.walk = walk_file(file);
    show_progress("checking " + name + ": opening it");
    (void)take_library_text();
    try {
        Dataset dataset(reader, file);
        check.opened = true;
        check.results_only = dataset.contents().results_only;
        read_all_grids(dataset, name, check);
    } catch (const Error& failure) {
        check.open_error = reader_error(failure);
        check.grid_file_found =
            failure.kind != Error::Kind::no_grid_file &&
            check.open_error.find("Data reader error: unable to find grid file") ==
                std::string::npos;
        check.results_only = !check.grid_file_found;
    }
    (void)fflush(stdout);
    clear_progress();
    pass_on(reader->take_messages());
    return check;
}

static int64_t unread_grids(const FileCheck& check)
{
    return std::count_if(check.grid_errors.begin(), check.grid_errors.end(),
                         [](const std::string& error) { return !error.empty(); });
}

static bool is_whole(const FileCheck& check)
{
    const bool readable = check.opened ? unread_grids(check) == 0 : !check.grid_file_found;
    return check.walk.damage.empty() && readable;
}

// ---- text ----

static std::string counted(int64_t count, const char* what)
{
    return grouped(count) + ' ' + what + (count == 1 ? "" : "s");
}

static void print_row(FILE* out, const char* label, const std::string& text)
{
    (void)fprintf(out, "  %-8s  %s\n", label, printable(text).c_str());
}

static std::string place_text(const WalkPlace& place)
{
    std::string text = "record " + grouped(place.record) + " at byte " + grouped(place.byte) + ": ";
    text += place.grid == 0 ? "header" : "grid " + grouped(place.grid);
    if (place.section.empty()) return text;
    text += (place.grid == 0 ? ", keyword " : ", section ") + place.section + ", ";
    const std::string item = "item " + grouped(place.item);
    if (place.data_record == 0) return text + item + " (descriptor) or end record";
    return text + item + ", data record " + grouped(place.data_record) + " of " +
           grouped(place.data_records);
}

static std::string intact_text(const FileWalk& walk)
{
    std::string text = "the first " + counted(walk.intact_bytes, "byte") + ": header";
    for (int32_t grid = 1; grid < walk.grids; ++grid) text += ", grid " + grouped(grid);
    for (const std::string& name : walk.intact_sections) {
        const bool is_first = &name == walk.intact_sections.data();
        text += (is_first ? "; of grid " + grouped(walk.grids) + ' ' : ", ") + name;
    }
    return text;
}

static void print_reader_rows(const FileCheck& check, FILE* out)
{
    if (!check.opened) {
        print_row(out, "reader", check.open_error);
        print_row(out, "readable", "nothing as it is");
        return;
    }
    constexpr int64_t most_errors = 10;
    int64_t errors = 0;
    for (const std::string& error : check.grid_errors) {
        if (!error.empty() && ++errors <= most_errors) print_row(out, "reader", error);
    }
    const auto grids = static_cast<int64_t>(check.grid_errors.size());
    print_row(out, "readable", grouped(grids - errors) + " of " + counted(grids, "grid"));
}

static void print_damaged(const FileCheck& check, FILE* out)
{
    const FileWalk& walk = check.walk;
    if (walk.place.record > 0 && !walk.damage.empty()) {
        print_row(out, "damage", walk.damage);
        print_row(out, "place", place_text(walk.place));
        if (walk.intact_bytes > 0) print_row(out, "intact", intact_text(walk));
    }
    if (walk.damage.empty()) {
        print_row(out, "records",
                  "all in order up to OverlapEnd; the reader refuses what they hold");
    }
    print_reader_rows(check, out);
}

static std::string headline(const FileCheck& check)
{
    const FileWalk& walk = check.walk;
    if (walk.place.record == 0) return walk.damage;
    const std::string order = walk.big_endian ? ", big-endian, " : ", little-endian, ";
    if (!is_whole(check)) {
        return (walk.damage.empty() ? "not readable" : "damaged") + order +
               counted(walk.records, "good record") + ", " + counted(walk.bytes, "byte");
    }
    std::string text = "whole" + order + counted(walk.grids, "grid") + ", " +
                       counted(walk.records, "record") + ", " + counted(walk.bytes, "byte");
    if (check.results_only) text += ", results only";
    if (!check.grid_file_found) text += "; its grid file was not found, so nothing can be read";
    return text;
}

static void print_text(const FileCheck& check, size_t name_width, FILE* out)
{
    const std::string name = printable(check.file) + ':';
    const std::string padding(name_width - display_width(name), ' ');
    (void)fprintf(out, "%s%s %s\n", name.c_str(), padding.c_str(),
                  printable(headline(check)).c_str());
    if (check.walk.bytes_after_end > 0) {
        print_row(out, "note",
                  counted(check.walk.bytes_after_end, "byte") +
                      " after OverlapEnd, which nothing reads");
    }
    if (!is_whole(check) && check.walk.place.record > 0) print_damaged(check, out);
}

// ---- JSON ----

static nlohmann::json damage_json(const FileWalk& walk)
{
    const WalkPlace& place = walk.place;
    nlohmann::json result = {{"what", walk.damage}};
    if (place.record == 0) return result;
    result["record"] = place.record;
    result["byte"] = place.byte;
    result["grid"] = place.grid == 0 ? nlohmann::json(nullptr) : nlohmann::json(place.grid);
    if (place.section.empty()) return result;
    result[place.grid == 0 ? "keyword" : "section"] = place.section;
    result["item"] = place.item;
    if (place.data_record > 0) result["data_record"] = place.data_record;
    return result;
}

static nlohmann::json file_json(const FileCheck& check)
{
    const FileWalk& walk = check.walk;
    nlohmann::json result = {{"file", check.file}, {"whole", is_whole(check)}};
    if (!walk.damage.empty()) result["damage"] = damage_json(walk);
    if (walk.place.record > 0) {
        result["bytes"] = walk.bytes;
        result["byte_order"] = walk.big_endian ? "big" : "little";
        result["records"] = walk.records;
        result["grids"] = walk.grids;
        result["intact_bytes"] = walk.damage.empty() ? walk.bytes : walk.intact_bytes;
        result["bytes_after_end"] = walk.bytes_after_end;
    }
    if (!check.opened) result["error"] = check.open_error;
    if (check.opened || !check.grid_file_found) {
        result["results_only"] = check.results_only;
        result["grid_file_found"] = check.grid_file_found;
    }
    result["readable_grids"] = nlohmann::json::array();
    for (size_t i = 0; i < check.grid_errors.size(); ++i) {
        const std::string& error = check.grid_errors[i];
        if (error.empty())
            result["readable_grids"].push_back(i + 1);
        else
            result["errors"].push_back(error);
    }
    return result;
}

bool run_check(const std::shared_ptr<Reader>& reader, const std::vector<std::string>& files,
               bool json, FILE* out)
{
    size_t name_width = 0;
    for (const std::string& file : files) {
        name_width = std::max(name_width, display_width(printable(file)) + 1);
    }
    bool all_whole = true;
    nlohmann::json results = nlohmann::json::array();
    for (const std::string& file : files) {
        const FileCheck check = check_file(reader, file);
        all_whole = all_whole && is_whole(check);
        if (json)
            results.push_back(file_json(check));
        else
            print_text(check, name_width, out);
        // Ahead of what the next file has to say on standard error.
        (void)fflush(out);
    }
    if (json) print_json(results, out);
    return all_whole;
}

} // namespace fld_host
