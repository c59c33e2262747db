#include "readers/cradle/time_series_names_S.h"

#include "readers/cradle/diagnostics.h"
#include "readers/cradle/series_expression.h"
#include "ui/util/utf8wrap.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

constexpr size_t TEXT_SIZE = 256; // every name, path, pattern and expression: 255 characters

TimeSeriesEntry TimeSeriesTable[MAX_SERIES_FILES];

// ---- names ----

enum class SeriesForm {
    numbered_base,     // flow0012.fld: prefix "flow", extension ".fld"
    numbered_extension // case.0005: prefix "case", no extension
};

struct SeriesName {
    char directory[TEXT_SIZE]; // with its separator; empty for the current directory
    char prefix[TEXT_SIZE];
    char extension[TEXT_SIZE]; // with its dot
    SeriesForm form;
    bool is_plain; // no character of it means anything else in an expression
};

static bool is_digit(char c)
{
    return c >= '0' && c <= '9';
}

static void copy_text(const char* from, const char* end, char (&to)[TEXT_SIZE])
{
    const auto length = static_cast<size_t>(end - from);
    memcpy(to, from, length);
    to[length] = '\0';
}

// The first dot that neither begins the component nor follows another dot; its end without one.
static const char* find_extension(const char* component)
{
    for (const char* c = component; *c != '\0'; ++c) {
        if (*c == '.' && c != component && c[-1] != '.') return c;
    }
    return component + strlen(component);
}

static const char* trailing_digits(const char* begin, const char* end)
{
    const char* digits = end;
    while (digits != begin && is_digit(digits[-1])) --digits;
    return digits;
}

// False for a name without a number, or one that is too long.
static bool split_series_name(const char* name, SeriesName* split)
{
    const size_t length = strnlen(name, TEXT_SIZE);
    if (length >= TEXT_SIZE) return false;
    const char* const end = name + length;
    const char* component = end;
    while (component != name && !strchr("/\\:", component[-1])) --component;
    const char* const extension = find_extension(component);
    if (extension == component) return false;
    copy_text(name, component, split->directory);

    const char* const base_digits = trailing_digits(component, extension);
    if (base_digits != extension) {
        split->form = SeriesForm::numbered_base;
        copy_text(component, base_digits, split->prefix);
        copy_text(extension, end, split->extension);
        return true;
    }
    if (end - extension < 2 || !std::all_of(extension + 1, end, is_digit)) return false;
    split->form = SeriesForm::numbered_extension;
    copy_text(component, extension, split->prefix);
    split->extension[0] = '\0';
    return true;
}

// The number of a file of the series: the digits that end its base, or its extension. Larger
// numbers than an int32 holds all count as its largest. A character of the series' name that means
// something else in an expression can let a file through that ends in no digit: it has number 0.
static int32_t series_number(const char* file_name, SeriesForm form)
{
    const char* const extension = find_extension(file_name);
    const bool in_base = form == SeriesForm::numbered_base;
    const char* const begin = in_base ? file_name : extension;
    const char* const end = in_base ? extension : file_name + strlen(file_name);
    int64_t value = 0;
    for (const char* digit = trailing_digits(begin, end); digit != end; ++digit) {
        value = std::min<int64_t>(value * 10 + (*digit - '0'), INT32_MAX);
    }
    return static_cast<int32_t>(value);
}

