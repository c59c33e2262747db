// The sample files, written by the Fortran runtime: the same trace in every framing, and every
// value against its formula.
#include "datasets.h"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <map>
#include <numbers>
#include <sstream>

namespace fld_test
{

constexpr const char* writers[] = {"little", "big", "short", "big_short"};
constexpr const char* sample_files[] = {"duct.fld",         "overlap.fld",      "annulus_0000.fld",
                                        "annulus_0001.fld", "annulus_0003.fld", "annulus_0004.fld"};

static void write_samples(const std::string& writer, const TemporaryDirectory& directory,
                          const std::string& options)
{
    const std::string command =
        FLD_SAMPLES_DIRECTORY "/write_samples_" + writer + " " + directory.path("") + " " + options;
    ASSERT_EQ(system(command.c_str()), 0) << command;
}

static std::string sample_trace(TestHost& host, const std::string& path)
{
    host.controls.variable_capacity = 16;
    host.open(path);
    host.peek(path);
    for (int32_t grid = 1; host.error_flag() == 0 && grid <= host.grid_count(); ++grid) {
        host.read(grid);
    }
    std::string trace = host.take_trace();
    EXPECT_EQ(pick(trace, {"out", "err"}), "");
    EXPECT_EQ(host.error_flag(), 0) << path;
    return trace;
}

TEST(Samples, have_one_trace_in_every_framing)
{
    TestHost host;
    host.start();
    for (const char* options :
         {"--precision single", "--precision double", "--precision single --values-per-record 7",
          "--precision double --values-per-record 100"}) {
        std::map<std::string, std::string> traces;
        for (const char* writer : writers) {
            const TemporaryDirectory directory;
            write_samples(writer, directory, options);
            for (const char* file : sample_files) {
                const std::string trace = sample_trace(host, directory.path(file));
                const auto [first, is_first] = traces.emplace(file, trace);
                EXPECT_TRUE(first->second == trace) << writer << " " << options << " " << file;
            }
        }
    }
}

// Rounding to floats before or after writing is the same, but for cylindrical vectors: their
// components enter the transform in double precision.
TEST(Samples, have_one_trace_in_both_precisions)
{
    TestHost host;
    host.start();
    const TemporaryDirectory single, twice;
    write_samples("big_short", single, "--precision single");
    write_samples("little", twice, "--precision double --values-per-record 3");
    for (const char* file : {"duct.fld", "overlap.fld"}) {
        EXPECT_EQ(sample_trace(host, single.path(file)), sample_trace(host, twice.path(file)))
            << file;
    }
}

// ---- formulas ----

struct GridRead {
    std::vector<float> x, y, z;
    std::map<std::string, std::vector<float>> values; // by variable name
    std::map<std::string, int> counts;                // of the trace's lines by first word
    std::map<std::string, std::vector<std::vector<size_t>>> faces; // nodes from 0, by boundary
    int flagged = 0;                                               // wall faces of all cells
};

struct DatasetRead {
    std::string time;
    std::vector<GridRead> grids;
};

static std::vector<float> reals(std::istringstream& words)
{
    std::vector<float> list;
    for (std::string word; words >> word;) list.push_back(std::stof(word));
    return list;
}

static DatasetRead parse(const std::string& trace)
{
    DatasetRead result;
    std::vector<std::string> boundaries, variables;
    size_t next_variable = 0;
    std::istringstream lines(trace);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string word;
        words >> word;
        const std::string rest = line.size() > word.size() ? line.substr(word.size() + 1) : "";
        if (word == "boundary") boundaries.push_back(rest);
        if (word == "variable") variables.push_back(rest);
        if (word == "time") words >> result.time;
        if (word == "read") {
            result.grids.emplace_back();
            next_variable = 0;
        }
        if (result.grids.empty()) continue;
        GridRead& grid = result.grids.back();
        ++grid.counts[word];
        if (word == "x") grid.x = reals(words);
        if (word == "y") grid.y = reals(words);
        if (word == "z") grid.z = reals(words);
        if (word == "value") grid.values[variables.at(next_variable++)] = reals(words);
        if (word == "face") {
            size_t boundary = 0, node = 0;
            std::string bar;
            words >> boundary >> bar;
            auto& nodes = grid.faces[boundaries.at(boundary - 1)].emplace_back();
            while (words >> node) nodes.push_back(node - 1);
        } else if (line.find('|') != std::string::npos) {
            const std::string flags = line.substr(0, line.find('|'));
            grid.flagged += static_cast<int>(std::ranges::count(flags, '7'));
        }
    }
    return result;
}

using Formula = std::function<double(double x, double y, double z)>;

