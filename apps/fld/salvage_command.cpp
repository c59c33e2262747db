// "fld salvage": the readable start of a damaged file as a file of its own.
#include "commands.h"

#include "output.h"
#include "paths.h"
#include "salvage.h"
#include "series.h"
#include "terminal.h"

#include <system_error>

namespace fld_host
{

static std::vector<std::string> lost_sections(const Salvage& salvage)
{
    std::vector<std::string> names;
    for (size_t i = salvage.start.sections; i < salvage.walk.sections.size(); ++i) {
        const WalkedSection& section = salvage.walk.sections[i];
        names.push_back(section.name + " of grid " + std::to_string(section.grid));
    }
    return names;
}

// What is lost, in words: complete sections that are left out, and what the damage hides.
static std::string lost_text(const Salvage& salvage)
{
    std::string text = folded(lost_sections(salvage));
    const FileWalk& walk = salvage.walk;
    if (walk.damage.empty()) return text.empty() ? "nothing: the file was whole" : text;
    if (text.empty() && walk.intact_bytes == walk.bytes) {
        return "nothing: only the record that ends the file was missing";
    }
    if (!text.empty()) text += "; ";
    text += "all from byte " + grouped(walk.intact_bytes) + " on";
    if (!walk.place.section.empty()) text += ", section " + walk.place.section + " first";
    return text;
}

// The steps beside which OUT would stand; empty when its name makes it none.
static std::string series_warning(const std::string& out)
{
    size_t others = 0;
    try {
        for (const SeriesFile& file : list_steps(out)) others += file.path != out;
    } catch (const std::system_error&) {
        return "";
    }
    if (others == 0) return "";
    return "the name makes it a step of the series of " +
           counted(static_cast<int64_t>(others), "other file") + " beside it";
}

int run_salvage(const Request& request, const std::string& file, const std::string& out)
{
    stop_when_ended(); // half a file is removed then
    Report report(request);
    Progress progress(name_of(file));
    try {
        const Salvage salvage =
            salvage_file(file, out, [&](const std::string& what, int64_t done, int64_t all) {
                return progress.show(what, done, all) && !is_stopped();
            });
        clear_progress();
        (void)request.reader->take_messages();
        const std::string warning = series_warning(out);
        const std::string lost = lost_text(salvage);
        nlohmann::json result = {{"bytes", salvage.start.bytes + CLOSING_BYTES},
                                 {"grids", salvage.start.grids},
                                 {"lost", lost},
                                 {"lacks_grid_file", salvage.lacks_grid_file}};
        put_file(result, "file", file);
        put_file(result, "out", out);
        if (!warning.empty()) result["warning"] = warning;
        if (!salvage.why_less.empty()) result["why_less"] = salvage.why_less;
        report.add(std::move(result));
        if (!request.json) {
            (void)fprintf(request.out, "%s: %s of %s, %s\n", printable(out).c_str(),
                          grouped(salvage.start.bytes + CLOSING_BYTES).c_str(),
                          counted(salvage.walk.bytes, "byte").c_str(),
                          counted(salvage.start.grids, "grid").c_str());
            (void)fprintf(request.out, "  lost   %s\n", printable(lost).c_str());
            if (!salvage.why_less.empty()) {
                (void)fprintf(request.out, "  since  %s\n", printable(salvage.why_less).c_str());
            }
            if (salvage.lacks_grid_file) {
                (void)fputs("  note   results only: their values were not read back, since the "
                            "grid file is not known\n",
                            request.out);
            }
        }
        if (!warning.empty()) complain("warning: " + out + ": " + warning);
    } catch (const Error& failure) {
        (void)request.reader->take_messages(); // of drafts that were tried
        (void)report.fail(failure);
    }
    report.finish();
    return report.failed() ? FAILURE : DONE;
}

} // namespace fld_host
