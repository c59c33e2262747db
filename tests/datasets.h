// Small datasets that together hold every kind of section, each with the trace that a host must
// see, worked out by hand.
#pragma once

#include "fld_builder.h"
#include "test_host.h"

#include <ostream>
#include <string>
#include <vector>

namespace fld_test
{

struct NamedFile {
    std::string name;
    FldFile file = {};
    std::string bytes = {}; // written instead of the built file when not empty
};

struct Dataset {
    std::string name;
    std::vector<NamedFile> files;        // the last one is opened
    std::string trace;                   // expected: open, peek, all grids, close
    std::vector<NamedFile> changed = {}; // between the header callback and the data callbacks
    Controls controls = {};
    Format format = {}; // in which it is damaged
};

// How a parameter with a name shows, and what its test is called.
template <class T>
requires requires(const T& parameter)
{
    parameter.name;
}
void PrintTo(const T& parameter, std::ostream* stream)
{
    *stream << parameter.name;
}
constexpr auto test_name = [](const auto& test) { return test.param.name; };

const std::vector<Dataset>& datasets();

// The first dataset: a tetrahedron with a wall, an inlet and a scalar. Most wrong files are this
// one with one fault.
FldFile tetrahedron_file();

// The corners of the unit cube, x fastest, then y, then z; and the first few of them.
std::vector<Point> cube_corners(size_t count = 8);

// The path of the last file.
std::string write_files(const TemporaryDirectory& directory, const std::vector<NamedFile>& files,
                        const Format& format = {});

// Opens and peeks at the dataset, reads every grid and closes it, stopping after a failed open.
std::string run(TestHost& host, const Dataset& dataset, const Format& format = {});

// The same by a new host.
std::string run(const std::vector<NamedFile>& files, const Controls& controls = {},
                const Format& format = {});

// The lines of a trace that begin with one of the words.
std::string pick(const std::string& trace, const std::vector<std::string>& words);

// A trace as a visit through the host library shows it.
std::string without_output(const std::string& trace);

// The lines that name a vector's variables.
std::string component_names(const std::string& label, const std::string& key = "");

// Its callbacks but "peek", error flags, output, cells and faces.
std::string events(const std::string& trace);

} // namespace fld_test
