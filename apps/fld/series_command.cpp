// "fld series": the time series that files are part of.
#include "commands.h"

#include "check.h"
#include "output.h"
#include "paths.h"
#include "platform.h"
#include "readable.h"
#include "series.h"
#include "terminal.h"
#include "ui/util/utf8wrap.h"

#include <algorithm>
#include <chrono>
#include <map>
#include <optional>
#include <set>
#include <system_error>
#include <thread>

namespace fld_host
{

// ---- gathering ----

// A file without a number stands for itself.
struct FoundSeries {
    std::string name; // of the file that was given first
    std::vector<SeriesFile> files;
};

static std::vector<SeriesFile> list_files(const std::string& file)
{
    const std::optional<SeriesName> name = split_series_name(file);
    if (!name) return {{file, ""}};
    const std::string misnamed = why_in_no_series(file);
    if (!misnamed.empty()) throw Error(Error::Kind::cannot_open, file, misnamed);
    try {
        return list_series(*name);
    } catch (const std::system_error& failure) {
        throw Error(Error::Kind::cannot_open, name->directory.empty() ? "." : name->directory,
                    "cannot be listed: " + error_text(failure.code().value()));
    }
}

// Each series of the files once, in the order in which they are named.
static std::vector<FoundSeries> find_series(const std::vector<std::string>& files, Report& report)
{
    std::vector<FoundSeries> found;
    std::set<std::string> known;
    for (const std::string& file : files) {
        if (!known.insert(plain_path(file)).second) continue;
        const std::string why = why_not_readable(file);
        try {
            if (!why.empty()) throw Error(Error::Kind::cannot_open, file, why);
            found.push_back({file, list_files(file)});
            for (const SeriesFile& one : found.back().files) known.insert(plain_path(one.path));
        } catch (const Error& failure) {
            (void)report.fail(failure);
        }
    }
    return found;
}

static void look_into_all(const Request& request, FoundSeries& series, Report& report)
{
    Progress progress("reading series " + series.name);
    size_t number = 0;
    for (SeriesFile& file : series.files) {
        (void)progress.show("file " + std::to_string(++number) + " of " +
                            std::to_string(series.files.size()));
        look_into(request.reader, file);
        if (file.holds_grid && file.time) {
            (void)request.reader->take_messages();
            (void)take_library_text();
            continue;
        }
        const std::string why = why_not_readable(file.path);
        Error failure(Error::Kind::cannot_open, file.path,
                      why.empty() ? "cannot be read: it is no whole FLD file" : why);
        failure.what_fails = "cannot be read";
        failure.has_reason = !why.empty();
        failure.kind = why.empty() ? Error::Kind::damaged : failure.kind;
        (void)report.fail(failure);
    }
}

// ---- text ----

static std::string range_text(const MissingNumbers& gap)
{
    std::string first = std::to_string(gap.first);
    if (gap.first == gap.last) return first;
    const std::string separator = gap.last - gap.first == gap.step ? ", "
                                  : gap.step == 1                  ? "-"
                                                                   : ", ..., ";
    return first + separator + std::to_string(gap.last);
}

static std::string grid_text(const SeriesFile& file)
{
    if (!file.holds_grid) return "unreadable";
    return *file.holds_grid ? "yes" : "no";
}

static void print_text(const FoundSeries& series, FILE* out)
{
    (void)fprintf(out, "series of %s: %s\n\n", printable(series.name).c_str(),
                  counted(std::ssize(series.files), "file").c_str());
    Table table({"file", "number", "time", "grid"});
    for (const SeriesFile& file : series.files) {
        table.add({printable(name_of(file.path)), file.number,
                   file.time ? real_text(*file.time) : "-", grid_text(file)});
    }
    table.print(out, "  ");
    const std::vector<MissingNumbers> gaps = missing_numbers(series.files);
    if (gaps.empty()) return;
    constexpr size_t SHOWN = 10;
    std::string line = "\nmissing numbers:";
    for (size_t i = 0; i < std::min(gaps.size(), SHOWN); ++i) {
        line += (i == 0 ? " " : "; ") + range_text(gaps[i]);
    }
    if (gaps.size() > SHOWN)
        line += "; and " + grouped(static_cast<long long>(gaps.size() - SHOWN)) + " gaps more";
    (void)fprintf(out, "%s\n", line.c_str());
}

// ---- JSON ----

static nlohmann::json step_json(const SeriesFile& step)
{
    // The number is a text: it may have more digits than a program's integers.
    nlohmann::json result = {{"number", step.number}};
    put_file(result, "file", step.path);
    if (step.time) result["time"] = json_real(*step.time);
    if (step.holds_grid) result["has_grid"] = *step.holds_grid;
    return result;
}

static nlohmann::json series_json(const FoundSeries& series)
{
    nlohmann::json result = {{"files", nlohmann::json::array()},
                             {"missing", nlohmann::json::array()}};
    put_file(result, "file", series.name);
    for (const SeriesFile& file : series.files) result["files"].push_back(step_json(file));
    for (const MissingNumbers& gap : missing_numbers(series.files)) {
        result["missing"].push_back({{"first", gap.first}, {"last", gap.last}, {"step", gap.step}});
    }
    return result;
}

int run_series(const Request& request, const std::vector<std::string>& files)
{
    Report report(request);
    bool printed = false;
    for (FoundSeries& series : find_series(files, report)) {
        look_into_all(request, series, report);
        if (request.json) {
            report.add(series_json(series));
            continue;
        }
        if (std::exchange(printed, true)) (void)fputc('\n', request.out);
        print_text(series, request.out);
        (void)fflush(request.out);
    }
    report.finish();
    return report.failed() ? FAILURE : DONE;
}

// ---- a running solver's series ----

// A file as it was when it was looked at last.
struct Seen {
    int64_t bytes = -1;
    int64_t written = 0; // nanoseconds since the epoch
    bool is_complete = false;
};

// Whether a file that was written to since the last look is complete now.
static bool became_complete(const std::string& path, Seen& seen)
{
    utf8wrap::FileStatus status{};
    if (utf8wrap::_stat64(path.c_str(), &status) != 0) return false;
    if (status.size == seen.bytes && status.modified == seen.written) return false;
    if (!why_not_readable(path).empty()) return false; // its writer may share it with nobody yet
    seen = {status.size, status.modified, walk_file(path).damage.empty()};
    return seen.is_complete;
}

static void print_step(const Request& request, SeriesFile& file)
{
    look_into(request.reader, file);
    (void)request.reader->take_messages();
    (void)take_library_text();
    clear_progress();
    if (request.json) {
        const std::string line =
            step_json(file).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
        (void)fprintf(request.out, "%s\n", line.c_str());
    } else {
        (void)fprintf(request.out, "%s  time %s  grid %s\n", printable(file.path).c_str(),
                      file.time ? real_text(*file.time).c_str() : "-", grid_text(file).c_str());
    }
    (void)fflush(request.out);
}

int follow_series(const Request& request, const std::string& file)
{
    Report report(request);
    if (!split_series_name(file)) {
        (void)report.fail(Error(Error::Kind::cannot_open, file,
                                "the name has no number, so no series can be followed"));
        return FAILURE;
    }
    stop_when_interrupted();
    std::map<std::string, Seen> seen;
    bool is_told = false;
    Progress progress("following the series of " + file);
    while (!is_stopped() && ferror(request.out) == 0) {
        std::string writing;
        std::vector<SeriesFile> files;
        try {
            files = list_files(file);
        } catch (const Error& failure) {
            (void)report.fail(failure);
            return FAILURE;
        }
        if (files.empty() && !std::exchange(is_told, true)) {
            complain(file + ": there is no file of this series yet");
        }
        // A solver that starts anew writes its steps again: what is gone is forgotten.
        std::map<std::string, Seen> there;
        for (SeriesFile& one : files) {
            if (is_stopped()) break;
            Seen& known = there[one.path] = seen[one.path];
            if (became_complete(one.path, known)) print_step(request, one);
            if (!known.is_complete) writing = one.path;
        }
        seen = std::move(there);
        (void)progress.show(writing.empty() ? "waiting for the next step"
                                            : writing + " is being written");
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
    }
    return DONE;
}

} // namespace fld_host
