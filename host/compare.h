// What differs between two files.
#pragma once

#include "dataset.h"

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace fld_host
{

// Two values are equal when they differ by at most `absolute`, or by at most `relative` times the
// larger of their magnitudes; also when both are undefined, both no numbers, or both infinite.
struct Tolerance {
    double absolute = 0;
    double relative = 0;
};

struct Tolerances {
    Tolerance all; // of variables
    // By name or key, in place of `all`; "time" and "coordinates", which are to be equal otherwise.
    std::map<std::string, Tolerance> variables;
    std::vector<std::string> chosen; // by name or key; none: every variable
};

// A difference of two values and where it is.
struct ValueDifference {
    double size = 0; // absolute, or relative to the larger magnitude
    float a = 0;
    float b = 0;
    int64_t node = -1;               // from 0; -1: there is none
    int component = 0;               // of a vector, from 0
    std::array<float, 3> position{}; // of the node, in the first file
};

struct ValuesDifference {
    std::string name;
    int components = 1;
    int64_t compared = 0;  // values that are finite in both files
    int64_t different = 0; // values beyond the tolerance, those that only one has among them
    int64_t only_one = 0;  // values that are finite in one file only, or not finite in another way,
                           // such as undefined and no number
    ValueDifference absolute, relative; // the largest
    double root_mean_square = 0;        // of the differences of those that were compared
};

// Names that only one of two lists has.
struct NamesDifference {
    std::vector<std::string> only_a, only_b;
    [[nodiscard]] bool none() const { return only_a.empty() && only_b.empty(); }
};

struct GridDifference {
    int grid = 0; // from 0
    int64_t nodes_a = 0, nodes_b = 0;
    bool same_mesh_file = false; // the meshes are one file's: they were not read
    ValuesDifference coordinates;
    int64_t cells_a = 0, cells_b = 0;
    int64_t different_cells = 0;             // shape, nodes or walls
    int64_t first_different_cell = -1;       // from 0
    std::vector<std::string> other_regions;  // whose faces differ
    std::vector<ValuesDifference> variables; // of those that both have
    [[nodiscard]] bool is_equal() const;
};

struct FileDifference {
    std::string a, b;
    std::optional<float> time_a, time_b;
    bool same_time = true;
    int grids_a = 0, grids_b = 0;
    NamesDifference variables, boundaries;
    std::vector<GridDifference> grids; // those that both have
    [[nodiscard]] bool is_equal() const;
};

// Told what is being read of which file, and the bytes done and all; false cancels.
using CompareProgress = std::function<bool(const std::string& file, const std::string& what,
                                           int64_t done, int64_t all)>;

// Throws Error.
FileDifference compare_files(const std::shared_ptr<Reader>& reader, const std::string& a,
                             const std::string& b, const Tolerances& tolerances,
                             const CompareProgress& progress);

// Whether a variable is meant by a name or a key.
[[nodiscard]] bool is_named(const Variable& variable, const std::string& name);

} // namespace fld_host
