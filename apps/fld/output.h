// What the program says: results on standard output, everything else on standard error.
#pragma once

#include "text.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace fld_host
{

// Takes standard output for the program's results. A reader library prints its messages on the
// process's standard output too; from now on those are kept. Throws std::system_error.
FILE* claim_standard_output();

// What a loaded library has printed since the last call; of much text only its end.
std::string take_library_text();

// A line on standard error as it is, and one of the program's own: "fld: WHAT".
void pass_on(const std::string& line);
void complain(const std::string& what);

// Shows on a terminal how far the program is, in a line that the next one replaces; nothing when
// standard error is no terminal, or one that cannot do that.
class Progress
{
public:
    // `number` of `count` files.
    Progress(std::string file, size_t number = 1, size_t count = 1);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    // Of what is done now, in bytes; `all` is 0 when that is not known. Gives true.
    bool show(const std::string& what, int64_t done = 0, int64_t all = 0);

private:
    using Clock = std::chrono::steady_clock;
    std::string file_;
    std::string what_;
    Clock::time_point begin_, shown_;
};
void clear_progress();

// Rows of cells in columns: the first column aligned left, the others right. On a terminal that is
// narrower the columns that do not fit follow below, and long cells of the first are broken.
class Table
{
public:
    // `last_is_text`: the last column is aligned left too.
    explicit Table(std::vector<std::string> head, bool last_is_text = false)
        : last_is_text_(last_is_text), rows_{std::move(head)}
    {
    }
    void add(std::vector<std::string> row) { rows_.push_back(std::move(row)); }
    void print(FILE* out, const char* indent) const;

private:
    bool last_is_text_;
    std::vector<std::vector<std::string>> rows_;
};

// A text behind a label; on a terminal its further lines stand below each other.
void print_folded(FILE* out, const std::string& label, std::string text);

// "3 files", "1 file".
std::string counted(int64_t count, const char* what);

// Names in their order, one that repeats with its number: "A, B x 400".
std::string folded(const std::vector<std::string>& names);

} // namespace fld_host
