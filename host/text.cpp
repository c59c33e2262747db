#include "text.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace fld_host
{

static bool is_continuation(char byte)
{
    return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}

// The bytes of the printable character that `text` begins with, 0 when it begins with none.
static size_t printable_length(std::string_view text)
{
    const auto first = static_cast<unsigned char>(text[0]);
    if (first >= 0x20 && first < 0x7F) return 1;
    const size_t length = first >= 0xC2 && first < 0xE0   ? 2
                          : first >= 0xE0 && first < 0xF0 ? 3
                          : first >= 0xF0 && first < 0xF5 ? 4
                                                          : 0;
    if (length == 0 || text.size() < length) return 0;
    if (!std::all_of(text.begin() + 1, text.begin() + static_cast<ptrdiff_t>(length),
                     is_continuation)) {
        return 0;
    }
    // U+0080 to U+009F are control characters.
    const auto second = static_cast<unsigned char>(text[1]);
    return first == 0xC2 && second < 0xA0 ? 0 : length;
}

std::string printable(std::string_view text)
{
    std::string result;
    while (!text.empty()) {
        const size_t length = printable_length(text);
        if (length == 0)
            result += '?';
        else
            result += text.substr(0, length);
        text.remove_prefix(std::max<size_t>(length, 1));
    }
    return result;
}

size_t display_width(std::string_view text)
{
    return text.size() -
           static_cast<size_t>(std::count_if(text.begin(), text.end(), is_continuation));
}

std::string grouped(long long number)
{
    std::string text = std::to_string(number);
    const size_t first_digit = number < 0 ? 1 : 0;
    for (size_t at = text.size(); at > first_digit + 3;) {
        at -= 3;
        text.insert(at, 1, ',');
    }
    return text;
}

std::string real_text(float value)
{
    return real_text(static_cast<double>(value));
}

std::string real_text(double value)
{
    std::array<char, 32> text{};
    (void)snprintf(text.data(), text.size(), "%.6g", value);
    return text.data();
}

} // namespace fld_host
