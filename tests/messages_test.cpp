// Every message that a file can provoke: one wrong file each, the exact text, what the host was
// given before the failure, and a good dataset that reads as ever afterwards.
#include "datasets.h"

#include <gtest/gtest.h>

namespace fld_test
{

enum class Ends { open_fails, read_fails, well };

// The dataset's expected trace: the lines of the callback in which it goes wrong.
struct WrongDataset {
    Dataset dataset;
    Ends ends;
};

void PrintTo(const WrongDataset& wrong, std::ostream* stream)
{
    *stream << wrong.dataset.name;
}

// ---- faults ----

static Section with_body(const std::string& name, std::function<void(FldBuilder&)> body)
{
    return {name, std::move(body)};
}

static const FldFile good = tetrahedron_file();
static const Element tet{TETRAHEDRON, {0, 1, 2, 3}};
static const Face wall_face{TRIANGLE_FACE, 0, {3, 1, 2}};

// The good file with its surface section last but other regions in it.
static FldFile surfaces_of(const std::vector<Region>& regions)
{
    return replaced(good, surfaces(regions));
}

// A file cut in the name record of a section: what the record's tail says is wrong.
static std::string damaged_tail_of(const std::string& section_name)
{
    std::string bytes = build(good);
    bytes[bytes.find(padded(section_name, 32)) + 32] ^= 1;
    return bytes;
}

static FldFile many_sections(int count)
{
    const Section volume = with_body("LS_VolumeGeometry",
                                     [](FldBuilder& b) { b.int_item(0).int_item(0).int_item(0); });
    FldFile file = good;
    // With nodes, region types, materials, elements and surfaces.
    file.grids[0].insert(file.grids[0].end(), static_cast<size_t>(count - 5), volume);
    return file;
}

static FldFile many_variables(int count)
{
    FldFile file = good; // with coordinate system and a scalar
    for (int i = 2; i < count; ++i) {
        file.grids[0].push_back(scalar(std::to_string(i), "", {1, 2, 3, 4}));
    }
    return file;
}

static FldFile ale_with(int32_t records)
{
    return added(good, with_body("LS_ALE", [=](FldBuilder& b) {
                     b.int_item(0).int_item(4).int_item(0).int_item(1).int_item(0).int_item(1);
                     b.text_item("part").int_item(records);
                 }));
}

static FldFile short_names(int32_t name_length)
{
    return added(
        good, with_body("LS_VolumeGeometry", [=](FldBuilder& b) {
            b.int_item(0).int_item(1).int_item(name_length).text_item(std::string(20, 'n'));
            b.int_item(0).int_array({});
        }));
}

static FldFile materials_for_two()
{
    return replaced(good, materials({1, 1}));
}

static FldFile five_elements(int32_t fifth_type)
{
    const Element fifth{fifth_type, {0, 1, 2, 3}};
    const FldFile file = replaced(good, materials({1, 1, 1, 1, 1}));
    return replaced(file, elements({tet, tet, tet, tet, fifth}));
}

static FldFile wall_on(const Element& element, const Face& face)
{
    return replaced(surfaces_of({{"wall", {face}}}), elements({element}));
}

static Section surface_array_without_width()
{
    return with_body("LS_SurfaceGeometryArray",
                     [](FldBuilder& b) { b.int_item(0).int_item(1).int_item(-1); });
}

// Node lists one entry short: of the elements, and of the second region's second face.
static FldFile short_element_nodes()
{
    const FldFile file = replaced(good, materials({1, 1}));
    return replaced(file, elements({tet, {TETRAHEDRON, {0, 1, 2}}}));
}

static const Region short_region{"inlet", {wall_face, {TRIANGLE_FACE, 0, {0, 1}}}};

// The paired files of a series with one of their sections exchanged.
static std::vector<NamedFile> pair_of(const FldFile& grid, const FldFile& results)
{
    return {{"s1.fld", grid}, {"s2.fld", results}};
}

static const FldFile results{{{coordinate_system(0), scalar("T", "", {1, 2, 3, 4})}}};

constexpr const char* faces = "face 1 | 4 2 3\nface 2 | 1 3 2\n";
constexpr const char* wrong_system = "out FLD file error: invalid coordinate system: ";

// ---- the table ----

static std::vector<WrongDataset> failing_opens()
{
    const auto wrong = [](const char* name, const FldFile& file, const std::string& lines,
                          const Controls& controls = {}) {
        return WrongDataset{{name, {{"a.fld", file}}, lines, {}, controls}, Ends::open_fails};
    };
    const auto header = [](const Sections& keywords) { return with_keywords(good, keywords); };
    FldFile magic = good, old_version = good, new_version = good, first_name = good, no_end = good,
            three_grids = good;
    magic.magic = "CRDL-FLd";
    old_version.version = 3;
    new_version.version = 5;
    first_name.first_name = "OverlapStart_1";
    no_end.last_name = "";
    three_grids.grids.resize(3, good.grids[0]);
    return {
        {{"missing_file", {{"a.fld", {}, {}, true}}, "out Cannot open file: a.fld\n"},
         Ends::open_fails},
        {{"text_file", {{"a.fld", {}, "nothing but text"}}, "out File is not unformatted: a.fld\n"},
         Ends::open_fails},
        {{"unit_of_minus_1", {{"a.fld", good}}, "out Cannot open file: a.fld\n", {}, {.unit = -1}},
         Ends::open_fails},
        wrong("magic", magic, "out File does not have a valid Cradle FLD file header.\n"),
        wrong("version_3", old_version, "out FLD file version is too old.  Version = 3\n"),
        wrong("version_5", new_version, "out FLD file version is too new.  Version = 5\n"),
        wrong("two_dimensions", header({dimension(2), bias()}),
              "out Only 3-dimensional data is supported.\nout Data dimension = 2\n"),
        wrong("no_bias", header({dimension(3)}), "out FLD file error: Bias value is missing.\n"),
        wrong("no_first_grid", first_name, ""),
        wrong("more_grids_than_the_host_takes", three_grids,
              "out Data reader error: number of grids exceeds limit of 2\n", {.grid_capacity = 2}),
        wrong("no_last_name", no_end,
              "out Data reader error: number of grids exceeds limit of 4\n"),
        wrong("neither_nodes_nor_variables", {{{coordinate_system(0)}}},
              "out Data reader error: file has no nodes or variables.\n"),
        wrong("no_grid_file_in_the_series", results,
              "out Data reader error: unable to find grid file for results file: a.fld\n"),
        {{"text_file_in_the_series",
          {{"s1.fld", {}, "nothing but text"}, {"s2.fld", results}},
          "out Time step file is not unformatted: s1.fld\n"
          "out Data reader error: unable to find grid file for results file: s2.fld\n"},
         Ends::open_fails},
        wrong("boundary_name_of_80_blanks", surfaces_of({{std::string(80, ' ') + "x", {}}}),
              "out Data reader error: empty boundary name.\n"),
        wrong("2049_grid_sections", many_sections(2049),
              "out Too many data sections in FLD file.\n"),
        wrong("2049_result_sections", many_variables(2049),
              "out Too many data sections in FLD file.\n"),
        {{"damaged_section_name",
          {{"a.fld", {}, damaged_tail_of("LS_Nodes")}},
          "out Error: unable to get file position in FLD file.\n"},
         Ends::open_fails},
        wrong("coordinate_system_2", replaced(good, coordinate_system(2)),
              wrong_system + std::string("2\n")),
        wrong("coordinate_system_minus_1", replaced(good, coordinate_system(-1)),
              wrong_system + std::string("-1\n")),
        wrong("ale_entry_of_4_records", ale_with(4),
              "out FLD file ALE error: number of data records = 4\n"),
        wrong("name_shorter_than_its_length", short_names(40),
              "out Data reader error: expected 40 characters, got 20\n"),
        wrong("surface_array_without_width", added(good, surface_array_without_width()),
              "out Data reader error: not enough dynamic memory for boundaries.\n"),
    };
}

static std::vector<WrongDataset> failing_reads()
{
    const auto wrong = [](const char* name, const FldFile& file, const std::string& lines,
                          const Controls& controls = {}) {
        return WrongDataset{{name, {{"a.fld", file}}, lines, {}, controls}, Ends::read_fails};
    };
    // The good file is opened; then another one stands in its place.
    const auto changed = [](const char* name, const FldFile& file, const std::string& lines) {
        return WrongDataset{{name, {{"a.fld", good}}, lines, {{"a.fld", file}}}, Ends::read_fails};
    };
    const auto twice = [&](const char* name, const Section& section, const std::string& lines) {
        return wrong(name, added(good, section),
                     lines + "out Error: grid 1 has more than 1 " + section.name + " section.\n");
    };
    const std::vector<RegionType> no_wall = {{"wall_boundary", "wall"}, {"Inlet", "inlet"}};
    const std::vector<RegionType> two_walls = {{"Wall_Boundary", "wall"}, {"WALL(", "inlet"}};
    const std::string cell = "tet 0 7 0 0 | 1 2 3 4\n", plain = "tet 0 0 0 0 | 1 2 3 4\n";
    return {
        {{"file_removed",
          {{"a.fld", good}},
          "out Cannot open grid file: a.fld\n",
          {{"a.fld", {}, {}, true}}},
         Ends::read_fails},
        {{"file_turned_into_text",
          {{"a.fld", good}},
          "out Grid file is not unformatted: a.fld\n",
          {{"a.fld", {}, "nothing but text"}}},
         Ends::read_fails},
        {{"results_file_removed",
          pair_of(good, results),
          faces + cell + "out Cannot open results file: s2.fld\n",
          {{"s2.fld", {}, {}, true}}},
         Ends::read_fails},
        {{"results_file_turned_into_text",
          pair_of(good, results),
          faces + cell + "out Results file is not unformatted: s2.fld\n",
          {{"s2.fld", {}, "nothing but text"}}},
         Ends::read_fails},
        wrong("no_coordinate_system", without(good, "LS_CoordinateSystem"),
              "out FLD file error: coordinate system data not found.\n"),
        {{"no_coordinate_system_in_the_pair",
          pair_of(without(good, "LS_CoordinateSystem"), results),
          "out FLD file error: grid coordinate system data not found.\n"},
         Ends::read_fails},
        changed("coordinate_system_became_2", replaced(good, coordinate_system(2)),
                "out Error: grid 1 has invalid coordinate system: 2\n"),
        twice("two_coordinate_systems", coordinate_system(0), ""),
        twice("two_node_sections", nodes(cube_corners(4)), ""),
        twice("two_material_sections", materials({1}), faces),
        twice("two_element_sections", elements({tet}), faces + cell),
        twice("two_sections_of_a_scalar", scalar("P", "", {1, 2, 3, 4}), faces + cell),
        wrong("no_materials", without(good, "LS_MatOfElements"),
              faces + std::string("out FLD file error: element material data not found.\n")),
        wrong("no_elements", without(good, "LS_Elements"),
              faces + std::string("out FLD file error: element data not found.\n")),
        changed("a_node_less", replaced(good, nodes(cube_corners(3))),
                "out Error: node count 3 does not match query count 4\n"),
        changed("wall_became_ordinary", replaced(good, region_types(no_wall)),
                "out Data reader error: grid 1 wall region count 0 does not match query count 1\n"),
        changed("more_wall_regions", replaced(good, region_types(two_walls)),
                "out Data reader error: more wall regions than the 1 counted when the dataset was "
                "opened\n"),
        {{"more_wall_faces",
          {{"a.fld", surfaces_of({{"wall", {wall_face}}})}},
          "face 1 | 4 2 3\nface 1 | 4 2 3\nout Data reader error: more wall faces than the 1 "
          "counted when the "
          "dataset was opened\n",
          {{"a.fld", surfaces_of({{"wall", {wall_face, wall_face}}})}}},
         Ends::read_fails},
        changed("region_in_other_letter_case",
                surfaces_of({{"wall", {wall_face}}, {"Inlet", {{TRIANGLE_FACE, 0, {0, 2, 1}}}}}),
                "face 1 | 4 2 3\nout Data reader error: boundary type not found: Inlet\n"),
        wrong("face_type_135",
              surfaces_of({{"inlet", {wall_face, wall_face, {135, 0, {0, 1, 2}}}}}),
              "face 1 | 4 2 3\nface 1 | 4 2 3\nout FLD file error: face 3 has unknown type 135\n"),
        wrong("face_type_135_in_an_array",
              added(good, surface_array({{"inlet", {wall_face}}, {"wall", {{135, 0, {0, 1, 2}}}}})),
              faces + std::string("face 2 | 4 2 3\n"
                                  "out FLD file error: face 1 has unknown type 135\n")),
        wrong("node_list_shorter_than_faces", surfaces_of({{"wall", {wall_face}}, short_region}),
              "face 1 | 4 2 3\nface 2 | 4 2 3\n"
              "out FLD file error: node list of 5 entries is too short for face 2\n"),
        wrong("node_list_shorter_than_faces_in_an_array",
              added(good, surface_array({short_region, {"wall", {wall_face}}})),
              faces + std::string("face 2 | 4 2 3\nout FLD file error: node list of 5 entries is "
                                  "too short for face 2\n")),
        wrong("face_refused", good,
              "face 1 | 4 2 3\nout Data reader error: not enough dynamic memory for boundaries.\n",
              {.refuse_create = 2}),
        wrong("cell_refused", good,
              faces + std::string("out Data reader error: not enough dynamic memory for cells.\n"),
              {.refuse_create = 3}),
        wrong("more_materials_than_elements", materials_for_two(),
              faces +
                  std::string("out Error: element count 1 does not match element material count "
                              "2\n")),
        wrong("no_material_for_an_element", replaced(good, materials({})),
              faces +
                  std::string("out Error: element count 1 does not match element material count "
                              "0\n")),
        wrong("element_type_37", five_elements(37),
              faces + cell + plain + plain + plain +
                  "out FLD file error: element 5 has unknown type 37\n"),
        wrong("node_list_shorter_than_elements", short_element_nodes(),
              faces + cell +
                  "out FLD file error: node list of 7 entries is too short for element 2\n"),
        wrong("wall_on_a_triangle", wall_on({TRIANGLE, {1, 2, 3}}, wall_face),
              "face 1 | 4 2 3\nout Data reader error: element has no face count.\n"),
        wrong("scalar_of_3_values", replaced(good, scalar("P", "Pressure", {1, 2, 3})),
              faces + cell + "out Data reader error: scalar count 3 does not match node count 4\n"),
        wrong("vector_of_3_values", added(good, vector("U", "", std::vector<Point>(3))),
              faces + cell + "out Data reader error: vector count 3 does not match node count 4\n"),
        {{"results_coordinate_system_became_3",
          pair_of(good, results),
          faces + cell + "out Error: results grid 1 has invalid coordinate system: 3\n",
          {{"s2.fld", replaced(results, coordinate_system(3))}}},
         Ends::read_fails},
        {{"two_results_coordinate_systems", pair_of(good, added(results, coordinate_system(0))),
          faces + cell +
              "out Error: results grid 1 has more than 1 LS_CoordinateSystem section.\n"},
         Ends::read_fails},
        {{"no_coordinate_buffer",
          {{"a.fld", good}},
          "out Error: NULL array for grid coordinates.\n",
          {},
          {.no_coordinates = true}},
         Ends::read_fails},
        {{"no_value_buffer_for_a_scalar",
          {{"a.fld", good}},
          faces + cell + "out Error: NULL array for scalar values.\n",
          {},
          {.no_values = true}},
         Ends::read_fails},
        {{"no_value_buffer_for_a_vector",
          {{"a.fld", added(without(good, "LS_Scalar:P"), vector("U", "", cube_corners(4)))}},
          faces + cell + "out Error: NULL array for vector values.\n",
          {},
          {.no_values = true}},
         Ends::read_fails},
    };
}

static std::vector<WrongDataset> warnings()
{
    const Face half{TRIANGLE_FACE, 0, {0, 1, 2}};
    const auto wrong = [](const char* name, const FldFile& file, const std::string& lines) {
        return WrongDataset{{name, {{"a.fld", file}}, lines}, Ends::well};
    };
    return {
        wrong("triangle_on_a_hexahedron", wall_on({HEXAHEDRON, {0, 1, 2, 3, 4, 5, 6, 7}}, half),
              "face 1 | 1 2 3\nout Data reader warning: element wall not found in element.\n"
              "hex 0 0 0 0 0 0 | 1 2 4 3 5 6 8 7\n"),
        wrong("wall_of_other_nodes", wall_on(tet, {QUADRILATERAL_FACE, 0, {0, 1, 2, 3}}),
              "face 1 | 1 2 3 4\nout Data reader warning: element wall not found in element.\n"
              "tet 0 0 0 0 | 1 2 3 4\n"),
        wrong("wall_of_no_element", wall_on(tet, {TRIANGLE_FACE, 1, {0, 1, 2}}),
              "face 1 | 1 2 3\ntet 0 0 0 0 | 1 2 3 4\n"),
    };
}

class Messages : public testing::TestWithParam<WrongDataset>
{
};

static const auto name_of = [](const auto& info) { return info.param.dataset.name; };
INSTANTIATE_TEST_SUITE_P(Open, Messages, testing::ValuesIn(failing_opens()), name_of);
INSTANTIATE_TEST_SUITE_P(Read, Messages, testing::ValuesIn(failing_reads()), name_of);
INSTANTIATE_TEST_SUITE_P(Warning, Messages, testing::ValuesIn(warnings()), name_of);

TEST_P(Messages, are_exact_and_leave_a_good_state)
{
    const auto& [dataset, ends] = GetParam();
    TestHost host;
    host.start();
    std::string expected = "open\n" + dataset.trace + "flag 1\n";
    if (ends != Ends::open_fails) {
        expected = "open\nflag 0\nread 1\n" + dataset.trace +
                   (ends == Ends::well ? "flag 0\n" : "flag 1\n");
    }
    EXPECT_EQ(events(run(host, dataset)), expected);
    EXPECT_EQ(run(host, datasets()[0]), datasets()[0].trace);
}

TEST(Messages, stop_short_of_the_limit_of_sections)
{
    TestHost host;
    host.start();
    for (const FldFile& file : {many_sections(2048), many_variables(2048)}) {
        const Dataset dataset{"full", {{"a.fld", file}}, "", {}, {.variable_capacity = 2048}};
        EXPECT_EQ(events(run(host, dataset)), events(datasets()[0].trace));
    }
}

TEST(Messages, of_peeking_at_a_time)
{
    TestHost host;
    host.start();
    const TemporaryDirectory directory;
    host.hidden_prefix = directory.path("");
    host.open(directory.write("good.fld", build(good)));
    host.take_trace();
    FldFile wrong = good;
    wrong.version = 7;
    const std::pair<std::string, std::string> cases[] = {
        {directory.path("none.fld"), "out Cannot open time step file: none.fld\ntime 0 flag 1\n"},
        {directory.write("text.fld", "nothing but text"),
         "out Time step file is not unformatted: text.fld\ntime 0 flag 1\n"},
        {directory.write("wrong.fld", build(wrong)),
         "out FLD file version is too new.  Version = 7\ntime 0 flag 1\n"},
        {directory.write("timeless.fld", build(with_keywords(good, {}))), "time 0 flag 0\n"},
        {directory.write("later.fld", build(with_keywords(good, {cycle(1, 2.25)}))),
         "time 2.25 flag 0\n"},
    };
    for (const auto& [path, lines] : cases) {
        host.peek(path);
        EXPECT_EQ(host.take_trace(), "peek\n" + lines);
    }
    // The open dataset is none the worse for it.
    host.read(1);
    EXPECT_EQ(events(host.take_trace()),
              "read 1\n" + std::string(faces) + "tet 0 7 0 0 | 1 2 3 4\nflag 0\n");
}

} // namespace fld_test
