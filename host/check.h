// Whether a file is whole: its records, and what the reader makes of them.
#pragma once

#include "dataset.h"
#include "record_walk.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace fld_host
{

struct FileCheck {
    std::string file;
    FileWalk walk;
    // What the reader makes of the file.
    std::optional<Error> open_error;
    bool results_only = false;
    bool grid_file_found = true;
    std::vector<std::optional<Error>> grid_errors; // one entry per grid, none for one that is read

    [[nodiscard]] bool opened() const { return !open_error; }
    [[nodiscard]] int64_t unread_grids() const;
    // Results are whole too when their grid file is missing, or is what cannot be read.
    [[nodiscard]] bool is_whole() const;
    // Why the grid file cannot be read; none when it can, or there is no other than the file.
    [[nodiscard]] std::optional<Error> grid_file_error() const;
};

// Told what is being done, with the bytes of it that are done and all; both 0 when not known.
// False cancels.
using CheckProgress = std::function<bool(const std::string& what, int64_t done, int64_t all)>;

// Walks the file and reads all its grids. Throws Error when it is cancelled.
FileCheck check_file(const std::shared_ptr<Reader>& reader, const std::string& file,
                     const CheckProgress& progress);

// The reason in the error; when the reader gave none, what a walk through the file's records finds.
Error with_reason(const Error& failure);

// A walk's damage with its place, in one line: "the file ends before record 20 (byte 700, grid 1,
// section LS_Nodes)".
std::string damage_text(const FileWalk& walk);

} // namespace fld_host
