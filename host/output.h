// What the program says: results on standard output, everything else on standard error.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

namespace fld_host
{

// Takes standard output for the program's results. The reader library prints its messages on the
// process's `stdout`; from now on those go to standard error.
FILE* claim_standard_output();

// How many times the reader library has printed something.
size_t library_messages();

// What the library has printed since the last call; of much text only its end.
std::string take_library_text();

// While one lives, the messages of the reader library are dropped.
class MuteLibrary
{
public:
    MuteLibrary();
    ~MuteLibrary();
    MuteLibrary(const MuteLibrary&) = delete;
    MuteLibrary& operator=(const MuteLibrary&) = delete;
};

// One line of the program's own on standard error: "fld: SUBJECT: WHAT".
void report(const std::string& subject, const std::string& what);

// Shows on a terminal what the program is doing, in a line that the next one replaces; nothing
// when standard error is not a terminal.
void show_progress(const std::string& text);
void clear_progress();

// ---- text ----

// `text` without what a terminal might take for a command: bytes that are neither printable nor
// part of UTF-8 text become '?'. Names and messages carry whatever bytes a file has.
std::string printable(std::string_view text);

// Columns that `text` takes on a terminal.
size_t display_width(std::string_view text);

// 1234567 as "1,234,567".
std::string grouped(long long number);

// A real with six significant digits.
std::string real_text(float value);

// Rows of cells in columns: the first column aligned left, the others right.
class Table
{
public:
    explicit Table(std::vector<std::string> head) : rows_{std::move(head)} {}
    void add(std::vector<std::string> row) { rows_.push_back(std::move(row)); }
    void print(FILE* out, const char* indent) const;

private:
    std::vector<std::vector<std::string>> rows_;
};

} // namespace fld_host
