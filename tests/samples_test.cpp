// The sample files, written by the Fortran runtime: the same trace in every framing, and every
// value against its formula.
#include "datasets.h"
#include "test_system.h"

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
            ASSERT_TRUE(write_samples(writer, directory.path(""), options)) << options;
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

template <class T> using AtPlace = std::function<std::vector<T>(double x, double y, double z)>;

// What a grid of a sample holds.
struct SampleGrid {
    size_t node_count;
    std::string counts;            // of each boundary's faces, of cells and of their wall faces
    AtPlace<double> values;        // row by row
    AtPlace<bool> boundaries = {}; // whether the place lies on each; may be left out
    std::function<Point(size_t)> position = {}; // of the first nodes
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
        const std::string options = std::string("--size 5 --precision ") + GetParam();
        ASSERT_TRUE(write_samples("big_short", directory_.path(""), options));
        host_.open(directory_.path(file));
        host_.peek(directory_.path(file));
        EXPECT_EQ(pick(host_.take_trace(), {"time", "boundary", "variable"}), names);
    }

    void expect_grid(int32_t number, const SampleGrid& wanted)
    {
        host_.read(number);
        ASSERT_EQ(host_.coordinates.size(), 3 * wanted.node_count);
        for (size_t i = 0; i < wanted.node_count; ++i) {
            SCOPED_TRACE("node " + std::to_string(i));
            const auto [x, y, z] = position(i);
            for (size_t axis = 0; axis < 3 && i < wanted.known_positions; ++axis) {
                expect_close(position(i)[axis], wanted.position(i)[axis], 5e-7);
            }
            const std::vector<double> values = wanted.values(x, y, z);
            ASSERT_EQ(host_.values.size(), values.size() * wanted.node_count);
            for (size_t row = 0; row < values.size(); ++row) {
                expect_close(host_.values[row * wanted.node_count + i], values[row],
                             1e-6 * (1 + std::abs(values[row])));
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
        std::map<std::string, int> counts;
        std::istringstream lines(
            pick(host_.take_trace(), {"face", "tet", "pyramid", "prism", "hex"}));
        for (std::string line, shape, boundary, bar; std::getline(lines, line);) {
            std::istringstream words(line);
            words >> shape >> boundary >> bar;
            ++counts[shape == "face" ? shape + boundary : shape];
            const std::string flags = line.substr(0, line.find('|'));
            if (shape != "face") counts["wall"] += int(std::ranges::count(flags, '7'));
            if (shape != "face" || !wanted.boundaries) continue;
            for (size_t node = 0; words >> node;) {
                const auto [x, y, z] = position(node - 1);
                EXPECT_TRUE(wanted.boundaries(x, y, z).at(std::stoul(boundary) - 1)) << line;
            }
        }
        std::string text;
        for (const auto& [what, count] : counts) text += what + " " + std::to_string(count) + ", ";
        EXPECT_EQ(text, wanted.counts + ", ");
    }

    TestHost host_;
    TemporaryDirectory directory_;
};

INSTANTIATE_TEST_SUITE_P(All, SampleFormulas, testing::Values("single", "double"));

static const auto& pi = std::numbers::pi;
constexpr double undefined = std::numeric_limits<double>::infinity();

static bool is_one_of(double value, double a, double b)
{
    return std::abs(value - a) < 1e-6 || std::abs(value - b) < 1e-6;
}

// With 5 cells each way the solid block is the cells 1 to 3 of them, between 0.2 and 0.8: 9 of 50
// hexahedra, 18 of 50 prisms and 54 of 200 pyramids are no cells. The walls are 70 + 60 + 60
// faces, each of one cell. The corners come before the middles of the pyramids' cells.
TEST_P(SampleFormulas, of_the_duct)
{
    SampleGrid grid{216 + 50,
                    "face1 25, face2 25, face3 70, face4 60, face5 60, hex 41, prism 32, "
                    "pyramid 146, tet 200, wall 190",
                    {}};
    grid.values = [](double x, double y, double z) -> std::vector<double> {
        const auto inside = [](double value) { return value > 0.2001 && value < 0.7999; };
        if (inside(x) && inside(y) && inside(z)) return std::vector<double>(5, undefined);
        return {10 - 4 * x, 300 + 10 * x + 5 * y * y, sin(pi * y) * sin(pi * z),
                0.1 * sin(pi * y) * cos(pi * z), -0.1 * cos(pi * y) * sin(pi * z)};
    };
    grid.boundaries = [](double x, double y, double z) -> std::vector<bool> {
        const bool on_block =
            is_one_of(x, 0.2, 0.8) || is_one_of(y, 0.2, 0.8) || is_one_of(z, 0.2, 0.8);
        return {x == 0, x == 1, is_one_of(y, 0, 1), is_one_of(z, 0, 1), on_block};
    };
    grid.known_positions = 216;
    grid.position = [](size_t i) -> Point {
        return {double(i % 6) / 5, double(i / 6 % 6) / 5, double(i / 36) / 5};
    };
    open("duct.fld", "boundary inlet\nboundary outlet\nboundary wall_y\nboundary wall_z\n"
                     "boundary block\nvariable Pressure (PRES)\nvariable Temperature (TEMP)\n" +
                         component_names("Velocity", "VEL") + "time 2.5 flag 0\n");
    expect_grid(1, grid);
}

// The first file has its own results, the last one is paired with it.
TEST_P(SampleFormulas, of_the_annulus)
{
    SampleGrid grid{480, "face1 60, face2 60, face3 100, face4 100, hex 300, wall 120", {}};
    grid.boundaries = [](double x, double y, double z) -> std::vector<bool> {
        const double r = std::hypot(x, y);
        return {is_one_of(r, 1, 1), is_one_of(r, 2, 2), z == 0, z == 1};
    };
    grid.known_positions = 480;
    grid.position = [](size_t i) -> Point {
        const double r = 1 + double(i % 6) / 5, angle = pi * double(i / 6) / 10;
        return {r * cos(angle), r * sin(angle), double(i / 120) / 3};
    };
    for (const int number : {0, 4}) {
        const double f = 1 - 0.5 * exp(-0.5 * number), ln2 = log(2.0);
        grid.values = [=](double x, double y, double z) -> std::vector<double> {
            const double r = std::hypot(x, y);
            const double turning = f * (2 / r - r / 2) / r, heat = -30 * f / (r * ln2) / r;
            const double axial = 0.2 * f * (1 - r * r + 3 * log(r) / ln2);
            const double pressure = f * f * (r * r / 8 - 2 * log(r) - 2 / (r * r)) - 0.8 * f * z;
            const double temperature = 300 + 60 * f * log(r) / ln2;
            return {-y * turning, x * turning, axial, pressure, temperature, x * heat, y * heat, 0};
        };
        open("annulus_000" + std::to_string(number) + ".fld",
             "boundary inner_cylinder\nboundary outer_cylinder\nboundary end_low\n"
             "boundary end_high\n" +
                 component_names("Velocity", "VEL") +
                 "variable Pressure (PRES)\nvariable Temperature (TEMP)\n" +
                 component_names("Heat Flux", "HFLX") +
                 (number == 0 ? "time 0 flag 0\n" : "time 2 flag 0\n"));
        expect_grid(1, grid);
    }
}

TEST_P(SampleFormulas, of_the_overlapping_boxes)
{
    open("overlap.fld",
         "boundary inlet\nboundary interface\nboundary side\nboundary outlet\nboundary plate\n"
         "variable Pressure (PRES)\nvariable Temperature (TEMP)\n" +
             component_names("Velocity", "VEL") + "variable CONC\ntime 0.25 flag 0\n");
    // The second box has no temperature, the first one no concentration.
    const auto values_of = [](bool is_first) {
        return [=](double x, double y, double z) -> std::vector<double> {
            const double u = 1 + x / 2, v = -y / 4, w = -z / 4;
            const double temperature = is_first ? 300 + 20 * z : undefined;
            const double concentration = is_first ? undefined : x * (1 - z);
            return {100 - (u * u + v * v + w * w) / 2, temperature, u, v, w, concentration};
        };
    };
    expect_grid(1, {216, "face1 25, face2 25, face3 100, hex 125, wall 100", values_of(true)});
    expect_grid(2,
                {175, "face2 16, face3 72, face4 16, face5 24, hex 96, wall 24", values_of(false)});
}

} // namespace fld_test
