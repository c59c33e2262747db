// What the program says: results on standard output, everything else on standard error.
#pragma once

#include "text.h"

#include <cstddef>
#include <cstdio>
#include <string>
#include <vector>

namespace fld_host
{

// Takes standard output for the program's results. The reader library prints its messages on the
// process's `stdout`; from now on those go to standard error.
FILE* claim_standard_output();

// Says on standard error what the reader has said.
void pass_on(const std::string& messages);

// What a loaded library has printed since the last call; of much text only its end.
std::string take_library_text();

// One line of the program's own on standard error: "fld: WHAT", and "fld: SUBJECT: WHAT".
void complain(const std::string& what);
void report(const std::string& subject, const std::string& what);

// Shows on a terminal what the program is doing, in a line that the next one replaces; nothing
// when standard error is not a terminal.
void show_progress(const std::string& text);
void clear_progress();

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
