#include "input.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace fld_fuzz
{

// ---- the layout of an input ----

constexpr size_t LENGTHS_SIZE = 3;

Input split_input(const uint8_t* data, size_t size)
{
    if (size < LENGTHS_SIZE) return {};
    const std::string text(reinterpret_cast<const char*>(data), size - LENGTHS_SIZE);
    const uint8_t* const lengths = data + text.size();
    const size_t choices = std::min<size_t>(lengths[2], text.size());
    const size_t files = text.size() - choices;
    const size_t second = std::min<size_t>(lengths[0] + 256U * lengths[1], files);
    return {text.substr(0, files - second), text.substr(files - second, second),
            text.substr(files)};
}

std::string joined(const Input& input)
{
    const size_t second = std::min<size_t>(input.second_file.size(), UINT16_MAX);
    const size_t choices = std::min<size_t>(input.choices.size(), UINT8_MAX);
    std::string text = input.file + input.second_file.substr(0, second);
    text += input.choices.substr(0, choices);
    for (const size_t byte : {second & 0xFF, second >> 8, choices}) text += static_cast<char>(byte);
    return text;
}

// ---- records ----

static FldRecords parse_in_order(const std::string& bytes, bool big_endian)
{
    FldRecords file;
    file.format.big_endian = big_endian;
    for (const fld_test::Subrecord& part : fld_test::subrecords_of(bytes, big_endian)) {
        const auto length = static_cast<int32_t>(part.length);
        if (part.goes_on) file.format.max_subrecord = std::max(file.format.max_subrecord, length);
    }
    size_t end = 0;
    for (const fld_test::Record& record : fld_test::records_of(bytes, big_endian)) {
        file.records.push_back(record.data);
        end = record.end;
    }
    file.rest = bytes.substr(end);
    return file;
}

FldRecords parse_records(const std::string& bytes)
{
    FldRecords little = parse_in_order(bytes, false);
    if (little.rest.size() < 4) return little;
    FldRecords big = parse_in_order(bytes, true);
    return big.rest.size() < little.rest.size() ? big : little;
}

std::string framed(const FldRecords& file)
{
    fld_test::FldBuilder builder(file.format);
    for (const std::string& record : file.records) builder.record(record);
    return builder.raw(file.rest).bytes();
}

void require(bool condition, const char* what)
{
    if (condition) return;
    (void)fprintf(stderr, "fuzz: %s\n", what);
    abort();
}

} // namespace fld_fuzz