static char lower(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

static bool equal_ignoring_case(const char* a, const char* b)
{
    while (*a != '\0' && lower(*a) == lower(*b)) {
        ++a;
        ++b;
    }
    return lower(*a) == lower(*b);
}

// ---- expressions ----

static void print_series_error(const char* what, const char* text)
{
    print_series_diagnostic("\n***ERROR: %s \"%s\"\n", what, text);
}

// The names of a series: prefix and extension as they are, a number between them. What stands in
// them for something else in a regular expression keeps that meaning.
static bool compile_expression(const SeriesName& name, SeriesExpression* expression)
{
    char text[3 * TEXT_SIZE];
    if (name.form == SeriesForm::numbered_extension) {
        (void)snprintf(text, sizeof text, "^%s\\.[0-9][0-9]*$", name.prefix);
    } else if (name.extension[0] != '\0') {
        (void)snprintf(text, sizeof text, "^%s[0-9][0-9]*\\%s$", name.prefix, name.extension);
    } else {
        (void)snprintf(text, sizeof text, "^%s[0-9][0-9]*$", name.prefix);
    }
    if (compile_series_expression(text, expression)) return true;
    print_series_error("regcmp error", text);
    return false;
}

static bool is_plain(const char* text)
{
    for (; *text != '\0'; ++text) {
        const bool is_letter = lower(*text) >= 'a' && lower(*text) <= 'z';
        if (!is_letter && !is_digit(*text) && *text != '_' && *text != '-') return false;
    }
    return true;
}

// Whether a name matches the expression. Where no character means anything else, the names are
// compared as they are, which says the same at a small part of the cost.
static bool matches(const SeriesName& given, const SeriesExpression& expression, const char* name)
{
    if (!given.is_plain) return matches_series_expression(expression, name);
    const size_t length = strlen(given.prefix);
    if (strncmp(name, given.prefix, length) != 0) return false;
    const char* begin = name + length;
    if (given.form == SeriesForm::numbered_extension && *begin++ != '.') return false;
    const char* digit = begin;
    while (is_digit(*digit)) ++digit;
    return digit != begin && strcmp(digit, given.extension) == 0;
}

// ---- the table ----

static bool* noted_lack_of_memory;

void note_lack_of_memory(bool* noted)
{
    noted_lack_of_memory = noted;
}

// Without memory for the path the series could only be shown with a hole in it: the process ends,
// or the search, when whoever linked the reader wants to go on.
static bool add_file(const char* path, int32_t number, int32_t* count)
{
    const size_t size = strlen(path) + 1;
    TimeSeriesEntry& entry = TimeSeriesTable[*count];
    entry.path = heap_array<char>(static_cast<int64_t>(size));
    if (!entry.path) {
        print_series_diagnostic("ERROR: %s - file \"%s\" line %d\n", "Out of memory",
                                "src/readers/cradle/time_series_names_S", 519);
        if (!noted_lack_of_memory) exit(1);
        *noted_lack_of_memory = true;
        return false;
    }
    memcpy(entry.path.get(), path, size);
    entry.number = number;
    ++*count;
    return true;
}

// A listed entry joins the table when it is a regular file of the series; false when the table is
// full or there is no memory. Asking the system for the status of each of thousands of files would
// take most of the time of an open, so it is asked only where the directory does not tell.
static bool take_entry(const SeriesName& given, const SeriesExpression& expression,
                       const utf8wrap::FoundEntry& found, int32_t* count)
{
    if (!matches(given, expression, found.name)) return true;
    char path[2 * TEXT_SIZE];
    (void)snprintf(path, sizeof path, "%s%s", given.directory, found.name);
    if (strlen(path) >= TEXT_SIZE) return true;
    utf8wrap::FileStatus status{};
    const bool is_regular =
        found.is_regular || (utf8wrap::_stat64(path, &status) == 0 && status.is_regular);
    if (!is_regular) return true;
    if (*count >= MAX_SERIES_FILES) return false;
    return add_file(path, series_number(found.name, given.form), count);
}

// False when the directory cannot be listed.
static bool list_series(const SeriesName& given, const SeriesExpression& expression, int32_t* count)
{
    char pattern[TEXT_SIZE + 2];
    (void)snprintf(pattern, sizeof pattern, "%s?*", given.directory);
    utf8wrap::Listing listing;
    utf8wrap::FoundEntry entry{};
    bool more = strlen(pattern) < TEXT_SIZE && utf8wrap::FindFirstFileA(pattern, &listing, &entry);
    if (!more) {
        print_series_error("Can't open dir", given.directory);
        return false;
    }
    while (more && take_entry(given, expression, entry, count)) {
        more = utf8wrap::FindNextFileA(&listing, &entry);
    }
    return !noted_lack_of_memory || !*noted_lack_of_memory;
}

static int32_t compare_series_numbers(const TimeSeriesEntry& a, const TimeSeriesEntry& b)
{
    if (a.number != b.number) return a.number < b.number ? -1 : 1;
    return 0;
}

int32_t time_series_names_S(const char* name, int32_t* index)
{
    *index = -1;
    int32_t count = 0;
    SeriesName given{};
    SeriesExpression expression;
    if (!split_series_name(name, &given) || !compile_expression(given, &expression)) return 0;
    const char* const ending = given.extension[0] == '.' ? given.extension + 1 : given.extension;
    given.is_plain = is_plain(given.prefix) && is_plain(ending);
    if (!list_series(given, expression, &count)) return 0;
    std::sort(TimeSeriesTable, TimeSeriesTable + count,
              [](const TimeSeriesEntry& a, const TimeSeriesEntry& b) {
                  return compare_series_numbers(a, b) < 0;
              });
    for (int32_t row = 0; row < count && *index < 0; ++row) {
        if (equal_ignoring_case(name, TimeSeriesTable[row].path.get())) *index = row;
    }
    return count;
}
