#include "series_command.h"

#include "json_output.h"
#include "output.h"
#include "series.h"

#include <algorithm>
#include <filesystem>
#include <optional>
#include <system_error>

namespace fld_host
{

// ---- gathering ----

static std::vector<SeriesFile> read_series(const std::shared_ptr<Reader>& reader,
                                           const SeriesName& name)
{
    std::vector<SeriesFile> files = list_series(name);
    size_t number = 0;
    for (SeriesFile& file : files) {
        show_progress("reading series: file " + std::to_string(++number) + " of " +
                      std::to_string(files.size()));
        look_into(reader, file);
        if (!file.holds_grid) report(file.path, "cannot be opened");
    }
    (void)reader->take_messages();
    clear_progress();
    return files;
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

static void print_text(const std::string& file, const std::vector<SeriesFile>& entries, FILE* out)
{
    (void)fprintf(out, "series of %s: %zu %s\n\n", printable(file).c_str(), entries.size(),
                  entries.size() == 1 ? "file" : "files");
    Table table({"file", "number", "time", "grid"});
    for (const SeriesFile& entry : entries) {
        table.add({printable(std::filesystem::path(entry.path).filename().string()), entry.number,
                   entry.time ? real_text(*entry.time) : "-",
                   !entry.holds_grid   ? "unreadable"
                   : *entry.holds_grid ? "yes"
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

static nlohmann::json series_json(const std::vector<SeriesFile>& entries)
{
    nlohmann::json result = {{"files", nlohmann::json::array()},
                             {"missing", nlohmann::json::array()}};
    for (const SeriesFile& entry : entries) {
        // A text: a number may have more digits than a program's integers.
        nlohmann::json file = {{"file", entry.path}, {"number", entry.number}};
        file["time"] = entry.time ? json_real(*entry.time) : nlohmann::json(nullptr);
        file["has_grid"] =
            entry.holds_grid ? nlohmann::json(*entry.holds_grid) : nlohmann::json(nullptr);
        result["files"].push_back(std::move(file));
    }
    for (const MissingNumbers& gap : missing_numbers(entries)) {
        result["missing"].push_back({{"first", gap.first}, {"last", gap.last}, {"step", gap.step}});
    }
    return result;
}

bool run_series(const std::shared_ptr<Reader>& reader, const std::string& file, bool json,
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
    std::vector<SeriesFile> entries;
    try {
        entries = read_series(reader, *name);
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
