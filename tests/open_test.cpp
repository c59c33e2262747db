// What the host learns when a dataset is opened: capacities, merged names, paired files.
#include "datasets.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

namespace fld_test
{

// The trace's lines of the given words, for a dataset of one file or of a pair.
static std::string opened(const std::vector<NamedFile>& files,
                          const std::vector<std::string>& words, const Controls& controls = {})
{
    TestHost host;
    host.start();
    return pick(run(host, {"", files, "", {}, controls}), words);
}

static Sections grid_with(const Section& section)
{
    return {coordinate_system(0), nodes(cube_corners(4)), materials({1}),
            elements({{TETRAHEDRON, {0, 1, 2, 3}}}), section};
}

// Names that the host has no room for are counted where they are met, and left out of a merge.
TEST(NameLists, end_at_the_hosts_capacity)
{
    const FldFile two_grids{{grid_with(surfaces({{"a", {}}, {"b", {}}, {"c", {}}})),
                             grid_with(surfaces({{"b", {}}, {"d", {}}, {"e", {}}}))}};
    const std::vector<NamedFile> files = {{"a.fld", two_grids}};
    const auto boundaries = [&](int32_t capacity) {
        return opened(files, {"boundary"}, {.boundary_capacity = capacity});
    };
    const std::string abc = "boundary a\nboundary b\nboundary c\n";
    EXPECT_EQ(boundaries(8), abc + "boundary d\nboundary e\n");
    EXPECT_EQ(boundaries(4), abc + "boundary d\n");
    EXPECT_EQ(boundaries(3), abc);
    EXPECT_EQ(boundaries(2), "boundary a\nboundary b\nboundary count 3\n");
    EXPECT_EQ(boundaries(0), "boundary count 3\n");
}

// A vector needs three free rows; without them it is counted, and nothing is stored of it. Later
// grids do not merge the rows that were never written.
TEST(NameLists, hold_a_vector_whole_or_not_at_all)
{
    const std::vector<Point> three = cube_corners(4);
    FldFile file{{grid_with(scalar("P", "", {1, 2, 3, 4})), grid_with(vector("U", "", three))}};
    file.grids[1].push_back(scalar("T", "", {5, 6, 7, 8}));
    const auto read = [&](int32_t capacity) {
        return opened({{"a.fld", file}}, {"variable", "value", "flag"},
                      {.variable_capacity = capacity});
    };
    const std::string p = "variable P\n", missing = "value inf inf inf inf\n";
    const std::string u = "variable U (x-component); U\nvariable U (y-component)\n"
                          "variable U (z-component)\n";
    const std::string p_values = "value 1 2 3 4\n", t_values = "value 5 6 7 8\n";
    const std::string u_values = "value 0 1 0 1\nvalue 0 0 1 1\nvalue 0 0 0 0\n";
    const std::string reads = "flag 0\n";
    EXPECT_EQ(read(5), "flag 0\n" + p + u + "variable T\n" + reads + p_values + missing + missing +
                           missing + missing + "flag 0\n" + missing + u_values + t_values);
    // Both the host's rows and those of the second grid are two: the vector finds no place, and
    // neither does the scalar, which comes fifth among that grid's names.
    EXPECT_EQ(read(2), "flag 0\n" + p + reads + p_values + "flag 0\n" + missing);
    EXPECT_EQ(read(1), read(2));
}

// A paired grid file without nodes of its own in the results file: what the results file says of
// the first grid makes way.
TEST(Pairing, takes_the_first_grid_from_the_grid_file_alone)
{
    const FldFile grid = tetrahedron_file();
    FldFile results{{{coordinate_system(0), nodes({}), materials({}),
                      region_types({{"Wall_Boundary", "inlet"}}),
                      surfaces({{"inlet", {{TRIANGLE_FACE, 0, {0, 1, 2}}}}}),
                      scalar("P", "Pressure", {9, 8, 7, 6})}}};
    TestHost host;
    host.start();
    const Dataset pair{"", {{"s1.fld", grid}, {"s2.fld", results}}, ""};
    const std::string trace = run(host, pair);
    EXPECT_EQ(pick(trace, {"nodes", "boundary", "variable", "value"}),
              "nodes 4\nboundary inlet\nboundary wall\nvariable Pressure (P)\nvalue 9 8 7 6\n");
    EXPECT_EQ(events(trace), "open\nflag 0\nread 1\nface 2 | 4 2 3\nface 1 | 1 3 2\n"
                             "tet 0 7 0 0 | 1 2 3 4\nflag 0\n");
}

// Of a grid file with several grids only the first one belongs to the results.
TEST(Pairing, passes_over_further_grids_of_the_grid_file)
{
    FldFile grids = tetrahedron_file();
    grids.grids.push_back(grid_with(surfaces({{"second", {}}})));
    const FldFile results{{{coordinate_system(0), scalar("T", "", {1, 2, 3, 4})}}};
    EXPECT_EQ(opened({{"s1.fld", grids}, {"s2.fld", results}}, {"nodes", "boundary", "flag"},
                     {.grid_capacity = 1}),
              "flag 0\nnodes 4\nboundary wall\nboundary inlet\nflag 0\n");
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

// A name with trailing blanks inside its first 80 characters, and one that fills its row.
TEST(BoundaryNames, may_be_long)
{
    const Face face{TRIANGLE_FACE, 0, {0, 1, 2}};
    const std::string name = "wall" + std::string(76, ' ') + "of the second stage";
    const std::string full(100, 'n');
    const FldFile file{{grid_with(surfaces({{name, {face}}, {full, {face}}, {"wall", {face}}}))}};
    EXPECT_EQ(opened({{"a.fld", file}}, {"face"}), "face 1 | 1 2 3\nface 2 | 1 2 3\n"
                                                   "face 1 | 1 2 3\n");
    EXPECT_EQ(opened({{"a.fld", file}}, {"boundary"}), "boundary wall" + std::string(76, ' ') +
                                                           "\nboundary " + std::string(80, 'n') +
                                                           "\nboundary wall\n");
}

// Paths of more than 255 characters are refused, not cut.
TEST(Paths, may_have_255_characters)
{
    TestHost host;
    host.start();
    const TemporaryDirectory directory;
    host.hidden_prefix = directory.path("");
    for (const size_t length : {255U, 256U, 600U}) {
        std::string path = directory.path("");
        while (path.size() + 6 < length) {
            path += std::string(std::min<size_t>(length - path.size() - 6, 100), 'd') + "/";
        }
        std::filesystem::create_directories(path);
        path += std::string(length - path.size() - 4, 'f') + ".fld";
        ASSERT_EQ(path.size(), length);
        std::filesystem::rename(directory.write("a.fld", build(tetrahedron_file())), path);
        host.open(path);
        const std::string shown = path.substr(host.hidden_prefix.size());
        EXPECT_EQ(events(host.take_trace()),
                  length == 255 ? "open\nflag 0\n"
                                : "open\nout Cannot open file: " + shown + "\nflag 1\n");
    }
}

// Counts that the rest of the file cannot hold: refused without a message, and without memory in
// proportion to them.
TEST(Counts, beyond_the_file_cost_no_memory)
{
    constexpr int32_t huge = INT32_MAX - 7;
    const Item zero = int_item(0), one = int_item(1), most = int_item(huge);
    const Item huge_text = ints({1, huge, 1}), huge_array = ints({4, huge, 1});
    const Item name = record("wall"), number = ints({1});
    const auto face_counts = [&](const std::vector<int32_t>& counts) {
        return layout("LS_SurfaceGeometryArray",
                      {zero, int_item(2), one, text_item("ab"), int_array(counts), int_array({}),
                       int_array({}), int_array({0, 0}), int_array({})});
    };
    const Section added_sections[] = {
        layout("LS_SurfaceGeometry", {zero, one, most, huge_text, name}),
        layout("LS_SurfaceGeometry", {zero, one, int_item(-1), huge_text, name}),
        layout("LS_SurfaceGeometry", {zero, one, int_item(-1), ints({1, 70000, 70000}), name}),
        layout("LS_SurfaceGeometryArray", {zero, one, most, huge_text, name}),
        layout("LS_SurfaceGeometryArray", {zero, most, zero, text_item(""), huge_array, number}),
        layout("LS_SurfaceGeometryArray", {zero, most, most, text_item("wall")}),
        face_counts({huge, huge}),
        face_counts({1, -1}),
        layout("LS_VolumeGeometryArray", {zero, most, zero, text_item(""), huge_array, number}),
        layout("LS_ALE", {zero, most, zero, one, most, huge_text, name}),
    };
    const Section replaced_sections[] = {
        layout("LS_MatOfElements", {zero, most, huge_array, number}),
        layout("LS_Elements", {zero, most, huge_array, number}),
        layout("LS_Nodes", {zero, most, ints({8, huge, 1}), ints({1, 1})}),
    };
    TestHost host;
    host.start();
    const auto memory = [] { // kilobytes
        rusage usage{};
        getrusage(RUSAGE_SELF, &usage);
        return usage.ru_maxrss;
    };
    EXPECT_EQ(run(host, datasets()[0]), datasets()[0].trace);
    const auto before = memory();
    for (const Section& section : added_sections) {
        const Dataset wrong{"", {{"a.fld", added(tetrahedron_file(), section)}}, ""};
        EXPECT_EQ(run(host, wrong), "open\nflag 1\n") << section.name;
    }
    for (const Section& section : replaced_sections) {
        const Dataset wrong{"", {{"a.fld", replaced(tetrahedron_file(), section)}}, ""};
        EXPECT_EQ(run(host, wrong), "open\nflag 1\n") << section.name;
    }
    EXPECT_LT(memory() - before, 64 * 1024);
    EXPECT_EQ(run(host, datasets()[0]), datasets()[0].trace);
}

} // namespace fld_test
