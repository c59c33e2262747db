// "fld check": whether files are whole, and where they are not.
#include "commands.h"

#include "check.h"
#include "output.h"
#include "paths.h"
#include "salvage.h"
#include "series.h"

#include <algorithm>
#include <cstring>

namespace fld_host
{

// ---- text ----

static void print_row(FILE* out, const char* label, const std::string& text)
{
    print_folded(out, "  " + (label + std::string(10 - strlen(label), ' ')), printable(text));
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

static std::vector<std::string> sections_of_grid(const FileWalk& walk, int32_t grid, size_t count)
{
    std::vector<std::string> names;
    for (size_t i = 0; i < count; ++i) {
        if (walk.sections[i].grid == grid) names.push_back(walk.sections[i].name);
    }
    return names;
}

// What a start of the file with so many of its sections holds.
static std::string start_text(const FileWalk& walk, int64_t bytes, int32_t grids, size_t sections)
{
    std::string text = "the first " + counted(bytes, "byte") + ": header";
    for (int32_t grid = 1; grid < grids; ++grid) text += ", grid " + grouped(grid);
    const std::string last = folded(sections_of_grid(walk, grids, sections));
    return last.empty() ? text : text + "; of grid " + grouped(grids) + ' ' + last;
}

// A file in good order is refused for what it holds: a start of it is what is left to hope for.
static std::vector<Start> starts_of(const FileWalk& walk)
{
    std::vector<Start> starts = readable_starts(walk);
    if (walk.damage.empty() && !starts.empty()) starts.erase(starts.begin());
    return starts;
}

static std::string salvage_text(const FileWalk& walk)
{
    const std::vector<Start> starts = starts_of(walk);
    if (starts.empty()) return "nothing: no grid has all that it takes to read it";
    const Start& start = starts.front();
    const std::string at_most = "\"fld salvage\" would give at most ";
    if (start.bytes == walk.intact_bytes) {
        return at_most + "all that is intact, " + counted(start.grids, "grid");
    }
    return at_most + counted(start.grids, "grid") + ", the last with " +
           folded(sections_of_grid(walk, start.grids, start.sections));
}

static void print_reader_rows(const FileCheck& check, FILE* out)
{
    if (!check.opened()) {
        print_row(out, "readable", "nothing as it is");
        return;
    }
    const auto grids = std::ssize(check.grid_errors);
    print_row(out, "readable",
              grouped(grids - check.unread_grids()) + " of " + counted(grids, "grid"));
}

static void print_damaged(const FileCheck& check, FILE* out)
{
    const FileWalk& walk = check.walk;
    if (!walk.damage.empty()) {
        print_row(out, "damage", walk.damage);
        print_row(out, "place", place_text(walk.place));
        if (walk.intact_bytes > 0) {
            print_row(out, "intact",
                      start_text(walk, walk.intact_bytes, walk.grids, walk.sections.size()));
        }
    } else {
        print_row(out, "records",
                  "all in order up to OverlapEnd; the reader refuses what they hold");
    }
    print_reader_rows(check, out);
    print_row(out, "salvage", salvage_text(walk));
}

static std::string headline(const FileCheck& check)
{
    const FileWalk& walk = check.walk;
    if (walk.place.record == 0) return walk.damage;
    const std::string order = walk.big_endian ? ", big-endian, " : ", little-endian, ";
    if (!check.is_whole()) {
        return (walk.damage.empty() ? "not readable" : "damaged") + order +
               counted(walk.records, "good record") + ", " + counted(walk.bytes, "byte");
    }
    std::string text = "whole" + order + counted(walk.grids, "grid") + ", " +
                       counted(walk.records, "record") + ", " + counted(walk.bytes, "byte");
    if (check.results_only) text += ", results only";
    if (!check.grid_file_found) {
        const std::string misnamed = why_in_no_series(check.file);
        text += "; its grid file was not found, so nothing can be read";
        text += misnamed.empty() ? "" : ": " + misnamed;
    }
    if (const auto error = check.grid_file_error()) {
        text += std::string("; its grid file is at fault: ") + with_reason(*error).what();
    }
    return text;
}

static void print_text(const FileCheck& check, const std::vector<Error>& errors, size_t name_width,
                       FILE* out)
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
    if (check.is_whole() || check.walk.place.record == 0) return;
    constexpr size_t most_errors = 10;
    for (size_t i = 0; i < std::min(errors.size(), most_errors); ++i) {
        const std::string text = errors[i].file == check.file ? errors[i].reason : errors[i].what();
        const std::string& damage = check.walk.damage; // told below
        if (damage.empty() || text.find(damage) == std::string::npos)
            print_row(out, "reader", text);
    }
    print_damaged(check, out);
}

// ---- JSON ----

static nlohmann::json damage_json(const FileWalk& walk)
{
    const WalkPlace& place = walk.place;
    nlohmann::json result = {{"what", walk.damage}};
    if (place.record == 0) return result;
    result["record"] = place.record;
    result["byte"] = place.byte;
    result["grid"] = place.grid;
    if (place.section.empty()) return result;
    result["section"] = place.section;
    result["item"] = place.item;
    if (place.data_record > 0) result["data_record"] = place.data_record;
    return result;
}

static nlohmann::json salvage_json(const FileWalk& walk)
{
    const std::vector<Start> starts = starts_of(walk);
    if (starts.empty()) return nullptr;
    return {{"bytes", starts[0].bytes}, {"grids", starts[0].grids}};
}

static nlohmann::json file_json(const FileCheck& check, const std::vector<Error>& errors)
{
    const FileWalk& walk = check.walk;
    nlohmann::json result = {{"whole", check.is_whole()},
                             {"readable_grids", nlohmann::json::array()},
                             {"errors", nlohmann::json::array()}};
    put_file(result, "file", check.file);
    for (const Error& error : errors) result["errors"].push_back(error_json(error));
    if (!walk.damage.empty()) result["damage"] = damage_json(walk);
    if (walk.place.record > 0) {
        result["bytes"] = walk.bytes;
        result["byte_order"] = walk.big_endian ? "big" : "little";
        result["records"] = walk.records;
        result["grids"] = walk.grids;
        result["intact_bytes"] = walk.damage.empty() ? walk.bytes : walk.intact_bytes;
        result["bytes_after_end"] = walk.bytes_after_end;
        if (!check.is_whole()) result["salvage"] = salvage_json(walk);
    }
    if (check.opened() || !check.grid_file_found) {
        result["results_only"] = check.results_only;
        result["grid_file_found"] = check.grid_file_found;
    }
    for (size_t i = 0; i < check.grid_errors.size(); ++i) {
        if (!check.grid_errors[i]) result["readable_grids"].push_back(i + 1);
    }
    return result;
}

// ---- the command ----

// What went wrong, each as it is reported. Results whose grid file is missing are whole.
static std::vector<Error> report_errors(const FileCheck& check, Report& report)
{
    std::vector<Error> errors;
    if (check.is_whole()) return errors;
    const bool is_damaged = !check.walk.damage.empty();
    const bool show = report.is_json(); // the text has them
    if (check.open_error && !(is_damaged && !check.open_error->has_reason)) {
        errors.push_back(report.fail(*check.open_error, show));
    }
    for (const std::optional<Error>& error : check.grid_errors) {
        if (error) errors.push_back(report.fail(*error, show));
    }
    if (errors.empty()) {
        errors.push_back(
            report.fail(Error(Error::Kind::damaged, check.file, damage_text(check.walk)), show));
    }
    return errors;
}

int run_check(const Request& request, const std::vector<std::string>& files)
{
    Report report(request);
    size_t name_width = 0;
    for (const std::string& file : files) {
        name_width = std::max(name_width, display_width(printable(file)) + 1);
    }
    size_t number = 0;
    for (const std::string& file : files) {
        Progress progress(name_of(file), ++number, files.size());
        const FileCheck check = check_file(request.reader, file,
                                           [&](const std::string& what, int64_t done, int64_t all) {
                                               return progress.show("checking, " + what, done, all);
                                           });
        clear_progress();
        const std::vector<Error> errors = report_errors(check, report);
        report.hear();
        if (request.json)
            report.add(file_json(check, errors));
        else
            print_text(check, errors, name_width, request.out);
        // Ahead of what the next file has to say on standard error.
        (void)fflush(request.out);
    }
    report.finish();
    return report.failed() ? FAILURE : DONE;
}

} // namespace fld_host