static void expect_values(const GridRead& grid, const std::string& name, const Formula& formula)
{
    ASSERT_TRUE(grid.values.contains(name)) << name;
    const std::vector<float>& values = grid.values.at(name);
    ASSERT_EQ(values.size(), grid.x.size());
    for (size_t i = 0; i < values.size(); ++i) {
        const double wanted = formula(grid.x[i], grid.y[i], grid.z[i]), got = values[i];
        const bool same = std::isinf(wanted)
                              ? got == wanted
                              : std::abs(got - wanted) <= 1e-6 * (1 + std::abs(wanted));
        EXPECT_TRUE(same) << name << " at node " << i << ": " << got << ", not " << wanted;
    }
}

static void expect_vector(const GridRead& grid, const std::string& label, const std::string& key,
                          const std::array<Formula, 3>& formulas)
{
    const std::string whole = "; " + label + " (" + key + ")", suffix = "-component) (" + key + ")";
    expect_values(grid, label + " (x" + suffix + whole, formulas[0]);
    expect_values(grid, label + " (y" + suffix, formulas[1]);
    expect_values(grid, label + " (z" + suffix, formulas[2]);
}

// Whether every face of a boundary has all of its nodes where the test says.
static void expect_faces(const GridRead& grid, const std::string& boundary, size_t count,
                         const std::function<bool(double x, double y, double z)>& is_there)
{
    ASSERT_TRUE(grid.faces.contains(boundary)) << boundary;
    const auto& faces = grid.faces.at(boundary);
    EXPECT_EQ(faces.size(), count) << boundary;
    for (const auto& nodes : faces) {
        for (const size_t node : nodes) {
            EXPECT_TRUE(is_there(grid.x.at(node), grid.y.at(node), grid.z.at(node))) << boundary;
        }
    }
}

static DatasetRead read_sample(const std::string& file, const std::string& precision)
{
    TestHost host;
    host.start();
    const TemporaryDirectory directory;
    write_samples("big_short", directory, "--size 5 --precision " + precision);
    return parse(sample_trace(host, directory.path(file)));
}

static const auto& pi = std::numbers::pi;
constexpr double undefined = std::numeric_limits<double>::infinity();

class SampleFormulas : public testing::TestWithParam<const char*>
{
};

INSTANTIATE_TEST_SUITE_P(All, SampleFormulas, testing::Values("single", "double"));

// With 5 cells each way the solid block is the cells 1 to 3 of them, between 0.2 and 0.8: 9 of the
// hexahedra, 18 of the prisms and 54 of the pyramids are no cells.
TEST_P(SampleFormulas, of_the_duct)
{
    const DatasetRead duct = read_sample("duct.fld", GetParam());
    EXPECT_EQ(duct.time, "2.5");
    ASSERT_EQ(duct.grids.size(), 1U);
    const GridRead& grid = duct.grids[0];
    ASSERT_EQ(grid.x.size(), 216U + 50U);
    for (size_t i = 0; i < 216; ++i) {
        EXPECT_EQ(grid.x[i], static_cast<float>(static_cast<double>(i % 6) / 5));
        EXPECT_EQ(grid.y[i], static_cast<float>(static_cast<double>(i / 6 % 6) / 5));
        const size_t layer = i / 36;
        EXPECT_EQ(grid.z[i], static_cast<float>(static_cast<double>(layer) / 5));
    }
    const auto& counts = grid.counts;
    EXPECT_EQ(counts.at("hex"), 50 - 9);
    EXPECT_EQ(counts.at("prism"), 50 - 18);
    EXPECT_EQ(counts.at("pyramid"), 200 - 54);
    EXPECT_EQ(counts.at("tet"), 200);
    // Walls: 70 + 60 + 60 faces, each of one cell.
    EXPECT_EQ(grid.flagged, 190);
    const auto on = [](double value, double a, double b) {
        return std::abs(value - a) < 1e-6 || std::abs(value - b) < 1e-6;
    };
    expect_faces(grid, "inlet", 25, [](double x, double, double) { return x == 0; });
    expect_faces(grid, "outlet", 25, [](double x, double, double) { return x == 1; });
    expect_faces(grid, "wall_y", 70, [&](double, double y, double) { return on(y, 0, 1); });
    expect_faces(grid, "wall_z", 60, [&](double, double, double z) { return on(z, 0, 1); });
    expect_faces(grid, "block", 60, [&](double x, double y, double z) {
        return on(x, 0.2, 0.8) || on(y, 0.2, 0.8) || on(z, 0.2, 0.8);
    });
    const auto fluid = [](const Formula& formula) {
        return [=](double x, double y, double z) {
            const auto inside = [](double value) { return value > 0.2001 && value < 0.7999; };
            return inside(x) && inside(y) && inside(z) ? undefined : formula(x, y, z);
        };
    };
    expect_values(grid, "Pressure (PRES)",
                  fluid([](double x, double, double) { return 10 - 4 * x; }));
    expect_values(grid, "Temperature (TEMP)",
                  fluid([](double x, double y, double) { return 300 + 10 * x + 5 * y * y; }));
    expect_vector(
        grid, "Velocity", "VEL",
        {fluid([](double, double y, double z) { return sin(pi * y) * sin(pi * z); }),
         fluid([](double, double y, double z) { return 0.1 * sin(pi * y) * cos(pi * z); }),
         fluid([](double, double y, double z) { return -0.1 * cos(pi * y) * sin(pi * z); })});
}

