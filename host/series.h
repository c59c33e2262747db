// The files of a time series: files of one directory whose names differ only in one number, the
// digits at the end of the base name (flow0012.fld) or the whole extension (case.0005).
#pragma once

#include "reader.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace fld_host
{

// A numbered name: directory + prefix + digits + suffix give the whole.
struct SeriesName {
    std::string directory; // with its separator; empty when the name has none
    std::string prefix;
    std::string digits;
    std::string suffix;
};

// None when the name has no number in either form. The base name ends at the first dot that is
// neither the name's first character nor follows another dot.
std::optional<SeriesName> split_series_name(const std::string& path);

struct SeriesFile {
    std::string path;                    // the directory as it was given, and the name as listed
    std::string number;                  // without leading zeros; any number of digits
    std::optional<float> time = {};      // none: it cannot be read
    std::optional<bool> holds_grid = {}; // of its own; none: it cannot be read
};

// The regular files of the series of `name`, in the order of their numbers, without a look into
// them. Throws std::system_error when the directory cannot be listed.
std::vector<SeriesFile> list_series(const SeriesName& name);

// The same for the series of a file; none when its name has no number.
std::vector<SeriesFile> list_steps(const std::string& file);

// Why a file whose name has a number is in no series: their names are compared as they are written,
// and a system may find the file under this name although it has another. Empty otherwise.
std::string why_in_no_series(const std::string& file);

// Finds a file's time, and whether it holds a grid.
void look_into(const std::shared_ptr<Reader>& reader, SeriesFile& file);

// The series of a file with all that is known of each; none when the name has no number.
std::vector<SeriesFile> series_of(const std::shared_ptr<Reader>& reader, const std::string& file);

// Numbers that a series would have if it went on in the steps that most of it is made in.
struct MissingNumbers {
    uint64_t first;
    uint64_t last;
    uint64_t step;
    bool operator==(const MissingNumbers&) const = default;
};

// The gaps of a series in ascending order. Numbers too long for 64 bits are left out of account.
std::vector<MissingNumbers> missing_numbers(const std::vector<SeriesFile>& series);

} // namespace fld_host
