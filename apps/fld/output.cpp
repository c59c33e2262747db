#include "output.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <sys/ioctl.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace fld_host
{

// ---- standard output and standard error ----

static std::string library_text;
static constexpr size_t KEPT_TEXT = 2000;
static bool progress_is_shown;

static std::string printable_lines(std::string_view text)
{
    std::string lines;
    for (size_t start = 0; start < text.size();) {
        const size_t end = std::min(text.find('\n', start), text.size());
        lines += printable(text.substr(start, end - start));
        if (end < text.size()) lines += '\n';
        start = end + 1;
    }
    return lines;
}

// Where the C library hands over what the reader has printed.
static ssize_t take_library_message(void* /*cookie*/, const char* text, size_t size)
{
    clear_progress();
    const std::string lines = printable_lines({text, size});
    library_text += lines;
    if (library_text.size() > KEPT_TEXT) {
        library_text.erase(0, library_text.find('\n', library_text.size() - KEPT_TEXT) + 1);
    }
    (void)fwrite(lines.data(), 1, lines.size(), stderr);
    return static_cast<ssize_t>(size);
}

FILE* claim_standard_output()
{
    const int results = dup(STDOUT_FILENO);
    FILE* stream = results < 0 ? nullptr : fdopen(results, "w");
    // For whatever does not print through `stdout`.
    if (!stream || dup2(STDERR_FILENO, STDOUT_FILENO) < 0) {
        throw std::system_error(errno, std::generic_category(), "standard output");
    }
    cookie_io_functions_t functions = {};
    functions.write = take_library_message;
    FILE* messages = fopencookie(nullptr, "w", functions);
    if (!messages) throw std::system_error(errno, std::generic_category(), "standard output");
    setvbuf(messages, nullptr, _IOLBF, BUFSIZ);
    stdout = messages;
    return stream;
}

void pass_on(const std::string& messages)
{
    if (messages.empty()) return;
    clear_progress();
    const std::string lines = printable_lines(messages);
    (void)fwrite(lines.data(), 1, lines.size(), stderr);
}

std::string take_library_text()
{
    (void)fflush(stdout);
    return std::exchange(library_text, {});
}

void complain(const std::string& what)
{
    (void)fflush(stdout);
    clear_progress();
    const std::string line = "fld: " + printable(what) + '\n';
    (void)fputs(line.c_str(), stderr);
}

void report(const std::string& subject, const std::string& what)
{
    complain(subject + ": " + what);
}

// ---- progress ----

// Columns of the terminal at standard error, 0 when there is none.
static size_t terminal_width()
{
    winsize size = {};
    if (!isatty(STDERR_FILENO)) return 0;
    const bool known = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1;
    return known ? size.ws_col : 80;
}

void show_progress(const std::string& text)
{
    const size_t width = terminal_width();
    if (width == 0) return;
    std::string line = printable(text);
    // A line that wraps could not be cleared.
    while (display_width(line) >= width) line.pop_back();
    (void)fprintf(stderr, "\r\033[K%s", line.c_str());
    progress_is_shown = true;
}

void clear_progress()
{
    if (progress_is_shown) (void)fputs("\r\033[K", stderr);
    progress_is_shown = false;
}

// ---- tables ----

void Table::print(FILE* out, const char* indent) const
{
    std::vector<size_t> widths;
    for (const auto& row : rows_) {
        widths.resize(std::max(widths.size(), row.size()));
        for (size_t c = 0; c < row.size(); ++c) {
            widths[c] = std::max(widths[c], display_width(row[c]));
        }
    }
    for (const auto& row : rows_) {
        std::string line = indent;
        for (size_t c = 0; c < row.size(); ++c) {
            const std::string padding(widths[c] - display_width(row[c]), ' ');
            line += c == 0 ? row[c] + padding : "  " + padding + row[c];
        }
        line.erase(line.find_last_not_of(' ') + 1);
        (void)fprintf(out, "%s\n", line.c_str());
    }
}

} // namespace fld_host