// The first file has its own results, the last one is paired with it.
TEST_P(SampleFormulas, of_the_annulus)
{
    for (const int number : {0, 4}) {
        const DatasetRead annulus =
            read_sample("annulus_000" + std::to_string(number) + ".fld", GetParam());
        EXPECT_EQ(annulus.time, number == 0 ? "0" : "2");
        ASSERT_EQ(annulus.grids.size(), 1U);
        const GridRead& grid = annulus.grids[0];
        ASSERT_EQ(grid.x.size(), 480U);
        EXPECT_EQ(grid.counts.at("hex"), 300);
        EXPECT_EQ(grid.flagged, 120);
        for (size_t i = 0; i < 480; ++i) {
            const double r = 1 + static_cast<double>(i % 6) / 5;
            const double angle = 2 * pi * static_cast<double>(i / 6 % 20) / 20;
            EXPECT_NEAR(grid.x[i], r * cos(angle), 5e-7);
            EXPECT_NEAR(grid.y[i], r * sin(angle), 5e-7);
            const size_t layer = i / 120;
            EXPECT_EQ(grid.z[i], static_cast<float>(static_cast<double>(layer) / 3));
        }
        const auto radius = [](double x, double y) { return std::hypot(x, y); };
        const auto is_on = [&](double wanted) {
            return
                [=](double x, double y, double) { return std::abs(radius(x, y) - wanted) < 1e-6; };
        };
        expect_faces(grid, "inner_cylinder", 60, is_on(1));
        expect_faces(grid, "outer_cylinder", 60, is_on(2));
        expect_faces(grid, "end_low", 100, [](double, double, double z) { return z == 0; });
        expect_faces(grid, "end_high", 100, [](double, double, double z) { return z == 1; });
        const double f = 1 - 0.5 * exp(-0.5 * number), ln2 = log(2.0);
        const auto turning = [=](double r) { return f * (2 / r - r / 2) / r; }; // by radius
        const auto heat = [=](double r) { return -30 * f / (r * ln2) / r; };
        expect_vector(grid, "Velocity", "VEL",
                      {[&](double x, double y, double) { return -y * turning(radius(x, y)); },
                       [&](double x, double y, double) { return x * turning(radius(x, y)); },
                       [&](double x, double y, double) {
                           const double r = radius(x, y);
                           return 0.2 * f * (1 - r * r + 3 * log(r) / ln2);
                       }});
        expect_values(grid, "Pressure (PRES)", [&](double x, double y, double z) {
            const double r = radius(x, y);
            return f * f * (r * r / 8 - 2 * log(r) - 2 / (r * r)) - 0.8 * f * z;
        });
        expect_values(grid, "Temperature (TEMP)", [&](double x, double y, double) {
            return 300 + 60 * f * log(radius(x, y)) / ln2;
        });
        expect_vector(grid, "Heat Flux", "HFLX",
                      {[&](double x, double y, double) { return x * heat(radius(x, y)); },
                       [&](double x, double y, double) { return y * heat(radius(x, y)); },
                       [](double, double, double) { return 0; }});
    }
}

TEST_P(SampleFormulas, of_the_overlapping_boxes)
{
    const DatasetRead overlap = read_sample("overlap.fld", GetParam());
    EXPECT_EQ(overlap.time, "0.25");
    ASSERT_EQ(overlap.grids.size(), 2U);
    for (const bool second : {false, true}) {
        const GridRead& grid = overlap.grids[second ? 1 : 0];
        EXPECT_EQ(grid.x.size(), second ? 175U : 216U);
        EXPECT_EQ(grid.counts.at("hex"), second ? 96 : 125);
        EXPECT_EQ(grid.flagged, second ? 24 : 100);
        EXPECT_EQ(grid.faces.at("interface").size(), second ? 16U : 25U);
        EXPECT_EQ(grid.faces.at("side").size(), second ? 72U : 100U);
        const Formula u = [](double x, double, double) { return 1 + x / 2; };
        const Formula v = [](double, double y, double) { return -y / 4; };
        const Formula w = [](double, double, double z) { return -z / 4; };
        expect_vector(grid, "Velocity", "VEL", {u, v, w});
        expect_values(grid, "Pressure (PRES)", [&](double x, double y, double z) {
            return 100 - (pow(u(x, y, z), 2) + pow(v(x, y, z), 2) + pow(w(x, y, z), 2)) / 2;
        });
        expect_values(grid, "Temperature (TEMP)",
                      [=](double, double, double z) { return second ? undefined : 300 + 20 * z; });
        expect_values(grid, "CONC",
                      [=](double x, double, double z) { return second ? x * (1 - z) : undefined; });
    }
}

} // namespace fld_test
