// Results for other programs.
#pragma once

#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>

namespace fld_host
{

// The shortest decimal number that stands for this float; null when JSON has none.
inline nlohmann::json json_real(float value)
{
    if (!std::isfinite(value)) return nullptr;
    std::array<char, 32> text{};
    std::to_chars(text.data(), text.data() + text.size() - 1, value);
    return std::strtod(text.data(), nullptr);
}

// Texts of a file may have any bytes; JSON is UTF-8, so others are replaced.
inline void print_json(const nlohmann::json& value, FILE* out)
{
    const std::string text =
        value.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + '\n';
    (void)fwrite(text.data(), 1, text.size(), out);
}

} // namespace fld_host
