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

TEST(Samples, have_one_trace_in_every_framing)
{
    TestHost host;
    host.start();
    host.controls.variable_capacity = 16;
    for (const char* options :
         {"--precision single", "--precision double", "--precision single --values-per-record 7",
          "--precision double --values-per-record 100"}) {
        std::map<std::string, std::string> traces;
        for (const char* writer : writers) {
            const TemporaryDirectory directory;
            write_samples(writer, directory, options);
            for (const char* file : sample_files) {
                const std::string trace = host.visit(directory.path(file));
                const auto [first, is_first] = traces.emplace(file, trace);
                EXPECT_EQ(pick(trace, {"out", "err"}), "");
                EXPECT_EQ(trace.find("flag 1"), std::string::npos) << file;
                EXPECT_TRUE(first->second == trace) << writer << " " << options << " " << file;
            }
        }
    }
}

// ---- formulas ----

using Formula = std::function<double(double x, double y, double z)>;
using Place = std::function<bool(double x, double y, double z)>;

// What a grid of a sample holds.
struct SampleGrid {
    size_t node_count;
    std::map<std::string, int> cells;                 // by shape; wall faces of all cells
    std::vector<std::pair<size_t, Place>> boundaries; // faces, and where their nodes are
    std::vector<Formula> values;                      // row by row
    std::function<Point(size_t)> position = {};       // of the nodes whose place is known
    size_t known_positions = 0;
};

static void expect_close(double got, double wanted, double tolerance)
{
    EXPECT_TRUE(got == wanted || std::abs(got - wanted) <= tolerance) << got << ", not " << wanted;
}

class SampleFormulas : public testing::TestWithParam<const char*>
{
protected:
    void open(const std::string& file, const std::string& names)
    {
        host_.start();
        host_.controls.variable_capacity = 16;
        write_samples("big_short", directory_, std::string("--size 5 --precision ") + GetParam());
        host_.open(directory_.path(file));
        host_.peek(directory_.path(file));
        EXPECT_EQ(pick(host_.take_trace(), {"time", "boundary", "variable"}), names);
    }

    void expect_grid(int32_t number, const SampleGrid& wanted)
    {
        host_.read(number);
        ASSERT_EQ(host_.coordinates.size(), 3 * wanted.node_count);
        ASSERT_EQ(host_.values.size(), wanted.values.size() * wanted.node_count);
        for (size_t i = 0; i < wanted.node_count; ++i) {
            const auto [x, y, z] = position(i);
            for (size_t axis = 0; axis < 3 && i < wanted.known_positions; ++axis) {
                expect_close(position(i)[axis], wanted.position(i)[axis], 5e-7);
            }
            for (size_t row = 0; row < wanted.values.size(); ++row) {
                SCOPED_TRACE("row " + std::to_string(row) + " at node " + std::to_string(i));
                const double value = wanted.values[row](x, y, z);
                expect_close(host_.values[row * wanted.node_count + i], value,
                             1e-6 * (1 + std::abs(value)));
            }
        }
        expect_cells_and_faces(wanted);
    }

private:
    Point position(size_t node) const
    {
        const std::vector<float>& xyz = host_.coordinates;
        return {xyz[node], xyz[xyz.size() / 3 + node], xyz[xyz.size() / 3 * 2 + node]};
    }

    void expect_cells_and_faces(const SampleGrid& wanted)
    {
        std::map<std::string, int> cells;
        std::vector<size_t> faces(wanted.boundaries.size());
        std::istringstream lines(
            pick(host_.take_trace(), {"face", "tet", "pyramid", "prism", "hex"}));
        for (std::string line, shape, bar; std::getline(lines, line);) {
            std::istringstream words(line);
            size_t boundary = 0;
            words >> shape >> boundary >> bar;
            if (shape != "face") {
                ++cells[shape];
                const std::string flags = line.substr(0, line.find('|'));
                cells["walls"] += static_cast<int>(std::ranges::count(flags, '7'));
                continue;
            }
            ++faces.at(boundary - 1);
            for (size_t node = 0; words >> node;) {
                const auto [x, y, z] = position(node - 1);
                EXPECT_TRUE(wanted.boundaries[boundary - 1].second(x, y, z)) << line;
            }
        }
        EXPECT_EQ(cells, wanted.cells);
        for (size_t i = 0; i < faces.size(); ++i) EXPECT_EQ(faces[i], wanted.boundaries[i].first);
    }

    TestHost host_;
    TemporaryDirectory directory_;
};

INSTANTIATE_TEST_SUITE_P(All, SampleFormulas, testing::Values("single", "double"));

static const auto& pi = std::numbers::pi;
constexpr double undefined = std::numeric_limits<double>::infinity();

static double fraction(size_t i, size_t count)
{
    return static_cast<double>(i) / static_cast<double>(count);
}

