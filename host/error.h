// What goes wrong, in one line.
#pragma once

#include <stdexcept>
#include <string>

namespace fld_host
{

class Error : public std::runtime_error
{
public:
    enum class Kind {
        no_reader,    // the library cannot be loaded, is none, or has no such reader
        cannot_open,  // the file is not there, may not be read, or is no FLD file
        no_grid_file, // results without the file that holds their grid
        damaged,
        changed, // the file is not what it was when it was opened
        no_memory,
        cancelled // by the sink
    };

    // In what() `why` follows the file's name.
    Error(Kind k, const std::string& blamed, const std::string& why, const std::string& words = "")
        : std::runtime_error(blamed.empty() ? why : blamed + ": " + why), kind(k), file(blamed),
          reason(why), reader_says(words)
    {
    }

    Kind kind;
    std::string what_fails; // "cannot be opened", "grid 2 cannot be read"
    bool has_reason = true; // false: what is said of the reason is a guess
    std::string file;       // the one to blame: the grid file, when that is the damaged one
    std::string reason;     // what() without the file
    // The linked reader's own lines, which are printed nowhere else; empty for a loaded library,
    // whose lines go where it prints them.
    std::string reader_says;
};

} // namespace fld_host
