// What the bytes of one fuzz input mean. All but the series of names share this layout: a file, a
// second file, choices, then the lengths of the latter two in 2 bytes and 1 byte.
#pragma once

#include "fld_builder.h"

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace fld_fuzz
{

struct Input {
    std::string file;
    std::string second_file;
    std::string choices; // what the host does with the file, or a program of calls
};

// Lengths that claim more than there is are cut down to it.
Input split_input(const uint8_t* data, size_t size);
std::string joined(const Input& input);

// A byte of the choices; 0 beyond their end.
inline uint8_t choice(const std::string& choices, size_t at)
{
    return at < choices.size() ? static_cast<uint8_t>(choices[at]) : 0;
}

// A file taken apart into its records, by nothing but the rules of the framing.
struct FldRecords {
    fld_test::Format format; // its byte order and longest sub-record
    std::vector<std::string> records;
    std::string rest; // behind the last whole record
};

// Takes the byte order that frames more of the file.
FldRecords parse_records(const std::string& bytes);
std::string framed(const FldRecords& file);

// Ends the process, as a finding, when the condition does not hold.
void require(bool condition, const char* what);

// Where a replay shows what came of each input; null: nowhere.
inline FILE* shown = nullptr;
inline void show(const std::string& trace)
{
    if (shown) (void)fwrite(trace.data(), 1, trace.size(), shown);
}

} // namespace fld_fuzz
