// Results for other programs; docs/json.md describes them.
#pragma once

#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>

namespace fld_host
{

// The shortest decimal number that stands for this float; a string for what is no finite number.
nlohmann::json json_real(float value);
nlohmann::json json_real(double value);

// A file's name. One that is not UTF-8 is made readable, and its bytes stand beside it.
void put_file(nlohmann::json& object, const std::string& key, const std::string& path);

// Texts of a file may have any bytes; JSON is UTF-8, so others are replaced.
void print_json(const nlohmann::json& value, FILE* out);

} // namespace fld_host
