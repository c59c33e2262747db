#include "output.h"

#include "terminal.h"
#include "ui/util/utf8wrap.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <map>
#include <system_error>
#include <utility>

namespace fld_host
{

// ---- standard output and standard error ----

static bool progress_is_shown;

[[gnu::format(printf, 1, 2)]] static void print_error(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    utf8wrap::print(utf8wrap::Output::error, format, arguments);
    va_end(arguments);
}

// A library may end the process: what it said then is not lost.
static void pass_on_last_words()
{
    const std::string text = take_library_text();
    if (!text.empty()) pass_on(text.substr(0, text.find_last_not_of('\n') + 1));
}

FILE* claim_standard_output()
{
    FILE* const results = divert_standard_output();
    if (atexit(pass_on_last_words) == 0) return results;
    throw std::system_error(errno, std::generic_category(), "standard output");
}

std::string take_library_text()
{
    return take_kept_output();
}

void pass_on(const std::string& line)
{
    clear_progress();
    print_error("%s\n", printable(line).c_str());
}

void complain(const std::string& what)
{
    pass_on("fld: " + what);
}

// ---- progress ----

Progress::Progress(std::string file, size_t number, size_t count) : file_(std::move(file))
{
    if (count > 1) {
        file_ += " (file " + std::to_string(number) + " of " + std::to_string(count) + ")";
    }
}

Progress::~Progress()
{
    clear_progress();
}

static std::string megabytes(int64_t bytes)
{
    return grouped(bytes / 1'000'000) + " MB";
}

bool Progress::show(const std::string& what, int64_t done, int64_t all)
{
    const size_t width = can_clear_lines() ? terminal_width(stderr) : 0;
    if (width == 0) return true;
    const auto now = Clock::now();
    const bool is_new = what != what_;
    if (!is_new && now - shown_ < std::chrono::milliseconds(100)) return true;
    if (is_new) begin_ = now;
    shown_ = now;
    what_ = what;
    std::string line = file_ + ": " + what;
    if (all > 0) {
        line += ", " + megabytes(done) + " of " + megabytes(all) + ", " +
                std::to_string(100 * done / all) + " %";
        const double seconds = std::chrono::duration<double>(now - begin_).count();
        if (done > 0 && seconds > 1) {
            const double left =
                seconds * static_cast<double>(all - done) / static_cast<double>(done);
            line += ", " + std::to_string(static_cast<int64_t>(left) + 1) + " s left";
        }
    }
    line = printable(line);
    // A line that wraps could not be cleared.
    while (display_width(line) >= width) line.pop_back();
    print_error("\r\033[K%s", line.c_str());
    progress_is_shown = true;
    return true;
}

void clear_progress()
{
    if (std::exchange(progress_is_shown, false)) print_error("\r\033[K");
}

// ---- tables ----

// The start of a text that fits into so many columns, broken at a blank when there is one.
static std::string take_start(std::string& text, size_t width)
{
    size_t end = text.size();
    while (display_width(text.substr(0, end)) > width) {
        do --end;
        while (end > 1 && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80U);
    }
    if (end < text.size()) {
        const size_t blank = text.rfind(' ', end);
        if (blank != std::string::npos && text.find_first_not_of(' ') < blank) end = blank;
    }
    std::string start = text.substr(0, end);
    text.erase(0, std::min(text.find_first_not_of(' ', end), text.size()));
    return start;
}

void print_folded(FILE* out, const std::string& label, std::string text)
{
    const size_t terminal = terminal_width(out);
    const size_t indent = display_width(label);
    const size_t room = terminal == 0 ? SIZE_MAX : std::max<size_t>(terminal, indent + 20) - indent;
    std::string start = label;
    do {
        (void)fprintf(out, "%s%s\n", start.c_str(), take_start(text, room).c_str());
        start.assign(indent, ' ');
    } while (!text.empty());
}

static std::string row_line(const std::vector<std::string>& row, const std::vector<size_t>& widths,
                            size_t begin, size_t end)
{
    std::string line;
    for (size_t c = begin; c < end; ++c) {
        const std::string cell = c < row.size() ? row[c] : "";
        line += std::string(2 + widths[c] - display_width(cell), ' ') + cell;
    }
    return line;
}

void Table::print(FILE* out, const char* indent) const
{
    std::vector<size_t> widths;
    for (const auto& row : rows_) {
        widths.resize(std::max(widths.size(), row.size()));
        for (size_t c = 0; c < row.size(); ++c) {
            widths[c] = std::max(widths[c], display_width(row[c]));
        }
    }
    if (last_is_text_) widths.back() = 20; // at least: its cells are folded
    const size_t terminal = terminal_width(out);
    const size_t room = terminal == 0 ? SIZE_MAX : std::max<size_t>(terminal, 24) - strlen(indent);
    size_t all = 0;
    for (const size_t width : widths) all += width + 2;
    const size_t first =
        all - 2 > room ? std::min(widths[0], std::max<size_t>(room / 2, 10)) : widths[0];
    for (size_t begin = 1; begin == 1 || begin < widths.size();) {
        size_t end = begin;
        size_t taken = first;
        while (end < widths.size() && (end == begin || taken + 2 + widths[end] <= room)) {
            taken += 2 + widths[end++];
        }
        for (const auto& row : rows_) {
            std::string name = row[0];
            std::string start = take_start(name, first);
            const bool has_text = last_is_text_ && end == widths.size();
            std::string line = indent + start + std::string(first - display_width(start), ' ') +
                               row_line(row, widths, begin, has_text ? end - 1 : end);
            if (has_text && row.size() == widths.size()) {
                print_folded(out, line + "  ", row.back());
            } else {
                line.erase(line.find_last_not_of(' ') + 1);
                (void)fprintf(out, "%s\n", line.c_str());
            }
            while (!name.empty()) {
                (void)fprintf(out, "%s    %s\n", indent, take_start(name, first - 4).c_str());
            }
        }
        begin = std::max(end, begin + 1);
    }
}

// ---- words ----

std::string counted(int64_t count, const char* what)
{
    return grouped(count) + ' ' + what + (count == 1 ? "" : "s");
}

std::string folded(const std::vector<std::string>& names)
{
    std::vector<std::string> order;
    std::map<std::string, long long> times;
    for (const std::string& name : names) {
        if (++times[name] == 1) order.push_back(name);
    }
    std::string text;
    for (const std::string& name : order) {
        text += (text.empty() ? "" : ", ") + name;
        if (times[name] > 1) text += " x " + grouped(times[name]);
    }
    return text;
}

} // namespace fld_host
