#include "series.h"

#include "paths.h"
#include "platform.h"
#include "ui/util/utf8wrap.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <map>
#include <string_view>
#include <system_error>
#include <tuple>

namespace fld_host
{

static constexpr char DIGITS[] = "0123456789";

static size_t extension_start(std::string_view name)
{
    for (size_t at = 1; at < name.size(); ++at) {
        if (name[at] == '.' && name[at - 1] != '.') return at;
    }
    return name.size();
}

std::optional<SeriesName> split_series_name(const std::string& path)
{
    const std::string name = name_of(path);
    const size_t base_end = extension_start(name);
    const std::string base = name.substr(0, base_end);
    const std::string extension = name.substr(base_end);
    if (base.empty()) return std::nullopt;

    const std::string directory = directory_of(path);
    const size_t prefix_end = base.find_last_not_of(DIGITS) + 1;
    if (prefix_end < base.size()) {
        return SeriesName{directory, base.substr(0, prefix_end), base.substr(prefix_end),
                          extension};
    }
    if (extension.size() < 2 || extension.find_first_not_of(DIGITS, 1) != std::string::npos) {
        return std::nullopt;
    }
    return SeriesName{directory, base + '.', extension.substr(1), ""};
}

static std::string without_leading_zeros(const std::string& digits)
{
    const size_t first = digits.find_first_not_of('0');
    return first == std::string::npos ? "0" : digits.substr(first);
}

// Longer numbers are larger. Names that stand for the same number (flow1, flow01) go by their text.
static bool comes_before(const SeriesFile& a, const SeriesFile& b)
{
    return std::forward_as_tuple(a.number.size(), a.number, a.path) <
           std::forward_as_tuple(b.number.size(), b.number, b.path);
}

static bool is_regular(const utf8wrap::FoundEntry& entry, const std::string& path)
{
    utf8wrap::FileStatus status{};
    return entry.is_regular || (utf8wrap::_stat64(path.c_str(), &status) == 0 && status.is_regular);
}

std::vector<SeriesFile> list_series(const SeriesName& name)
{
    std::vector<SeriesFile> files;
    utf8wrap::Listing listing;
    utf8wrap::FoundEntry entry{};
    errno = ENAMETOOLONG; // when the system is not even asked
    if (!utf8wrap::FindFirstFileA((name.directory + "?*").c_str(), &listing, &entry)) {
        throw std::system_error(errno, std::generic_category());
    }
    do {
        const std::string path = name.directory + entry.name;
        const std::optional<SeriesName> other = split_series_name(path);
        if (other && other->prefix == name.prefix && other->suffix == name.suffix &&
            is_regular(entry, path)) {
            files.push_back({path, without_leading_zeros(other->digits)});
        }
    } while (utf8wrap::FindNextFileA(&listing, &entry));
    std::sort(files.begin(), files.end(), comes_before);
    return files;
}

std::vector<SeriesFile> list_steps(const std::string& file)
{
    const std::optional<SeriesName> name = split_series_name(file);
    return name ? list_series(*name) : std::vector<SeriesFile>();
}

std::string why_in_no_series(const std::string& file)
{
    const std::string name = split_series_name(file) ? other_name(file) : "";
    if (name.empty()) return "";
    return "the file is named \"" + name + "\", and series are found by names as they are written";
}

void look_into(const std::shared_ptr<Reader>& reader, SeriesFile& file)
{
    file.holds_grid = reader->holds_grid(file.path);
    try {
        file.time = reader->time(file.path);
    } catch (const Error&) {
        file.time = std::nullopt;
    }
}

std::vector<SeriesFile> series_of(const std::shared_ptr<Reader>& reader, const std::string& file)
{
    std::vector<SeriesFile> files = list_steps(file);
    for (SeriesFile& one : files) look_into(reader, one);
    return files;
}

// The distinct numbers of a series in ascending order.
static std::vector<uint64_t> series_numbers(const std::vector<SeriesFile>& series)
{
    std::vector<uint64_t> numbers;
    for (const SeriesFile& file : series) {
        uint64_t number = 0;
        const char* end = file.number.data() + file.number.size();
        if (std::from_chars(file.number.data(), end, number).ec == std::errc()) {
            numbers.push_back(number);
        }
    }
    numbers.erase(std::unique(numbers.begin(), numbers.end()), numbers.end());
    return numbers;
}

// The most frequent distance of neighbours, the earliest of those that are equally frequent; 0
// when there are no neighbours.
static uint64_t usual_step(const std::vector<uint64_t>& numbers)
{
    std::map<uint64_t, size_t> frequency;
    for (size_t i = 1; i < numbers.size(); ++i) ++frequency[numbers[i] - numbers[i - 1]];
    uint64_t usual = 0;
    for (size_t i = 1; i < numbers.size(); ++i) {
        const uint64_t distance = numbers[i] - numbers[i - 1];
        if (usual == 0 || frequency[distance] > frequency[usual]) usual = distance;
    }
    return usual;
}

std::vector<MissingNumbers> missing_numbers(const std::vector<SeriesFile>& series)
{
    const std::vector<uint64_t> numbers = series_numbers(series);
    const uint64_t step = usual_step(numbers);
    std::vector<MissingNumbers> gaps;
    for (size_t i = 1; i < numbers.size(); ++i) {
        const uint64_t distance = numbers[i] - numbers[i - 1];
        // A series often ends, or starts anew, beside its steps: that is no gap.
        if (distance > step && distance % step == 0) {
            gaps.push_back({numbers[i - 1] + step, numbers[i] - step, step});
        }
    }
    return gaps;
}

} // namespace fld_host
