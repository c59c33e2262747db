// What the program asks of the system beside files: its standard input, output and error, the
// terminal that they are, and whoever stops it. One source file for each kind of system stands
// behind it.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>

namespace fld_host
{

// The program, called by the main function of each system: the arguments are UTF-8, as far as the
// user's are text, and results may be printed on standard output, with "\n" alone for line ends.
// Gives the exit status.
int run_program(int argc, char** argv);

// ---- standard input, output and error ----

// Whoever starts a program without standard input, output or error would have it write into the
// next files that it opens. Gives whether standard output is there.
bool fill_standard_files();

// Takes standard output for the program's results: what a library prints on it from now on is kept.
// The caller closes the stream. Throws std::system_error.
FILE* divert_standard_output();

// What was kept since the last call; of much text only the end.
std::string take_kept_output();

// Leaves of much text its last lines.
constexpr size_t KEPT_TEXT = 20000; // bytes
inline void keep_end(std::string& text)
{
    if (text.size() > KEPT_TEXT) text.erase(0, text.find('\n', text.size() - KEPT_TEXT) + 1);
}

// ---- the terminal ----

// Columns of the terminal that a stream goes to, 0 when it is none.
size_t terminal_width(FILE* stream);

// Whether standard error, when it is a terminal, clears the rest of a line on "\033[K".
bool can_clear_lines();

// ---- whoever stops the program ----

// From now on the user's Ctrl-C does not end the program: is_stopped tells it.
void stop_when_interrupted();
// And neither does whoever else ends it in order, or takes its room for files.
void stop_when_ended();
bool is_stopped();

} // namespace fld_host