// With 5 cells each way the solid block is the cells 1 to 3 of them, between 0.2 and 0.8: 9 of the
// hexahedra, 18 of the prisms and 54 of the pyramids are no cells. The walls are 70 + 60 + 60
// faces, each of one cell. The corners come before the middles of the pyramids' cells.
TEST_P(SampleFormulas, of_the_duct)
{
    const auto on = [](double value, double a, double b) {
        return std::abs(value - a) < 1e-6 || std::abs(value - b) < 1e-6;
    };
    const auto fluid = [](const Formula& formula) {
        return [=](double x, double y, double z) {
            const auto inside = [](double value) { return value > 0.2001 && value < 0.7999; };
            return inside(x) && inside(y) && inside(z) ? undefined : formula(x, y, z);
        };
    };
    open("duct.fld", "boundary inlet\nboundary outlet\nboundary wall_y\nboundary wall_z\n"
                     "boundary block\nvariable Pressure (PRES)\nvariable Temperature (TEMP)\n" +
                         component_names("Velocity", "VEL") + "time 2.5 flag 0\n");
    expect_grid(
        1,
        {216 + 50,
         {{"hex", 50 - 9}, {"prism", 50 - 18}, {"pyramid", 200 - 54}, {"tet", 200}, {"walls", 190}},
         {{25, [](double x, double, double) { return x == 0; }},
          {25, [](double x, double, double) { return x == 1; }},
          {70, [=](double, double y, double) { return on(y, 0, 1); }},
          {60, [=](double, double, double z) { return on(z, 0, 1); }},
          {60, [=](double x, double y,
                   double z) { return on(x, 0.2, 0.8) || on(y, 0.2, 0.8) || on(z, 0.2, 0.8); }}},
         {fluid([](double x, double, double) { return 10 - 4 * x; }),
          fluid([](double x, double y, double) { return 300 + 10 * x + 5 * y * y; }),
          fluid([](double, double y, double z) { return sin(pi * y) * sin(pi * z); }),
          fluid([](double, double y, double z) { return 0.1 * sin(pi * y) * cos(pi * z); }),
          fluid([](double, double y, double z) { return -0.1 * cos(pi * y) * sin(pi * z); })},
         [](size_t i) -> Point {
             return {fraction(i % 6, 5), fraction(i / 6 % 6, 5), fraction(i / 36, 5)};
         },
         216});
}

// The first file has its own results, the last one is paired with it.
TEST_P(SampleFormulas, of_the_annulus)
{
    for (const int number : {0, 4}) {
        const double f = 1 - 0.5 * exp(-0.5 * number), ln2 = log(2.0);
        const auto by_radius = [](const std::function<double(double r)>& formula) {
            return [=](double x, double y, double) { return formula(std::hypot(x, y)); };
        };
        const auto on = [=](double radius) {
            return [=](double x, double y, double) {
                return std::abs(std::hypot(x, y) - radius) < 1e-6;
            };
        };
        const Formula turning = by_radius([=](double r) { return f * (2 / r - r / 2) / r; });
        const Formula heat = by_radius([=](double r) { return -30 * f / (r * ln2) / r; });
        open("annulus_000" + std::to_string(number) + ".fld",
             "boundary inner_cylinder\nboundary outer_cylinder\nboundary end_low\n"
             "boundary end_high\n" +
                 component_names("Velocity", "VEL") +
                 "variable Pressure (PRES)\nvariable Temperature (TEMP)\n" +
                 component_names("Heat Flux", "HFLX") +
                 (number == 0 ? "time 0 flag 0\n" : "time 2 flag 0\n"));
        expect_grid(
            1, {480,
                {{"hex", 300}, {"walls", 120}},
                {{60, on(1)},
                 {60, on(2)},
                 {100, [](double, double, double z) { return z == 0; }},
                 {100, [](double, double, double z) { return z == 1; }}},
                {[=](double x, double y, double z) { return -y * turning(x, y, z); },
                 [=](double x, double y, double z) { return x * turning(x, y, z); },
                 by_radius([=](double r) { return 0.2 * f * (1 - r * r + 3 * log(r) / ln2); }),
                 [=](double x, double y, double z) {
                     const double r = std::hypot(x, y);
                     return f * f * (r * r / 8 - 2 * log(r) - 2 / (r * r)) - 0.8 * f * z;
                 },
                 by_radius([=](double r) { return 300 + 60 * f * log(r) / ln2; }),
                 [=](double x, double y, double z) { return x * heat(x, y, z); },
                 [=](double x, double y, double z) { return y * heat(x, y, z); },
                 [](double, double, double) { return 0; }},
                [](size_t i) -> Point {
                    const double r = 1 + fraction(i % 6, 5), angle = 2 * pi * fraction(i / 6, 20);
                    return {r * cos(angle), r * sin(angle), fraction(i / 120, 3)};
                },
                480});
    }
}

TEST_P(SampleFormulas, of_the_overlapping_boxes)
{
    const auto anywhere = [](double, double, double) { return true; };
    const Formula no_value = [](double, double, double) { return undefined; };
    const auto pressure = [](double x, double y, double z) {
        return 100 - (pow(1 + x / 2, 2) + pow(y / 4, 2) + pow(z / 4, 2)) / 2;
    };
    SampleGrid grid{216,
                    {{"hex", 125}, {"walls", 100}},
                    {{25, anywhere}, {25, anywhere}, {100, anywhere}, {0, anywhere}, {0, anywhere}},
                    {pressure, [](double, double, double z) { return 300 + 20 * z; },
                     [](double x, double, double) { return 1 + x / 2; },
                     [](double, double y, double) { return -y / 4; },
                     [](double, double, double z) { return -z / 4; }, no_value}};
    open("overlap.fld",
         "boundary inlet\nboundary interface\nboundary side\nboundary outlet\nboundary plate\n"
         "variable Pressure (PRES)\nvariable Temperature (TEMP)\n" +
             component_names("Velocity", "VEL") + "variable CONC\ntime 0.25 flag 0\n");
    expect_grid(1, grid);
    grid.node_count = 175;
    grid.cells = {{"hex", 96}, {"walls", 24}};
    grid.boundaries = {
        {0, anywhere}, {16, anywhere}, {72, anywhere}, {16, anywhere}, {24, anywhere}};
    grid.values[1] = no_value;
    grid.values[5] = [](double x, double, double z) { return x * (1 - z); };
    expect_grid(2, grid);
}

} // namespace fld_test
