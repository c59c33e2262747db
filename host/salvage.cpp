#include "salvage.h"

#include "readable.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <optional>
#include <unistd.h>

namespace fld_host
{

namespace fs = std::filesystem;

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

struct Closer {
    void operator()(FILE* file) const { (void)fclose(file); }
};
using File = std::unique_ptr<FILE, Closer>;

// A new file, which is removed in the end.
class Draft
{
public:
    explicit Draft(std::string path) : path_(std::move(path))
    {
        const File file(fopen(path_.c_str(), "wbx"));
        if (file) return;
        throw Error(Error::Kind::cannot_open, path_,
                    std::string("cannot be written: ") + std::strerror(errno));
    }
    ~Draft()
    {
        std::error_code ignored;
        fs::remove(path_, ignored);
    }
    Draft(const Draft&) = delete;
    Draft& operator=(const Draft&) = delete;
    [[nodiscard]] const std::string& path() const { return path_; }

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

[[noreturn]] static void fail(const std::string& file, const std::string& what)
{
    throw Error(Error::Kind::cannot_open, file, what);
}

static void copy_start(const std::string& file, int64_t bytes, const std::string& closing,
                       const std::string& draft, const SalvageProgress& progress)
{
    const File from(fopen(file.c_str(), "rb"));
    if (!from) fail(file, std::strerror(errno));
    File to(fopen(draft.c_str(), "wb"));
    if (!to) fail(draft, std::string("cannot be written: ") + std::strerror(errno));
    std::vector<char> block(size_t{4} << 20);
    for (int64_t done = 0; done < bytes;) {
        const auto size = static_cast<size_t>(
            std::min<int64_t>(static_cast<int64_t>(block.size()), bytes - done));
        if (fread(block.data(), 1, size, from.get()) != size) fail(file, "cannot be read");
        if (fwrite(block.data(), 1, size, to.get()) != size) {
            fail(draft, std::string("cannot be written: ") + std::strerror(errno));
        }
        done += static_cast<int64_t>(size);
        if (!progress("copying", done, bytes)) {
            throw Error(Error::Kind::cancelled, file, "cancelled");
        }
    }
    const bool closed = fwrite(closing.data(), 1, closing.size(), to.get()) == closing.size();
    if (!closed || fclose(to.release()) != 0) {
        fail(draft, std::string("cannot be written: ") + std::strerror(errno));
    }
}

// Makes a draft end earlier.
static void shorten(const std::string& draft, int64_t bytes, const std::string& closing)
{
    std::error_code failed;
    fs::resize_file(draft, static_cast<uintmax_t>(bytes), failed);
    const File to(failed ? nullptr : fopen(draft.c_str(), "ab"));
    if (!to || fwrite(closing.data(), 1, closing.size(), to.get()) != closing.size()) {
        fail(draft, "cannot be written");
    }
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
    std::error_code failed;
    fs::create_hard_link(draft, out, failed);
    if (!failed) return;
    // A file system without links cannot refuse in the same moment.
    if (fs::exists(fs::symlink_status(out, failed))) fail(out, "is there already");
    fs::rename(draft, out, failed);
    if (failed) fail(out, "cannot be written: " + failed.message());
}

// No step of a series, and in the folder of `out`: names are given within a file system.
static std::string draft_path(const std::string& out)
{
    const std::string name = ".fld-salvage-" + std::to_string(getpid()) + "~";
    return (fs::path(out).parent_path() / name).string();
}

static Salvage write_salvage(const std::string& file, const std::string& out,
                             const std::string& path, const SalvageProgress& progress)
{
    const std::string why = why_not_readable(file);
    if (!why.empty()) fail(file, why);
    if (out.empty() || fs::path(out).filename().empty()) fail(out, "is no name of a file");
    std::error_code unknown;
    const fs::file_status there = fs::symlink_status(out, unknown);
    if (fs::exists(there)) fail(out, "is there already");
    if (there.type() != fs::file_type::not_found) fail(out, unknown.message());
    if (out.size() > LONGEST_PATH) {
        fail(out, "the name has more than the " + std::to_string(LONGEST_PATH) +
                      " bytes that the reader takes");
    }
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
    copy_start(file, starts[0].bytes, closing, path, progress);
    for (const Start& start : starts) {
        if (&start != starts.data()) shorten(path, start.bytes, closing);
        const std::optional<Error> refused = read_back(path, progress, &salvage.lacks_grid_file);
        if (refused) {
            if (salvage.why_less.empty()) {
                const std::string text = refused->what();
                salvage.why_less =
                    text.starts_with(path + ": ") ? text.substr(path.size() + 2) : text;
            }
            continue;
        }
        salvage.start = start;
        name_draft(path, out);
        return salvage;
    }
    throw Error(Error::Kind::damaged, file, "nothing of it can be read: " + salvage.why_less);
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
        const std::string reason = std::string(failure.what()).substr(path.size() + 2);
        throw Error(failure.kind, out, reason, failure.reader_says);
    }
}

} // namespace fld_host
