// Every message that a file can provoke: one wrong file each, the exact text, what the host was
// given before the failure, and a good dataset that reads as ever afterwards.
#include "datasets.h"

#include <gtest/gtest.h>

namespace fld_test
{

using Files = std::vector<NamedFile>;

struct Case {
    std::string name;
    Files files;
    std::string before;  // what the failing callback shows before the message
    std::string message; // without its line end; empty: none
    Files changed = {};  // between opening and reading
    Controls controls = {};
};

// ---- faults ----

static const FldFile good = tetrahedron_file();
static const FldFile results{{{coordinate_system(0), scalar("T", "", {1, 2, 3, 4})}}};
static const Element tet{TETRAHEDRON, {0, 1, 2, 3}};
static const Face wall_face{TRIANGLE_FACE, 0, {3, 1, 2}}, bad_face{135, 0, {0, 1, 2}};
static const Region short_region{"inlet", {wall_face, {TRIANGLE_FACE, 0, {0, 1}}}};
static const NamedFile text_file{"a.fld", {}, "nothing but text"};
static const Files unchanged = {};
static const Controls two_grids{.grid_capacity = 2}, no_values{.no_values = true};

static Files one(const FldFile& file)
{
    return {{"a.fld", file}};
}

// A grid file and the results file that it belongs to.
static Files pair_of(const FldFile& grid, const FldFile& step)
{
    return {{"s1.fld", grid}, {"s2.fld", step}};
}

// The good file with one of its sections exchanged, or a further one.
static Files with(const Section& section)
{
    return one(replaced(good, section));
}
static Files and_also(const Section& section)
{
    return one(added(good, section));
}

static Files header(const Sections& keywords)
{
    return one(with_keywords(good, keywords));
}

static Files elements_of(const std::vector<Element>& list)
{
    const std::vector<int32_t> one_each(list.size(), 1);
    return one(replaced(replaced(good, materials(one_each)), elements(list)));
}

static Files wall_on(const Element& element, const Face& face)
{
    return one(replaced(replaced(good, surfaces({{"wall", {face}}})), elements({element})));
}

template <class T> static Files with_field(T FldFile::*field, const T& value)
{
    FldFile file = good;
    file.*field = value;
    return one(file);
}

// The name of the node section is followed by another length than it is preceded by.
static Files damaged_section_name()
{
    std::string bytes = build(good);
    bytes[bytes.find(padded("LS_Nodes", 32)) + 32] ^= 1;
    return {{"a.fld", {}, bytes}};
}

// The good file has five sections with grid data, and two with results. Each of these is empty.
static const Item zero = int_item(0);
static const Section grid_section = layout("LS_VolumeGeometry", {zero, zero, zero});
static const Section results_section = layout("LS_ALE", {zero, zero, zero, zero});

static Files with_further(size_t count, const Section& section)
{
    FldFile file = good;
    file.grids[0].insert(file.grids[0].end(), count, section);
    return one(file);
}

// ---- the tables ----

static std::vector<Case> failing_opens()
{
    const Item single = int_item(1);
    const Section ale = layout(
        "LS_ALE", {zero, int_item(4), zero, single, zero, single, text_item("part"), int_item(4)});
    const Section short_name =
        layout("LS_VolumeGeometry", {zero, single, int_item(31), text_item(std::string(20, 'n'))});
    // The file cannot hold so many characters; what it has of them stands in a longer record.
    const Section long_name =
        layout("LS_VolumeGeometry",
               {zero, single, int_item(100000), ints({1, 10, 1}), record("0123456789 and more")});
    const Section no_width = layout("LS_SurfaceGeometryArray", {zero, single, int_item(-1)});
    const std::string too_many = "Too many data sections in FLD file.";
    const std::string no_grid_file =
        "Data reader error: unable to find grid file for results file: ";
    return {
        {"unit_of_minus_1", one(good), "", "Cannot open file: a.fld", unchanged, {.unit = -1}},
        {"magic", with_field(&FldFile::magic, std::string("CRDL-FLd")), "",
         "File does not have a valid Cradle FLD file header."},
        {"magic_of_7_characters",
         {{"a.fld", {}, FldBuilder().record("CRDL-FL").ints({4}).bytes()}},
         "",
         ""},
        {"version_3", with_field(&FldFile::version, 3), "",
         "FLD file version is too old.  Version = 3"},
        {"version_5", with_field(&FldFile::version, 5), "",
         "FLD file version is too new.  Version = 5"},
        {"two_dimensions", header({dimension(2), bias()}),
         "out Only 3-dimensional data is supported.\n", "Data dimension = 2"},
        {"no_bias", header({dimension(3)}), "", "FLD file error: Bias value is missing."},
        {"no_first_grid", with_field(&FldFile::first_name, std::string("OverlapStart_1")), "", ""},
        {"more_grids_than_the_host_takes",
         with_field(&FldFile::grids, std::vector<Sections>(3, good.grids[0])), "",
         "Data reader error: number of grids exceeds limit of 2", unchanged, two_grids},
        {"no_last_name", with_field(&FldFile::last_name, std::string()), "",
         "Data reader error: number of grids exceeds limit of 4"},
        {"neither_nodes_nor_variables", one({{{coordinate_system(0)}}}), "",
         "Data reader error: file has no nodes or variables."},
        {"no_series", one(results), "", no_grid_file + "a.fld"},
        {"text_file_in_the_series",
         {{"s1.fld", {}, "nothing but text"}, {"s2.fld", results}},
         "out Time step file is not unformatted: s1.fld\n",
         no_grid_file + "s2.fld"},
        {"boundary_name_of_80_blanks", with(surfaces({{std::string(80, ' ') + "x", {}}})), "",
         "Data reader error: empty boundary name."},
        {"2049_grid_sections", with_further(2049 - 5, grid_section), "", too_many},
        {"2049_result_sections", with_further(2049 - 2, results_section), "", too_many},
        {"damaged_section_name", damaged_section_name(), "",
         "Error: unable to get file position in FLD file."},
        {"coordinate_system_2", with(coordinate_system(2)), "",
         "FLD file error: invalid coordinate system: 2"},
        {"coordinate_system_minus_1", with(coordinate_system(-1)), "",
         "FLD file error: invalid coordinate system: -1"},
        {"ale_entry_of_4_records", and_also(ale), "",
         "FLD file ALE error: number of data records = 4"},
        {"name_shorter_than_its_length", and_also(short_name), "",
         "Data reader error: expected 31 characters, got 20"},
        {"name_longer_than_the_file", and_also(long_name), "",
         "Data reader error: expected 100000 characters, got 10"},
        {"surface_array_without_width", and_also(no_width), "",
         "Data reader error: not enough dynamic memory for boundaries."},
    };
}

static const std::string wall_made = "face 1 | 4 2 3\n", faces = wall_made + "face 2 | 1 3 2\n";
static const std::string cells = faces + "tet 0 7 0 0 | 1 2 3 4\n";

// Failures before the results.
static std::vector<Case> failing_grids()
{
    const Controls no_coordinates{.no_coordinates = true}, second_refused{.refuse_create = 2},
        third_refused{.refuse_create = 3};
    const std::string plain = "tet 0 0 0 0 | 1 2 3 4\n";
    const std::vector<RegionType> no_wall = {{"wall_boundary", "wall"}, {"Inlet", "inlet"}};
    const std::vector<RegionType> two_walls = {{"Wall_Boundary", "wall"}, {"WALL(", "inlet"}};
    const Region wall{"wall", {wall_face}}, inlet{"inlet", {wall_face}},
        Inlet{"Inlet", {wall_face}};
    const Region three_faces{"inlet", {wall_face, wall_face, bad_face}};
    const std::string more_than_one = "Error: grid 1 has more than 1 ";
    const std::string short_list = "FLD file error: node list of 5 entries is too short for face 2";
    return {
        {"file_became_text", one(good), "", "Grid file is not unformatted: a.fld", {text_file}},
        {"no_coordinate_system", one(without(good, "LS_CoordinateSystem")), "",
         "FLD file error: coordinate system data not found."},
        {"no_coordinate_system_in_the_pair", pair_of(without(good, "LS_CoordinateSystem"), results),
         "", "FLD file error: grid coordinate system data not found."},
        {"coordinate_system_became_2", one(good), "",
         "Error: grid 1 has invalid coordinate system: 2", with(coordinate_system(2))},
        {"two_coordinate_systems", and_also(coordinate_system(0)), "",
         more_than_one + "LS_CoordinateSystem section."},
        {"two_node_sections", and_also(nodes(cube_corners(4))), "",
         more_than_one + "LS_Nodes section."},
        {"two_material_sections", and_also(materials({1})), faces,
         more_than_one + "LS_MatOfElements section."},
        {"two_element_sections", and_also(elements({tet})), cells,
         more_than_one + "LS_Elements section."},
        {"no_materials", one(without(good, "LS_MatOfElements")), faces,
         "FLD file error: element material data not found."},
        {"no_elements", one(without(good, "LS_Elements")), faces,
         "FLD file error: element data not found."},
        {"a_node_less", one(good), "", "Error: node count 3 does not match query count 4",
         with(nodes(cube_corners(3)))},
        {"a_coordinate_less", one(good), "", "",
         with(layout("LS_Nodes", {int_item(3), int_item(4), real_array({0, 1, 0})}))},
        {"no_coordinate_buffer", one(good), "", "Error: NULL array for grid coordinates.",
         unchanged, no_coordinates},
        {"wall_became_ordinary", one(good), "",
         "Data reader error: grid 1 wall region count 0 does not match query count 1",
         with(region_types(no_wall))},
        {"more_wall_regions", one(good), "",
         "Data reader error: more wall regions than the 1 counted when the dataset was opened",
         with(region_types(two_walls))},
        {"more_wall_faces", with(surfaces({wall})), wall_made + wall_made,
         "Data reader error: more wall faces than the 1 counted when the dataset was opened",
         with(surfaces({{"wall", {wall_face, wall_face}}}))},
        {"region_in_other_letter_case", one(good), wall_made,
         "Data reader error: boundary type not found: Inlet", with(surfaces({wall, Inlet}))},
        {"face_type_135", with(surfaces({three_faces})), wall_made + wall_made,
         "FLD file error: face 3 has unknown type 135"},
        {"face_type_135_in_an_array", and_also(surface_array({inlet, {"wall", {bad_face}}})),
         faces + "face 2 | 4 2 3\n", "FLD file error: face 1 has unknown type 135"},
        {"node_list_shorter_than_faces", with(surfaces({wall, short_region})),
         wall_made + "face 2 | 4 2 3\n", short_list},
        {"node_list_shorter_than_faces_in_an_array", and_also(surface_array({short_region, wall})),
         faces + "face 2 | 4 2 3\n", short_list},
        {"face_refused", one(good), wall_made,
         "Data reader error: not enough dynamic memory for boundaries.", unchanged, second_refused},
        {"cell_refused", one(good), faces,
         "Data reader error: not enough dynamic memory for cells.", unchanged, third_refused},
        {"more_materials_than_elements", with(materials({1, 1})), faces,
         "Error: element count 1 does not match element material count 2"},
        {"no_material_for_an_element", with(materials({})), faces,
         "Error: element count 1 does not match element material count 0"},
        {"element_type_37", elements_of({tet, tet, tet, tet, {37, {0, 1, 2, 3}}}),
         cells + plain + plain + plain, "FLD file error: element 5 has unknown type 37"},
        {"node_list_shorter_than_elements", elements_of({tet, {TETRAHEDRON, {0, 1, 2}}}), cells,
         "FLD file error: node list of 7 entries is too short for element 2"},
        {"wall_on_a_triangle", wall_on({TRIANGLE, {1, 2, 3}}, wall_face), wall_made,
         "Data reader error: element has no face count."},
    };
}

static std::vector<Case> failing_results()
{
    const FldFile with_vector =
        added(without(good, "LS_Scalar:P"), vector("U", "", cube_corners(4)));
    const Files pair = pair_of(good, results), text = {{"s2.fld", {}, "nothing but text"}},
                system_3 = {{"s2.fld", replaced(results, coordinate_system(3))}};
    return {
        {"results_file_became_text", pair, cells, "Results file is not unformatted: s2.fld", text},
        {"two_sections_of_a_scalar", and_also(scalar("P", "", {1, 2, 3, 4})), cells,
         "Error: grid 1 has more than 1 LS_Scalar:P section."},
        {"scalar_of_3_values", with(scalar("P", "Pressure", {1, 2, 3})), cells,
         "Data reader error: scalar count 3 does not match node count 4"},
        {"vector_of_3_values", and_also(vector("U", "", cube_corners(3))), cells,
         "Data reader error: vector count 3 does not match node count 4"},
        {"results_coordinate_system_became_3", pair, cells,
         "Error: results grid 1 has invalid coordinate system: 3", system_3},
        {"two_results_coordinate_systems", pair_of(good, added(results, coordinate_system(0))),
         cells, "Error: results grid 1 has more than 1 LS_CoordinateSystem section."},
        {"no_buffer_for_a_scalar", one(good), cells, "Error: NULL array for scalar values.",
         unchanged, no_values},
        {"no_buffer_for_a_vector", one(with_vector), cells, "Error: NULL array for vector values.",
         unchanged, no_values},
    };
}

// ---- the tests ----

// Runs a case, whose events must be as given; then the first dataset, which must be as ever.
static void expect_events(const Case& c, const std::string& begin, const std::string& end)
{
    TestHost host;
    host.start();
    const std::string message = c.message.empty() ? "" : "out " + c.message + "\n";
    EXPECT_EQ(events(run(host, {c.name, c.files, "", c.changed, c.controls})),
              begin + c.before + message + end);
    EXPECT_EQ(run(host, datasets()[0]), datasets()[0].trace);
}

using FailingOpen = testing::TestWithParam<Case>;
INSTANTIATE_TEST_SUITE_P(All, FailingOpen, testing::ValuesIn(failing_opens()), test_name);

TEST_P(FailingOpen, tells_why_and_leaves_a_good_state)
{
    expect_events(GetParam(), "open\n", "flag 1\n");
}

using FailingRead = testing::TestWithParam<Case>;
INSTANTIATE_TEST_SUITE_P(Grid, FailingRead, testing::ValuesIn(failing_grids()), test_name);
INSTANTIATE_TEST_SUITE_P(Results, FailingRead, testing::ValuesIn(failing_results()), test_name);

TEST_P(FailingRead, tells_why_and_leaves_a_good_state)
{
    expect_events(GetParam(), "open\nflag 0\nread 1\n", "flag 1\n");
}

TEST(Walls, are_found_by_their_nodes)
{
    const std::string warning = "out Data reader warning: element wall not found in element.\n";
    const std::string no_hex_wall = warning + "hex 0 0 0 0 0 0 | 1 2 4 3 5 6 8 7\n";
    const std::string no_wall = "tet 0 0 0 0 | 1 2 3 4\n", wall = "tet 0 7 0 0 | 0 1 2 3\n";
    const Element hex{HEXAHEDRON, {0, 1, 2, 3, 4, 5, 6, 7}}, low{TETRAHEDRON, {-1, 0, 1, 2}};
    const std::pair<Files, std::string> cases[] = {
        {wall_on(hex, {TRIANGLE_FACE, 0, {0, 1, 2}}), no_hex_wall},
        {wall_on(hex, {TRIANGLE_FACE, 0, {8, 9, 10}}), no_hex_wall},
        {wall_on(tet, {QUADRILATERAL_FACE, 0, {0, 1, 2, 3}}), warning + no_wall},
        {wall_on(tet, {TRIANGLE_FACE, 1, {0, 1, 2}}), no_wall}, // there is no such element
        {wall_on(low, {TRIANGLE_FACE, 0, {0, 1, 2}}), wall},    // nor a node 0
    };
    for (const auto& [files, lines] : cases) {
        EXPECT_EQ(pick(run(files), {"out", "flag", "tet", "hex"}), "flag 0\n" + lines + "flag 0\n");
    }
}

// Whether the records of the walls stand in the order of the elements, in a few runs or in none.
TEST(Walls, are_found_in_any_order)
{
    constexpr int COUNT = 600;
    static const std::vector<int32_t> corners[] = {{0, 1, 2}, {1, 2, 3}, {0, 2, 3}, {0, 1, 3}};
    std::string lines;
    std::vector<Face> walls;
    for (int32_t k = 0; k < COUNT; ++k) {
        // Every third cell is without a wall.
        const int32_t side = k % 3 == 1 ? 4 : k % 4;
        if (side < 4) walls.push_back({TRIANGLE_FACE, k, corners[side]});
        lines += "tet";
        for (int32_t f = 0; f < 4; ++f) lines += f == side ? " 7" : " 0";
        lines += " | 1 2 3 4\n";
    }
    const auto n = std::ssize(walls);
    for (const auto stride : {ptrdiff_t{1}, n - 1, ptrdiff_t{7}, n / 3, ptrdiff_t{199}}) {
        std::vector<Region> regions = {{"wall", {}}, {"inlet", {}}};
        for (ptrdiff_t k = 0; k < n; ++k) {
            regions[k < n / 2 ? 0 : 1].faces.push_back(walls[static_cast<size_t>(k * stride % n)]);
        }
        FldFile file = replaced(good, surfaces(regions));
        file = replaced(file, region_types({{"WALL(", "wall"}, {"WALL(", "inlet"}}));
        file = replaced(file, elements(std::vector<Element>(COUNT, tet)));
        file = replaced(file, materials(std::vector<int32_t>(COUNT, 1)));
        EXPECT_EQ(pick(run(one(file)), {"out", "tet"}), lines) << stride;
    }
}

TEST(Sections, up_to_2048_in_each_table_are_accepted)
{
    for (const Files& files :
         {with_further(2048 - 5, grid_section), with_further(2048 - 2, results_section)}) {
        expect_events({"", files, cells, ""}, "open\nflag 0\nread 1\n", "flag 0\n");
    }
}

TEST(PeekTime, tells_why_it_fails_and_leaves_the_dataset_open)
{
    TestHost host;
    host.start();
    const TemporaryDirectory directory;
    FldFile wrong = good;
    wrong.version = 7;
    const std::string path = directory.write("wrong.fld", build(wrong));
    const std::string later =
        directory.write("later.fld", build(with_keywords(good, {cycle(1, 2.25)})));
    host.open(directory.write("good.fld", build(good)));
    host.take_trace();
    host.peek(path);
    host.peek(later);
    host.read(1);
    EXPECT_EQ(pick(host.take_trace(), {"out", "time", "flag", "tet"}),
              "out FLD file version is too new.  Version = 7\ntime 0 flag 1\ntime 2.25 flag 0\n"
              "tet 0 7 0 0 | 1 2 3 4\nflag 0\n");
}

} // namespace fld_test
