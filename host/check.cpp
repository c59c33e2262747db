#include "check.h"

#include "grid.h"
#include "series.h"
#include "text.h"

#include <algorithm>
#include <new>
#include <system_error>

namespace fld_host
{

int64_t FileCheck::unread_grids() const
{
    return std::count_if(grid_errors.begin(), grid_errors.end(),
                         [](const std::optional<Error>& error) { return error.has_value(); });
}

std::optional<Error> FileCheck::grid_file_error() const
{
    if (open_error) return open_error->file == file ? std::nullopt : open_error;
    for (const std::optional<Error>& error : grid_errors) {
        if (error && error->file != file) return error;
    }
    return std::nullopt;
}

bool FileCheck::is_whole() const
{
    const auto is_own = [this](const std::optional<Error>& error) {
        return error && error->file == file;
    };
    const bool readable = opened() ? std::none_of(grid_errors.begin(), grid_errors.end(), is_own)
                                   : !grid_file_found || !is_own(open_error);
    return walk.damage.empty() && readable;
}

// ---- reading ----

// A reader that reads the grid to its end delivers it all: nothing of it is kept.
class PassedOver : public GridSink
{
public:
    PassedOver(std::string what, const CheckProgress& progress)
        : what_(std::move(what)), progress_(progress)
    {
    }
    const DirectSink* direct() override { return &nothing_; }
    bool go_on(int64_t done, int64_t all) override { return progress_(what_, done, all); }

private:
    DirectSink nothing_;
    std::string what_;
    const CheckProgress& progress_;
};

static void read_all_grids(Dataset& dataset, const CheckProgress& progress, FileCheck& check)
{
    FloatBuffer coords;
    FloatBuffer values;
    const Contents& contents = dataset.contents();
    for (size_t grid = 0; grid < contents.node_counts.size(); ++grid) {
        const std::string name = "grid " + std::to_string(grid + 1);
        const auto nodes = static_cast<size_t>(contents.node_counts[grid]);
        PassedOver sink("reading " + name + " of " + std::to_string(contents.node_counts.size()),
                        progress);
        check.grid_errors.emplace_back();
        try {
            const Buffers buffers = buffers_of(contents, coords.prepare(3 * nodes),
                                               values.prepare(contents.rows.size() * nodes), nodes);
            dataset.read(static_cast<int>(grid), dataset.everything(), buffers, sink);
        } catch (const Error& failure) {
            if (failure.kind == Error::Kind::cancelled) throw;
            check.grid_errors.back() = failure;
        } catch (const std::bad_alloc&) {
            check.grid_errors.back() = Error(Error::Kind::no_memory, check.file,
                                             name + " cannot be read: not enough memory");
        }
    }
}

FileCheck check_file(const std::shared_ptr<Reader>& reader, const std::string& file,
                     const CheckProgress& progress)
{
    FileCheck check;
    check.file = file;
    (void)progress("walking its records", 0, 0);
    check.walk = walk_file(file);
    (void)progress("opening it", 0, 0);
    try {
        Dataset dataset(reader, file);
        check.results_only = dataset.contents().results_only;
        read_all_grids(dataset, progress, check);
    } catch (const Error& failure) {
        if (failure.kind == Error::Kind::cancelled) throw;
        check.open_error = failure;
        check.grid_file_found = failure.kind != Error::Kind::no_grid_file;
        check.results_only = !check.grid_file_found;
    }
    return check;
}

// ---- words ----

std::string damage_text(const FileWalk& walk)
{
    const WalkPlace& place = walk.place;
    if (place.record == 0) return walk.damage;
    std::string text = walk.damage + " (byte " + grouped(place.byte);
    text += place.grid == 0 ? ", header" : ", grid " + grouped(place.grid);
    if (!place.section.empty()) {
        text += (place.grid == 0 ? ", keyword " : ", section ") + place.section;
    }
    return text + ")";
}

static Error with_text(const Error& failure, const std::string& reason)
{
    Error better(failure.kind, failure.file, reason, failure.reader_says);
    better.what_fails = failure.what_fails;
    return better;
}

// The nearest earlier step that is damaged: its grid may be the one that is missed.
static std::string damaged_step_before(const std::string& file)
{
    constexpr int MOST_STEPS = 100;
    std::vector<SeriesFile> steps;
    try {
        steps = list_steps(file);
    } catch (const std::system_error&) {
        return "";
    }
    const auto itself = std::ranges::find(steps, file, &SeriesFile::path);
    int left = MOST_STEPS;
    for (auto step = itself; step != steps.begin() && left-- > 0;) {
        const FileWalk walk = walk_file((--step)->path);
        if (!walk.damage.empty()) return step->path + " is damaged: " + damage_text(walk);
    }
    return "";
}

Error with_reason(const Error& failure)
{
    if (failure.kind == Error::Kind::no_grid_file) {
        const std::string misnamed = why_in_no_series(failure.file);
        if (!misnamed.empty()) return with_text(failure, failure.what_fails + ": " + misnamed);
        const std::string step = damaged_step_before(failure.file);
        const bool is_known = failure.reason.find(" was passed over") != std::string::npos;
        if (step.empty() || is_known) return failure;
        return with_text(failure, failure.reason + "; " + step);
    }
    if (failure.has_reason) return failure;
    const FileWalk walk = walk_file(failure.file);
    if (walk.damage.empty()) return failure;
    return with_text(failure, failure.what_fails + ": " + damage_text(walk));
}

} // namespace fld_host
