// What the host learns when a dataset is opened, and the values it then reads: capacities, merged
// names, paired files, missing values, cylindrical vectors.
#include "datasets.h"

#include <gtest/gtest.h>

namespace fld_test
{

static const std::vector<double> ones = {1, 1, 1, 1};
static const std::vector<Point> numbered(4, {1, 2, 3});
constexpr const char* missing = "value inf inf inf inf\n";

// The trace's lines of the given words, for a dataset of one file or of a pair.
static std::string opened(const std::vector<NamedFile>& files,
                          const std::vector<std::string>& words, const Controls& controls = {})
{
    return pick(run(files, controls), words);
}
static std::string values_of(const std::vector<NamedFile>& files, const Controls& controls = {})
{
    return opened(files, {"out", "variable", "value"}, controls);
}

static Sections grid_of(const Sections& others)
{
    Sections grid = {coordinate_system(0), nodes(cube_corners(4)), materials({1}),
                     elements({{TETRAHEDRON, {0, 1, 2, 3}}})};
    grid.insert(grid.end(), others.begin(), others.end());
    return grid;
}

// Names that the host has no room for are counted where they are met, and left out of a merge.
TEST(NameLists, end_at_the_hosts_capacity)
{
    const FldFile two_grids{{grid_of({surfaces({{"a", {}}, {"b", {}}, {"c", {}}})}),
                             grid_of({surfaces({{"b", {}}, {"d", {}}, {"e", {}}})})}};
    const std::vector<NamedFile> files = {{"a.fld", two_grids}};
    const auto boundaries = [&](int32_t capacity) {
        return opened(files, {"boundary"}, {.boundary_capacity = capacity});
    };
    const std::string abc = "boundary a\nboundary b\nboundary c\n";
    EXPECT_EQ(boundaries(4), abc + "boundary d\n");
    EXPECT_EQ(boundaries(3), abc);
    EXPECT_EQ(boundaries(2), "boundary a\nboundary b\nboundary count 3\n");
}

// Every grid's names are looked at by themselves, from the first on.
TEST(NameLists, begin_anew_with_every_grid)
{
    FldFile file{{grid_of({}), grid_of({}), grid_of({})}};
    const std::vector<std::vector<std::string>> names = {{"a"}, {"a", "b"}, {"a", "c"}};
    for (size_t grid = 0; grid < 3; ++grid) {
        for (const std::string& name : names[grid]) {
            file.grids[grid].push_back(surfaces({{name, {}}}));
            file.grids[grid].push_back(scalar(name, "", ones));
        }
    }
    EXPECT_EQ(opened({{"a.fld", file}}, {"boundary", "variable"},
                     {.boundary_capacity = 3, .variable_capacity = 3}),
              "boundary a\nboundary b\nboundary c\nvariable a\nvariable b\nvariable c\n");
}

// A vector needs three free rows; without them it is counted, and nothing is stored of it. Later
// grids do not merge the rows that were never written.
TEST(NameLists, hold_a_vector_whole_or_not_at_all)
{
    const std::vector<Point> three = cube_corners(4);
    FldFile file{{grid_of({scalar("P", "", {1, 2, 3, 4})}), grid_of({vector("U", "", three)})}};
    file.grids[1].push_back(scalar("T", "", {5, 6, 7, 8}));
    const auto read = [&](int32_t capacity) {
        return opened({{"a.fld", file}}, {"variable", "value", "flag"},
                      {.variable_capacity = capacity});
    };
    const std::string p = "variable P\n";
    const std::string u = component_names("U");
    const std::string p_values = "value 1 2 3 4\n", t_values = "value 5 6 7 8\n";
    const std::string u_values = "value 0 1 0 1\nvalue 0 0 1 1\nvalue 0 0 0 0\n";
    const std::string reads = "flag 0\n";
    EXPECT_EQ(read(5), "flag 0\n" + p + u + "variable T\n" + reads + p_values + missing + missing +
                           missing + missing + "flag 0\n" + missing + u_values + t_values);
    // Both the host's rows and those of the second grid are two: the vector finds no place, and
    // neither does the scalar, which comes fifth among that grid's names.
    EXPECT_EQ(read(2), "flag 0\n" + p + reads + p_values + "flag 0\n" + missing);
    // What is left of the host's rows takes a part of the second grid's vector, without values.
    EXPECT_EQ(read(3), "flag 0\n" + p + "variable U (x-component); U\nvariable U (y-component)\n" +
                           reads + p_values + missing + missing + "flag 0\n" + missing + missing +
                           missing);
}

// A component whose name an earlier grid took for a scalar is not named again. The scalar keeps its
// values, and the others, a part of a vector, have none.
TEST(NameLists, are_merged_name_by_name)
{
    const FldFile file{{grid_of({scalar("U (y-component)", "", {1, 2, 3, 4})}),
                        grid_of({vector("U", "", numbered), scalar("T", "", ones)})}};
    const std::string none = std::string(missing) + missing;
    EXPECT_EQ(values_of({{"a.fld", file}}),
              "variable U (y-component)\nvariable U (x-component); U\nvariable U (z-component)\n"
              "variable T\nvalue 1 2 3 4\n" +
                  none + missing + missing + none + "value 1 1 1 1\n");
}

// What the results file says of the first grid makes way, and of a grid file with several grids
// only the first one belongs to the results.
TEST(Pairing, takes_the_first_grid_from_the_grid_file_alone)
{
    FldFile grid = tetrahedron_file();
    grid.grids.push_back(grid_of({surfaces({{"second", {}}})}));
    FldFile results{{{coordinate_system(0), nodes({}), materials({}),
                      region_types({{"Wall_Boundary", "inlet"}}),
                      surfaces({{"inlet", {{TRIANGLE_FACE, 0, {0, 1, 2}}}}}),
                      scalar("P", "Pressure", {9, 8, 7, 6})}}};
    const std::string trace = run({{"s1.fld", grid}, {"s2.fld", results}});
    EXPECT_EQ(pick(trace, {"nodes", "boundary", "variable", "value"}),
              "nodes 4\nboundary inlet\nboundary wall\nvariable Pressure (P)\nvalue 9 8 7 6\n");
    EXPECT_EQ(events(trace), "open\nflag 0\nread 1\nface 2 | 4 2 3\nface 1 | 1 3 2\n"
                             "tet 0 7 0 0 | 1 2 3 4\nflag 0\n");
}

// What only the grid file names has no values, even if the results file has a section of its name.
TEST(Pairing, takes_values_from_the_results_file_alone)
{
    const FldFile grid{{grid_of({scalar("P", "Static", ones)})}};
    const FldFile results{{{coordinate_system(0), scalar("P", "Total", {1, 2, 3, 4})}}};
    EXPECT_EQ(values_of({{"s1.fld", grid}, {"s2.fld", results}}),
              std::string("variable Total (P)\nvariable Static (P)\nvalue 1 2 3 4\n") + missing);
}

// The base of the node numbers and the unused-value markers are those of the grid file.
TEST(Pairing, uses_the_grid_files_number_base_and_markers)
{
    const FldFile marked = with_keywords(tetrahedron_file(), {bias(), unused(-1)});
    const FldFile results{{{coordinate_system(0), scalar("T", "", {-1, 5, -2, 1})}}};
    const FldFile other_base = with_keywords(
        results, {{"Bias", [](FldBuilder& b) { b.int_item(500); }}, unused(5), cycle(1, 3)});
    EXPECT_EQ(opened({{"s1.fld", marked}, {"s2.fld", other_base}}, {"value", "tet"}),
              "tet 0 7 0 0 | 1 2 3 4\nvalue inf 5 -2 1\nvalue inf inf inf inf\n");
}

// Names of two grids that differ in their last character alone.
TEST(BoundaryNames, are_compared_to_their_end)
{
    const std::string start(79, 'n');
    const FldFile file{
        {grid_of({surfaces({{start + "b", {}}})}), grid_of({surfaces({{start + "a", {}}})})}};
    EXPECT_EQ(opened({{"a.fld", file}}, {"boundary"}),
              "boundary " + start + "b\nboundary " + start + "a\n");
}

// A name with trailing blanks inside its first 80 characters, and one that fills its row.
TEST(BoundaryNames, may_be_long)
{
    const Face face{TRIANGLE_FACE, 0, {0, 1, 2}};
    const std::string name = "wall" + std::string(76, ' ') + "of the second stage";
    const std::string full(100, 'n');
    const FldFile file{{grid_of({surfaces({{name, {face}}, {full, {face}}, {"wall", {face}}})})}};
    EXPECT_EQ(opened({{"a.fld", file}}, {"boundary", "face"}),
              "boundary wall" + std::string(76, ' ') + "\nboundary " + std::string(80, 'n') +
                  "\nboundary wall\nface 1 | 1 2 3\nface 2 | 1 2 3\nface 1 | 1 2 3\n");
}

// More variables than the host has rows for: the count tells, and the host then hands over a value
// buffer of that count. Rows without a section, and vectors that do not fit, are undefined.
TEST(Values, stay_within_the_rows)
{
    const Section b = scalar("B", "", {2, 2, 2, 2});
    const FldFile file{{grid_of({scalar("A", "", ones), vector("U", "", numbered), b})}};
    const std::string a = "variable A\n", a_values = "value 1 1 1 1\n";
    const std::string u_values = a_values + "value 2 2 2 2\nvalue 3 3 3 3\n", rest = missing;
    const auto values = [&](int32_t capacity) {
        return values_of({{"a.fld", file}}, {.variable_capacity = capacity});
    };
    EXPECT_EQ(values(4),
              a + component_names("U") + "variable count 5\n" + a_values + u_values + rest);
    EXPECT_EQ(values(3), a + "variable (untouched)\nvariable (untouched)\nvariable count 5\n" +
                             a_values + rest + rest + rest + rest);
    EXPECT_EQ(values(0), "variable count 5\n" + rest + rest + rest + rest + rest);
    EXPECT_EQ(values_of({{"a.fld", file}}, {.variable_capacity = 0, .no_values = true}),
              "variable count 5\nout Error: NULL array for scalar values.\n");
}

// A host may ask for fewer variables than there are: a vector that is not asked for in full is not
// read.
TEST(Values, of_a_vector_asked_for_in_part)
{
    TestHost host;
    host.start();
    const TemporaryDirectory directory;
    const FldFile file{{grid_of({scalar("A", "", ones), vector("U", "", numbered)})}};
    const std::string path = directory.write("a.fld", build(file));
    EXPECT_EQ(pick(host.visit(path, [&] { host.set_variable_count(3); }), {"out", "value"}),
              std::string("value 1 1 1 1\n") + missing + missing);
}

// The same key under another label is another variable of the host's, from the same section.
TEST(Values, of_one_key_under_two_labels)
{
    const FldFile file{
        {grid_of({scalar("A", "First", ones)}), grid_of({scalar("A", "Second", {7, 7, 7, 7})})}};
    EXPECT_EQ(values_of({{"a.fld", file}}),
              "variable First (A)\nvariable Second (A)\nvalue 1 1 1 1\nvalue 1 1 1 1\n"
              "value 7 7 7 7\nvalue 7 7 7 7\n");
}

// ---- cylindrical vectors ----

// Radial, angular and axial component: the angular one is a rate, times the radius.
static const std::vector<Point> turning(4, {1, 0.5, 3});
constexpr double half_turn = 3.14159274101257324; // a float; its sine is -8.7422777e-8

static Sections cylinder(int32_t system, const std::vector<Point>& positions,
                         const Section& vectors)
{
    Sections grid = grid_of({vectors});
    grid[0] = coordinate_system(system);
    grid[1] = nodes(positions);
    return grid;
}

TEST(CylindricalVectors, use_radius_and_angle_as_stored)
{
    // A radius of 0 keeps its angle, a negative radius its sign.
    const std::vector<Point> positions = {{2, 0, 0}, {0, half_turn, 0}, {-2, 0, 0}, {4, 0, 1}};
    const FldFile grid{{cylinder(1, positions, vector("U", "", turning))}};
    const std::string expected = "value 1 -1 1 1\nvalue 1 -8.742278e-08 -1 2\nvalue 3 3 3 3\n";
    const std::string names = component_names("U");
    EXPECT_EQ(values_of({{"a.fld", grid}}), names + expected);
    // In a results file whose own system is cylindrical or not given.
    for (const Sections& first : {Sections{coordinate_system(1), vector("U", "", turning)},
                                  Sections{vector("U", "", turning)}}) {
        EXPECT_EQ(values_of({{"s1.fld", grid}, {"s2.fld", {{first}}}}), names + expected);
    }
    // Cartesian results of a cylindrical grid are left alone.
    const Sections cartesian = {coordinate_system(0), vector("U", "", turning)};
    EXPECT_EQ(values_of({{"s1.fld", grid}, {"s2.fld", {{cartesian}}}}),
              names + "value 1 1 1 1\nvalue 0.5 0.5 0.5 0.5\nvalue 3 3 3 3\n");
}

// Cylindrical results of a Cartesian grid: radius and angle follow from x and y.
TEST(CylindricalVectors, of_a_cartesian_grid)
{
    const std::vector<Point> positions = {{2, 0, 5}, {0, 0, 5}, {4, 0, 0}, {0.25, 0, 1}};
    const FldFile grid{{cylinder(0, positions, scalar("P", "", ones))}};
    const FldFile results{{{coordinate_system(1), vector("U", "", turning)}}};
    EXPECT_EQ(opened({{"s1.fld", grid}, {"s2.fld", results}}, {"out", "value"}),
              std::string("value 1 1 1 1\nvalue 1 0 2 0.125\nvalue 3 3 3 3\n") + missing);
}

TEST(CylindricalVectors, may_mix_element_sizes)
{
    const std::vector<Point> positions = {{2, 0, 0}, {1, 0, 0}, {4, 0, 0}, {1, 1, 1}};
    for (const int32_t mix : {0, 1, 2, 3, 4, 5, 6, 7}) {
        const auto size = [=](int32_t item) { return (mix >> item & 1) != 0 ? 8 : 4; };
        const Section mixed{"LS_Vector:U", [=](FldBuilder& b) {
                                b.int_item(0).int_item(0).text_item("").int_item(4);
                                b.real_array({1, 1, 1, -1}, size(0)); // the last one undefined
                                b.real_array({0.5, 0.5, 0.5, 0.5}, size(1));
                                b.real_array({3, 3, 3, 3}, size(2));
                            }};
        const FldFile file{{cylinder(1, positions, mixed)}, {bias(), unused(-1)}};
        EXPECT_EQ(opened({{"a.fld", file}}, {"out", "value"}),
                  "value 1 1 1 inf\nvalue 1 0.5 2 inf\nvalue 3 3 3 3\n");
    }
}

// Its radius and angle as stored, and from the x and y of another file's grid.
TEST(CylindricalVectors, of_a_single_node)
{
    const Section node = nodes({{2, 0, 1}}), u = vector("U", "", {{1, 0.5, 3}});
    const FldFile grid{{{coordinate_system(0), node, materials({}), elements({})}}};
    const FldFile whole = added(replaced(grid, coordinate_system(1)), u);
    const std::string values = "value 1\nvalue 1\nvalue 3\n";
    EXPECT_EQ(opened({{"a.fld", whole}}, {"out", "value"}), values);
    EXPECT_EQ(
        opened({{"s1.fld", grid}, {"s2.fld", {{{coordinate_system(1), u}}}}}, {"out", "value"}),
        values);
}

// ---- 8-byte reals ----

TEST(Values, of_8_bytes_are_rounded_to_the_nearest_float)
{
    // Just below, on (to even, down and up) and just above the middle between two floats; beyond
    // the largest float; below half of the smallest.
    const double step = 0x1p-23;
    const std::vector<double> low = {1 + step * 0.4999, 1 + step * 0.5, 1 + step * 1.5,
                                     1 + step * 0.5001};
    const std::vector<double> ends = {3.5e38, -3.5e38, 1e-46, 0.1};
    FldFile file{{grid_of({scalar("A", "", low), scalar("B", "", ends)})}};
    EXPECT_EQ(pick(run({{"a.fld", file}}, {}, {.precision = 8}), {"out", "value"}),
              "value 1 1 1.0000002 1.0000001\nvalue inf -inf 0 0.1\n");
}

} // namespace fld_test
