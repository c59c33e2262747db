#include "series_command.h"

#include "json_output.h"
#include "output.h"
#include "series.h"

#include <algorithm>
#include <fcntl.h>
#include <filesystem>
#include <optional>
#include <system_error>
#include <unistd.h>

namespace fld_host
{

// ---- gathering ----

struct SeriesEntry {
    SeriesFile file;
    std::optional<float> time;
    std::optional<bool> has_grid; // none: the file cannot be read
};

// Makes the file the process's standard input.
static bool put_on_standard_input(const std::string& path)
{
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0) return false;
    const bool done = dup2(file, STDIN_FILENO) == STDIN_FILENO;
    if (file != STDIN_FILENO) (void)close(file);
    return done;
}

// Whether a file holds a grid. Under its own name a file of results only is opened together with
// an earlier file of its series, and looks like one with a grid; so it is opened under a name
// without a number, as one that has no series.
static std::optional<bool> holds_grid(Host& host, const RegisteredReader& reader,
                                      const std::string& path)
{
    // Names are counted also where there is no room for them; a long series is quicker without.
    static constexpr Capacities no_names{.boundaries = 1, .variables = 1};
    if (!put_on_standard_input(path)) return std::nullopt;
    const MuteLibrary mute;
    try {
        const Dataset dataset(host, reader, "/dev/stdin", no_names);
        return true;
    } catch (const DatasetError& failure) {
        return failure.scanned ? std::optional(false) : std::nullopt;
    }
}

static std::vector<SeriesEntry> read_series(Host& host, const RegisteredReader& reader,
                                            const SeriesName& name)
{
    std::vector<SeriesEntry> entries;
    const std::vector<SeriesFile> files = list_series(name);
    for (const SeriesFile& file : files) {
        show_progress("reading series: file " + std::to_string(entries.size() + 1) + " of " +
                      std::to_string(files.size()));
        const std::optional<bool> has_grid = holds_grid(host, reader, file.path);
        const std::optional<float> time = host.peek_time(file.path);
        if (!has_grid) report(file.path, "cannot be opened");
        entries.push_back({file, time, has_grid});
    }
    (void)fflush(stdout);
    clear_progress();
    return entries;
}

static std::vector<MissingNumbers> missing_numbers(const std::vector<SeriesEntry>& entries)
{
    std::vector<SeriesFile> files;
    files.reserve(entries.size());
    for (const SeriesEntry& entry : entries) files.push_back(entry.file);
    return missing_numbers(files);
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

static void print_text(const std::string& file, const std::vector<SeriesEntry>& entries, FILE* out)
{
    (void)fprintf(out, "series of %s: %zu %s\n\n", printable(file).c_str(), entries.size(),
                  entries.size() == 1 ? "file" : "files");
    Table table({"file", "number", "time", "grid"});
    for (const SeriesEntry& entry : entries) {
        table.add({printable(std::filesystem::path(entry.file.path).filename().string()),
                   entry.file.number, entry.time ? real_text(*entry.time) : "-",
                   !entry.has_grid   ? "unreadable"
                   : *entry.has_grid ? "yes"
                                     : "no"});
    }
    table.print(out, "  ");
    const std::vector<MissingNumbers> gaps = missing_numbers(entries);
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

static nlohmann::json series_json(const std::vector<SeriesEntry>& entries)
{
    nlohmann::json result = {{"files", nlohmann::json::array()},
                             {"missing", nlohmann::json::array()}};
    for (const SeriesEntry& entry : entries) {
        // A text: a number may have more digits than a program's integers.
        nlohmann::json file = {{"file", entry.file.path}, {"number", entry.file.number}};
        file["time"] = entry.time ? json_real(*entry.time) : nlohmann::json(nullptr);
        file["has_grid"] =
            entry.has_grid ? nlohmann::json(*entry.has_grid) : nlohmann::json(nullptr);
        result["files"].push_back(std::move(file));
    }
    for (const MissingNumbers& gap : missing_numbers(entries)) {
        result["missing"].push_back({{"first", gap.first}, {"last", gap.last}, {"step", gap.step}});
    }
    return result;
}

bool run_series(Host& host, const RegisteredReader& reader, const std::string& file, bool json,
                FILE* out)
{
    std::error_code failed;
    if (!std::filesystem::is_regular_file(file, failed)) {
        report(file, failed ? failed.message() : "is not a regular file");
        return false;
    }
    const std::optional<SeriesName> name = split_series_name(file);
    if (!name) {
        report(file, "the name has no number, so the file is not part of a series");
        return false;
    }
    std::vector<SeriesEntry> entries;
    try {
        entries = read_series(host, reader, *name);
    } catch (const std::filesystem::filesystem_error& failure) {
        report(name->directory.empty() ? "." : name->directory,
               "cannot be listed: " + failure.code().message());
        return false;
    }
    if (json)
        print_json(series_json(entries), out);
    else
        print_text(file, entries, out);
    return true;
}

} // namespace fld_host
