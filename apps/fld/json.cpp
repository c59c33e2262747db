#include "json.h"

#include "text.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstdlib>

namespace fld_host
{

static const char* name_of(double value)
{
    if (std::isnan(value)) return "NaN";
    return value > 0 ? "Infinity" : "-Infinity";
}

nlohmann::json json_real(float value)
{
    if (!std::isfinite(value)) return name_of(static_cast<double>(value));
    std::array<char, 32> text{};
    std::to_chars(text.data(), text.data() + text.size() - 1, value);
    return std::strtod(text.data(), nullptr);
}

nlohmann::json json_real(double value)
{
    if (!std::isfinite(value)) return name_of(value);
    return value;
}

static bool is_utf8(const std::string& text)
{
    try {
        (void)nlohmann::json(text).dump();
        return true;
    } catch (const nlohmann::json::type_error&) {
        return false;
    }
}

void put_file(nlohmann::json& object, const std::string& key, const std::string& path)
{
    if (is_utf8(path)) {
        object[key] = path;
        return;
    }
    object[key] = printable(path);
    std::string bytes;
    for (const char c : path) {
        static constexpr char digits[] = "0123456789abcdef";
        const auto byte = static_cast<unsigned char>(c);
        bytes += {digits[byte >> 4], digits[byte & 15]};
    }
    object[key + "_bytes"] = bytes;
}

void print_json(const nlohmann::json& value, FILE* out)
{
    const std::string text =
        value.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + '\n';
    (void)fwrite(text.data(), 1, text.size(), out);
}

} // namespace fld_host
