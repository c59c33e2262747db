#include "salvage.h"

#include "paths.h"
#include "platform.h"
#include "readable.h"
#include "ui/util/utf8wrap.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <optional>

namespace fld_host
{

[[noreturn]] static void fail(const std::string& file, const std::string& what)
{
    throw Error(Error::Kind::cannot_open, file, what);
}

[[noreturn]] static void fail_to_write(const std::string& file)
{
    fail(file, "cannot be written: " + error_text(errno));
}

// ---- which starts ----

namespace
{

// What a grid has of the sections that it cannot be read without.
struct GridParts {
    bool system = false;
    bool nodes = false;
    bool materials = false;
    bool elements = false;
    bool values = false;

    void take(const std::string& name)
    {
        system |= name == "LS_CoordinateSystem";
        nodes |= name == "LS_Nodes";
        materials |= name == "LS_MatOfElements";
        elements |= name == "LS_Elements";
        values |= name.starts_with("LS_Scalar") || name.starts_with("LS_Vector");
    }
    [[nodiscard]] bool is_grid() const { return system && nodes && materials && elements; }
    [[nodiscard]] bool is_results() const { return system && values && !nodes && !elements; }
};

// A new file, which is removed in the end.
class Draft
{
public:
    explicit Draft(std::string path) : path_(std::move(path))
    {
        if (!create_file(path_)) fail_to_write(path_);
    }
    ~Draft() { remove_file(path_); }
    Draft(const Draft&) = delete;
    Draft& operator=(const Draft&) = delete;

private:
    std::string path_;
};

} // namespace

std::vector<Start> readable_starts(const FileWalk& walk)
{
    std::vector<Start> starts;
    GridParts parts;
    int32_t grid = 0;
    for (size_t i = 0; i < walk.sections.size(); ++i) {
        const WalkedSection& section = walk.sections[i];
        if (section.grid == 0) continue;
        if (section.grid != grid) {
            // A grid that lacks something ends what can be read; so does one without sections.
            const bool goes_on = grid == 0 || (!starts.empty() && starts.back().grids == grid);
            if (!goes_on || section.grid != grid + 1) break;
            grid = section.grid;
            parts = {};
        }
        parts.take(section.name);
        if (parts.is_grid() || (grid == 1 && parts.is_results())) {
            starts.push_back({section.byte + section.bytes, grid, i + 1});
        }
    }
    std::reverse(starts.begin(), starts.end());
    return starts;
}

// ---- writing ----

// Makes a draft the first bytes of a file, with the record that closes them. It has `there` of
// them.
static void make_start(const std::string& file, int64_t there, int64_t bytes,
                       const std::string& closing, const std::string& draft,
                       const SalvageProgress& progress)
{
    File to(open_to_continue(draft, std::min(there, bytes)));
    if (!to) fail_to_write(draft);
    const File from = open_to_read(file);
    std::vector<char> block(size_t{4} << 20);
    for (int64_t done = there; done < bytes;) {
        const auto size = std::min<int64_t>(std::ssize(block), bytes - done);
        bool failed = false;
        if (!from || utf8wrap::read_at(from.get(), done, size, block.data(), &failed) != size) {
            fail(file, "cannot be read");
        }
        const auto count = static_cast<size_t>(size);
        if (fwrite(block.data(), 1, count, to.get()) != count) fail_to_write(draft);
        done += size;
        if (!progress("copying", done, bytes)) {
            throw Error(Error::Kind::cancelled, file, "cancelled");
        }
    }
    const bool closed = fwrite(closing.data(), 1, closing.size(), to.get()) == closing.size();
    if (!closed || fclose(to.release()) != 0) fail_to_write(draft);
}

// Why a draft is not whole; none when it is. Results may lack their grid file: under this name they
// are no step of a series.
static std::optional<Error> read_back(const std::string& draft, const SalvageProgress& progress,
                                      bool* lacks_grid_file)
{
    const FileCheck check = check_file(Reader::linked(), draft, progress);
    *lacks_grid_file = !check.grid_file_found;
    if (check.is_whole()) return std::nullopt;
    if (check.open_error) return check.open_error;
    for (const std::optional<Error>& error : check.grid_errors) {
        if (error) return error;
    }
    return Error(Error::Kind::damaged, draft, check.walk.damage);
}

// Gives the draft its name, unless a file has it.
static void name_draft(const std::string& draft, const std::string& out)
{
    if (name_file(draft, out)) return;
    if (errno == EEXIST) fail(out, "is there already");
    fail_to_write(out);
}

// No step of a series, and in the folder of `out`: names are given within a file system.
static std::string draft_path(const std::string& out)
{
    return directory_of(out) + ".fld-salvage-" + process_number() + "~";
}

static Salvage write_salvage(const std::string& file, const std::string& out,
                             const std::string& path, const SalvageProgress& progress)
{
    const std::string why = why_not_readable(file);
    if (!why.empty()) fail(file, why);
    // Behind another colon than a drive's stands a part of a file.
    const std::string directory = directory_of(out);
    const bool is_part = directory.ends_with(':') && directory.size() != 2;
    if (name_of(out).empty() || is_part) fail(out, "is no name of a file");
    if (out.size() > LONGEST_PATH) {
        fail(out, "the name has more than the " + std::to_string(LONGEST_PATH) +
                      " bytes that the reader takes");
    }
    if (is_taken(out)) fail(out, "is there already");
    if (errno != ENOENT && errno != ENOTDIR) fail(out, error_text(errno));
    Salvage salvage;
    (void)progress("walking its records", 0, 0);
    salvage.walk = walk_file(file);
    const std::vector<Start> starts = readable_starts(salvage.walk);
    if (starts.empty()) {
        throw Error(Error::Kind::damaged, file,
                    "nothing of it can be read" +
                        (salvage.walk.damage.empty() ? "" : ": " + damage_text(salvage.walk)));
    }
    const std::string closing = name_record("OverlapEnd", salvage.walk.big_endian);
    const Draft draft(path);
    int64_t in_draft = 0; // of the file's bytes in the draft
    const auto is_readable = [&](const Start& start) {
        make_start(file, in_draft, start.bytes, closing, path, progress);
        in_draft = start.bytes;
        const std::optional<Error> refused = read_back(path, progress, &salvage.lacks_grid_file);
        if (refused && salvage.why_less.empty()) {
            salvage.why_less = refused->file == path ? refused->reason : refused->what();
        }
        return !refused;
    };
    // What makes a start unreadable is in every longer one too. So the longest that is readable is
    // found in a few tries, however many sections there are.
    size_t longest = 0; // of those that are readable: all before it are refused
    if (!is_readable(starts[0])) {
        longest = 1;
        size_t end = starts.size(); // this one is readable, or there is none
        while (longest < end) {
            const size_t middle = longest + (end - longest) / 2;
            if (is_readable(starts[middle]))
                end = middle;
            else
                longest = middle + 1;
        }
        if (end == starts.size()) {
            throw Error(Error::Kind::damaged, file,
                        "nothing of it can be read: " + salvage.why_less);
        }
        if (in_draft != starts[end].bytes && !is_readable(starts[end])) {
            throw Error(Error::Kind::changed, file, "changed while it was read");
        }
    }
    salvage.start = starts[longest];
    name_draft(path, out);
    return salvage;
}

Salvage salvage_file(const std::string& file, const std::string& out,
                     const SalvageProgress& progress)
{
    const std::string path = draft_path(out);
    try {
        return write_salvage(file, out, path, progress);
    } catch (const Error& failure) {
        // Nobody has named the draft.
        if (failure.file != path) throw;
        throw Error(failure.kind, out, failure.reason, failure.reader_says);
    }
}

} // namespace fld_host
