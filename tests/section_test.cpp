// The layouts of the header and of every section: what is accepted, and what fails silently. Each
// case is the tetrahedron with one section written by hand.
#include "datasets.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <gtest/gtest.h>

namespace fld_test
{

static std::string trace_of(const FldFile& file)
{
    return run({{"a.fld", file}});
}

// The trace of the tetrahedron with a section of its own replaced, or one more.
static std::string trace_with(const Section& section)
{
    return trace_of(replaced(tetrahedron_file(), section));
}

// ---- layouts ----

struct Layout {
    const char* name;
    Section section; // replaces the tetrahedron's, or joins it
    bool opens;
};

static const std::vector<double> x = {0, 1, 0, 1}, y = {0, 0, 1, 1}, z = {0, 0, 0, 0};

// Real numbers in one record, without a descriptor.
static Item floats(const std::vector<double>& values)
{
    return [=](FldBuilder& b) {
        std::string data;
        for (const double value : values) {
            data += b.encoded(std::bit_cast<int32_t>(static_cast<float>(value)), 4);
        }
        b.record(data);
    };
}

static Item all(const std::vector<Item>& items)
{
    return layout("", items).body;
}

static Item repeated(size_t count, const Item& item)
{
    return all(std::vector<Item>(count, item));
}

// The x coordinates of four nodes as given, and the others.
static Section four_nodes(const std::vector<Item>& x_items)
{
    return layout("LS_Nodes",
                  {int_item(3), int_item(4), all(x_items), real_array(y), real_array(z)});
}

// A section of one region.
static Section region(const char* section, int32_t name_length, const std::vector<Item>& items)
{
    return layout(section, {int_item(3), int_item(1), int_item(name_length), all(items)});
}

static Section ale(int32_t name_length, const std::vector<Item>& items)
{
    return layout("LS_ALE", {int_item(0), int_item(name_length), int_item(0), all(items)});
}

static Section ale_entry(const Item& triple)
{
    return ale(4, {int_item(1), int_item(0), int_item(1), text_item("part"), int_item(1), triple});
}

static Section coc(const std::vector<Item>& items)
{
    return layout("LS_STREAMcoc", {int_item(0), all(items)});
}

// Regions in an array of which no face is there.
static Section without_faces(size_t regions, const std::vector<int32_t>& face_counts)
{
    const Item none = int_array({});
    return layout("LS_SurfaceGeometryArray",
                  {int_item(3), int_item(static_cast<int32_t>(regions)), int_item(1),
                   text_item(std::string(regions, 'r')), int_array(face_counts), none, none,
                   int_array(std::vector<int32_t>(regions)), none});
}

static std::vector<Layout> layouts()
{
    const Item none = int_array({}), zero = int_item(0), three = int_item(3);
    const Item wall = text_item("wall");
    const char* const types = "LS_RegionName&Type";
    const char* const materials_name = "LS_MatOfElements";
    const char* const surface = "LS_SurfaceGeometry";
    const char* const surface_list = "LS_SurfaceGeometryArray";
    const char* const volume = "LS_VolumeGeometry";
    const char* const volume_list = "LS_VolumeGeometryArray";
    const std::string coc_name = "LS_STREAMcoc" + std::string(20, '\0');
    const std::string cut_name = "LS_Scalar:P" + std::string("\0junk", 5) + std::string(16, ' ');
    const Item whole_coc = all({zero, int_array({1, 2, 3})});
    return {
        {"int_item_of_8_bytes",
         layout("LS_Nodes", {ints({8, 1, 1}), ints({3, 0}), int_item(4), real_array(x),
                             real_array(y), real_array(z)}),
         false},
        {"int_item_of_no_records",
         layout("LS_Nodes", {ints({4, 1, 0}), ints({3}), int_item(4), real_array(x), real_array(y),
                             real_array(z)}),
         false},
        {"longer_records",
         layout("LS_Nodes", {ints({4, 1, 1, 9}), ints({3, 9}), int_item(4), ints({4, 4, 1, 9}),
                             floats({0, 1, 0, 1, 9}), real_array(y), real_array(z, 8)}),
         true},
        {"more_values_than_nodes",
         four_nodes({ints({4, 3, 2}), floats({0, 1, 0}), floats({1, 9, 9})}), true},
        {"short_last_record", four_nodes({ints({4, 3, 2}), floats({0, 1, 0}), floats({})}), false},
        {"records_for_3_nodes", four_nodes({real_array({0, 1, 0})}), false},
        {"more_records_than_nodes", four_nodes({ints({4, 1, 5}), repeated(5, floats({1}))}), false},
        {"reals_of_2_bytes", four_nodes({ints({2, 4, 1}), record("12345678")}), false},
        {"negative_node_count", layout("LS_Nodes", {three, int_item(-1), none, none, none}), false},
        {"materials_of_8_bytes",
         layout(materials_name, {three, int_item(1), ints({8, 1, 1}), ints({1, 0})}), false},
        {"negative_material_count", layout(materials_name, {three, int_item(-1), none}), false},
        {"fewer_list_entries_than_elements",
         layout("LS_Elements",
                {three, int_item(2), int_array({34, 34}), int_item(1), int_array({1})}),
         false},
        {"region_name_length_minus_2", region(types, -2, {text_item("Inlet"), wall}), false},
        {"region_name_of_4_byte_characters",
         region(types, -1, {text_item("Inlet"), ints({4, 1, 1}), ints({1})}), false},
        {"region_name_of_one_4_byte_character",
         region(types, 1, {text_item("Inlet"), ints({4, 1, 1}), ints({1})}), false},
        {"region_type_of_33_records",
         region(types, -1, {ints({1, 1, 33}), repeated(33, record("i")), wall}), false},
        {"surface_name_length_minus_2", region(surface, -2, {wall, zero, none, none, zero, none}),
         false},
        {"negative_face_count", region(surface, -1, {wall, int_item(-1), none, none, zero, none}),
         false},
        {"negative_node_list_length",
         region(surface_list, 4, {wall, int_array({0}), none, none, int_array({-1}), none}), false},
        {"negative_number_of_surface_regions",
         layout(surface_list,
                {three, int_item(-1), zero, text_item(""), none, none, none, none, none}),
         false},
        {"70000_surface_regions_in_an_array", without_faces(70000, std::vector<int32_t>(70000)),
         true},
        {"face_counts_of_2000_of_70000_regions", without_faces(70000, std::vector<int32_t>(2000)),
         false},
        {"no_surface_regions_in_an_array",
         layout(surface_list, {three, zero, zero, text_item(""), none, none, none, none, none}),
         true},
        {"face_counts_beyond_an_int32", without_faces(3, {INT32_MAX, INT32_MAX, 2}), false},
        {"negative_face_count_in_an_array", without_faces(2, {1, -1}), false},
        {"no_volumes", layout(volume, {three, zero, int_item(-2)}), true},
        {"volume_name_length_minus_2", region(volume, -2, {text_item("fluid"), zero, none}), false},
        {"negative_volume_list", region(volume, -1, {wall, int_item(-1), none}), false},
        {"empty_volume_list_of_records_of_minus_1",
         region(volume, -1, {wall, zero, ints({4, -1, 1}), ints({})}), false},
        {"empty_volume_list_of_no_records", region(volume, -1, {wall, zero, ints({4, 1, 0})}),
         false},
        {"blank_volume_name_longer_than_the_file",
         layout(volume_list, {three, int_item(1), int_item(70000), ints({1, 0, 1}), record(""),
                              int_array({2}), int_array({1, 2})}),
         true},
        {"volume_lists_of_9_for_10",
         layout(volume_list, {three, int_item(2), int_item(1), text_item("ab"), int_array({4, 6}),
                              int_array({1, 2, 3, 4, 5, 6, 7, 8, 9})}),
         false},
        {"negative_number_of_volumes",
         layout(volume_list, {three, int_item(-1), zero, text_item(""), none, none}), false},
        {"no_ale_groups", ale(-9, {zero}), true},
        {"empty_ale_group", ale(-9, {int_item(1), zero, zero}), true},
        {"ale_names_of_negative_length", ale(-1, {int_item(1), int_item(1), text_item(""), zero}),
         false},
        {"negative_number_of_ale_names", ale(-9, {int_item(1), int_item(-1), zero}), false},
        {"ale_triple_of_2_values", ale_entry(real_array({1, 2})), false},
        {"ale_triple_in_3_records", ale_entry(all({ints({8, 1, 3}), repeated(3, ints({0, 1}))})),
         true},
        {"coc_with_empty_last_record", coc({ints({4, 2, 3}), ints({1, 2}), ints({3}), ints({})}),
         true},
        {"coc_of_2_values", coc({int_array({1, 2})}), false},
        {"name_padded_with_NUL",
         layout("LS_STREAMcoc", {whole_coc, ints({0, 0, 0}), record(coc_name), whole_coc}), true},
        {"name_ending_at_a_NUL",
         layout("LS_STREAMcoc", {whole_coc, ints({0, 0, 0}), record(cut_name), int_item(1)}),
         false},
    };
}

using Layouts = testing::TestWithParam<Layout>;
INSTANTIATE_TEST_SUITE_P(All, Layouts, testing::ValuesIn(layouts()), test_name);

TEST_P(Layouts, are_accepted_or_fail_silently)
{
    const auto& [name, section, opens] = GetParam();
    const std::string trace = trace_with(section);
    const std::vector<std::string> words = {"out", "flag", "face", "x", "y", "z", "value"};
    EXPECT_EQ(pick(trace, words), opens ? pick(datasets()[0].trace, words) : "flag 1\n");
}

// A region's list may hold more nodes than its faces take: the next region's begins behind them.
TEST(Sections, node_lists_may_be_longer_than_the_faces)
{
    const Section array =
        layout("LS_SurfaceGeometryArray",
               {int_item(0), int_item(2), int_item(1), text_item("ab"), int_array({1, 1}),
                int_array({TRIANGLE_FACE, TRIANGLE_FACE}), int_array({1, 1}), int_array({5, 3}),
                int_array({1, 2, 3, 9, 9, 2, 3, 4})});
    const FldFile file = added(without(tetrahedron_file(), "LS_SurfaceGeometry"), array);
    EXPECT_EQ(pick(trace_of(file), {"face"}), "face 1 | 1 2 3\nface 2 | 2 3 4\n");
}

// What the file holds of the names of very many regions is looked at before their counts are
// missed; of those that have no character in it, 65,536 are enough.
TEST(Sections, names_come_before_the_counts_that_are_missing)
{
    const auto cut_behind = [](int32_t width, const std::string& names) {
        Section cut = layout("LS_SurfaceGeometryArray",
                             {int_item(3), int_item(70000), int_item(width), text_item(names)});
        cut.closed = false;
        FldFile file = added(tetrahedron_file(), cut);
        file.last_name = "";
        return file;
    };
    const std::string warning = "Data reader warning: skipping surface region with empty name.\n";
    std::string names = "wall    ";
    while (names.size() < size_t{4} * 69999) names += "wall";
    names += "nope";
    const std::vector<NamedFile> whole = {
        {"a.fld", added(tetrahedron_file(), surface_array({{"wall", {}}}))}};
    TestHost host;
    host.start();
    EXPECT_EQ(pick(run(host, {"", whole, "", {{"a.fld", cut_behind(4, names)}}}), {"out", "flag"}),
              "flag 0\nout " + warning + "out Data reader error: boundary type not found: nope\n" +
                  "flag 1\n");
    EXPECT_EQ(events(run({{"a.fld", cut_behind(4, names)}})), "open\nout " + warning + "flag 1\n");
    // The host counts most of them only.
    const size_t warned = 65536 * warning.size() - (1U << 18);
    const std::string trace = run({{"a.fld", cut_behind(0, "")}});
    EXPECT_NE(trace.find("... " + std::to_string(warned) + " bytes more\nflag 1\n"),
              std::string::npos);
}

// An item without data in the place of any other one, and the end of the section after it.
TEST(Sections, that_stop_at_any_item_are_refused)
{
    const Item zero = int_item(0), one = int_item(1), three = int_item(3), four = int_item(4),
               wall = text_item("wall"), triple = int_array({1, 2, 3}), single = int_array({1}),
               triangle = int_array({TRIANGLE_FACE}), reals = real_array(x);
    const std::pair<const char*, std::vector<Item>> sections[] = {
        {"LS_CoordinateSystem", {three, zero}},
        {"LS_Nodes", {three, four, reals, reals, reals}},
        {"LS_MatOfElements", {three, one, single}},
        {"LS_Elements", {three, one, int_array({34}), four, int_array({1, 2, 3, 4})}},
        {"LS_RegionName&Type", {three, one, four, wall, wall}},
        {"LS_SurfaceGeometry", {three, one, four, wall, one, triangle, single, three, triple}},
        {"LS_SurfaceGeometryArray",
         {three, one, four, wall, single, triangle, single, int_array({3}), triple}},
        {"LS_VolumeGeometry", {three, one, four, wall, three, triple}},
        {"LS_VolumeGeometryArray", {three, one, four, wall, int_array({3}), triple}},
        {"LS_ALE", {zero, four, zero, one, one, wall, one, wall, one, real_array({1, 2, 3})}},
        {"LS_Scalar:P", {zero, wall, four, reals}},
        {"LS_Vector:V", {zero, zero, wall, four, reals, reals, reals}},
        {"LS_STREAMcoc", {zero, triple}},
    };
    for (const auto& [name, items] : sections) {
        if (!strchr(name, ':')) { // a longer name is that of another section, which is passed over
            const Section other = layout(std::string(name) + "2", {});
            EXPECT_EQ(pick(trace_with(other), {"flag"}), "flag 0\nflag 0\n") << name;
        }
        for (size_t kept = 0; kept <= items.size(); ++kept) {
            std::vector<Item> some(items.begin(), items.begin() + static_cast<ptrdiff_t>(kept));
            if (kept < items.size()) some.push_back(ints({1, 32, 0}));
            const std::string flags = pick(trace_with(layout(name, some)), {"flag"});
            EXPECT_EQ(flags.substr(0, 7), kept == items.size() ? "flag 0\n" : "flag 1\n")
                << name << ", item " << kept + 1;
        }
    }
}

// ---- the header ----

TEST(Header, keyword_groups)
{
    const auto time_of = [](const std::vector<Item>& items) {
        return layout("Cycle", {int_item(1), all(items)});
    };
    const auto marker_and = [](const Item& item) {
        return layout("Unused", {real_array({7}, 4), item});
    };
    const Section double_marker = marker_and(real_array({-2}, 8));
    Section no_end = marker_and(ints({0, 1, 0}));
    no_end.closed = false;
    const Section nothing = layout("Anything", {});
    const Section items = layout("Anything", {ints({4, 100, 3}), record("1"), record(""),
                                              record("333"), ints({1, 32, 1}), record("text")});
    const Section bias_with_NUL =
        layout("Dimension",
               {int_item(3), ints({0, 0, 0}), record("Bias" + std::string(28, '\0')), int_item(1)});
    const struct {
        const char* name;
        Sections keywords;
        const char* time; // empty: refused
        const char* value = "value 1 -2 0.5 1e+30\n";
    } cases[] = {
        {"minimal", {bias()}, "0"},
        {"the last one counts", {bias(), cycle(1, 1), nothing, cycle(2, 8)}, "8"},
        {"unknown keywords", {items, bias(), nothing, layout("bias", {})}, "0"},
        {"padded with NUL", {bias_with_NUL}, "0"},
        {"double marker", {bias(), double_marker}, "0", "value 1 -2 0.5 1e+30\n"},
        {"marker of 0", {bias(), unused(0)}, "0"},
        {"single marker", {bias(), unused(-2)}, "0", "value 1 inf 0.5 1e+30\n"},
        {"time in two records",
         {bias(), time_of({ints({8, 1, 2}), ints({0, 0}), ints({0, 0})})},
         ""},
        {"time in two records of which one is there",
         {bias(), time_of({ints({4, 1, 2}), ints({0})})},
         ""},
        {"time of 2 bytes", {bias(), time_of({ints({2, 1, 1}), ints({0})})}, ""},
        {"two times", {bias(), time_of({ints({4, 2, 1}), ints({0, 0})})}, ""},
        {"no time", {bias(), time_of({ints({4, 3, 1})})}, ""},
        {"marker of 8 bytes", {bias(), layout("Unused", {real_array({7}, 8)})}, ""},
        {"end record with a length", {bias(), no_end}, ""},
        {"two single markers", {bias(), marker_and(real_array({-2}, 4))}, ""},
        {"two double markers", {bias(), marker_and(real_array({7, 7}, 8))}, ""},
    };
    for (const auto& c : cases) {
        const std::string trace = trace_of(with_keywords(tetrahedron_file(), c.keywords));
        const std::string good =
            "flag 0\ntime " + std::string(c.time) + " flag 0\nflag 0\nx 0 1 0 1\n";
        EXPECT_EQ(pick(trace, {"flag", "time", "out", "x", "value"}),
                  *c.time ? good + c.value : "flag 1\n")
            << c.name;
    }
    // A double marker is another value than the single one, and found in doubles only.
    const FldFile doubles = with_keywords(tetrahedron_file(), {bias(), double_marker});
    EXPECT_EQ(pick(run({{"a.fld", doubles}}, {}, {.precision = 8}), {"value"}),
              "value 1 inf 0.5 1e+30\n");
}

// ---- regions and names ----

static void expect_wall(bool is_wall, const Section& section, const std::string& text)
{
    EXPECT_EQ(pick(trace_with(section), {"tet", "out"}),
              is_wall ? "tet 0 7 0 0 | 1 2 3 4\n" : "tet 0 0 0 0 | 1 2 3 4\n")
        << text;
}

TEST(RegionTypes, mark_walls)
{
    const std::pair<std::string, bool> types[] = {
        {"Wall_Boundary", true},
        {"Solid_Boundary", true},
        {"WALL(", true},
        {"WALL(moving) and more, and more, and more", true}, // cut after 32 characters
        {"THERM(adiabatic)", true},
        {padded("Wall_Boundary", 32), true},
        {"Wall_Boundary" + std::string(4, '\0'), true},
        {"Wall_Boundary" + std::string("\0 junk", 6), true}, // ends at the first NUL
        {"wall_boundary", false},
        {"Wall_Boundary2", false},
        {" Wall_Boundary", false},
        {"Solid_Boundary(", false},
        {"wall(", false},
        {"WALL", false},
        {"A WALL(", false},
        {"", false},
    };
    for (const auto& [type, is_wall] : types) {
        for (const int32_t name_length : {-1, 4, 20}) {
            expect_wall(is_wall, region_types({{type, "wall"}}, name_length), type);
        }
    }
}

TEST(RegionNames, are_compared_without_padding)
{
    const Face face{TRIANGLE_FACE, 0, {3, 1, 2}};
    const std::pair<std::string, bool> names[] = {
        {"wall", true},  {"wall  ", true}, {"wall" + std::string("\0x", 2), true},
        {"Wall", false}, {" wall", false}, {"wall2", false},
    };
    for (const auto& [name, is_wall] : names) {
        for (const int32_t name_length : {-1, 32}) {
            expect_wall(is_wall, surfaces({{name, {face}}}, name_length), name);
        }
    }
}

// Names that are blank cost nothing, however long; each is told of, also when the file ends behind.
TEST(SurfaceNames, that_are_blank_are_skipped)
{
    const Item zero = int_item(0), one = int_item(1), none = int_array({}), blank = ints({1, 0, 1});
    const Item names = all({zero, one, int_item(70000), blank, record("")});
    const Section whole = layout("LS_SurfaceGeometryArray",
                                 {names, int_array({0}), none, none, int_array({0}), none});
    Section cut = layout("LS_SurfaceGeometryArray", {names});
    cut.closed = false;
    const std::string warning =
        "out Data reader warning: skipping surface region with empty name.\n";
    EXPECT_EQ(pick(trace_with(whole), {"out", "flag"}).substr(0, warning.size() + 7),
              warning + "flag 0\n");
    FldFile ends = added(tetrahedron_file(), cut);
    ends.last_name = "";
    EXPECT_EQ(pick(trace_of(ends), {"out", "flag"}), warning + "flag 1\n");
}

// ---- labels ----

TEST(Labels, make_the_variables_names)
{
    const auto labelled = [](const std::vector<Item>& label) {
        return layout("LS_Scalar:P", {int_item(0), all(label), int_item(4), real_array(x)});
    };
    const Section two_twenties = labelled(
        {ints({1, 20, 2}), record("abcdefghijklmnopqrst"), record("uvwxyzABCDEFGHIJKLMN")});
    const Section no_characters = labelled({ints({1, 0, 5}), record("ignored")});
    const Section too_many_records = labelled({ints({1, 1, 33}), repeated(33, record("x"))});
    const std::string key(22, 'k'), label(32, 'L');
    const std::vector<Point> points = cube_corners(4);
    const std::pair<Section, std::string> cases[] = {
        {scalar("P", "Pressure", x), "variable Pressure (P)\n"},
        {scalar("P", "P", x), "variable P\n"},
        {scalar("P", "", x), "variable P\n"},
        {scalar("P", "p", x), "variable p (P)\n"},
        {scalar("P", "P" + std::string("\0x", 2), x), "variable P\n"},
        {scalar("P", " P", x), "variable  P (P)\n"},
        {scalar(" P", "", x), "variable  P\n"},
        {scalar("", "Nameless", x), "variable Nameless ()\n"},
        {scalar("", "", x), "variable \n"},
        {scalar(key, label, x), "variable " + label + " (" + key + ")\n"},
        {two_twenties, "variable abcdefghijklmnopqrstuvwxyzABCDEF (P)\n"},
        {no_characters, "variable P\n"},
        {too_many_records, ""},
        {vector("U", "", points), component_names("U")},
        {vector("U", "Velocity", points), component_names("Velocity", "U")},
        // 32 + 16 + 22 + 3 characters and the first 7 of the label's second occurrence.
        {vector(key, label, points), "variable " + label + " (x-component) (" + key + "); " +
                                         label.substr(0, 7) + "\n" + "variable " + label +
                                         " (y-component) (" + key + ")\n" + "variable " + label +
                                         " (z-component) (" + key + ")\n"},
    };
    for (const auto& [section, names] : cases) {
        const FldFile file = added(without(tetrahedron_file(), "LS_Scalar:P"), section);
        EXPECT_EQ(pick(trace_of(file), {"variable", "out"}), names) << section.name;
    }
}

} // namespace fld_test
