// Saving what can be saved of a damaged file: its longest start that the reader reads whole once it
// is closed properly.
#pragma once

#include "check.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace fld_host
{

// A start of a file that ends with a complete section.
struct Start {
    int64_t bytes = 0; // without the record that closes it; 0: there is none
    int32_t grids = 0;
    size_t sections = 0; // of the walk, those of the header among them
};

// The starts of a file of which every grid has what the reader needs of it, the longest first. A
// file whose first grid has neither nodes nor elements holds results only, which need nothing.
std::vector<Start> readable_starts(const FileWalk& walk);

constexpr int64_t CLOSING_BYTES = 40; // of the record that closes a file

struct Salvage {
    FileWalk walk;
    Start start;
    // Results of which the grid file was not found when they were read back.
    bool lacks_grid_file = false;
    std::string why_less; // why a longer start was refused; empty when the longest is taken
};

// Told the bytes that are done of what is being done; false cancels.
using SalvageProgress = std::function<bool(const std::string& what, int64_t done, int64_t all)>;

// Writes `out`, which must not be there. It gets its name when it has been read back whole. Throws
// Error: cannot_open for the two files, damaged when no start is readable (nothing is written
// then), cancelled.
Salvage salvage_file(const std::string& file, const std::string& out,
                     const SalvageProgress& progress);

} // namespace fld_host
