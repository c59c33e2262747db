#include "datasets.h"

#include <algorithm>
#include <sstream>

namespace fld_test
{

std::vector<Point> cube_corners(size_t count)
{
    std::vector<Point> corners;
    for (size_t i = 0; i < count; ++i) {
        corners.push_back({double(i & 1), double(i >> 1 & 1), double(i >> 2 & 1)});
    }
    return corners;
}

FldFile tetrahedron_file()
{
    const Element tetrahedron{TETRAHEDRON, {0, 1, 2, 3}};
    const Region wall{"wall", {{TRIANGLE_FACE, 0, {3, 1, 2}}}};
    const Region inlet{"inlet", {{TRIANGLE_FACE, 0, {0, 2, 1}}}};
    return {{{coordinate_system(0), nodes(cube_corners(4)),
              region_types({{"Wall_Boundary", "wall"}, {"Inlet", "inlet"}}), materials({1}),
              elements({tetrahedron}), scalar("P", "Pressure", {1, -2, 0.5, 1e30}),
              surfaces({wall, inlet})}}};
}

// Every shape once for each of its faces; element k has that face, and only that, on a wall. The
// faces come in another order than the elements, their nodes in no order at all, and from both
// surface layouts.
static FldFile all_faces_file()
{
    const Element tet{TETRAHEDRON, {0, 1, 2, 3}}, pyramid{PYRAMID, {0, 1, 2, 3, 4}};
    const Element prism{PRISM, {0, 1, 2, 3, 4, 5}}, hex{HEXAHEDRON, {0, 1, 2, 3, 4, 5, 6, 7}};
    const auto quad = [](int32_t element, const std::vector<int32_t>& corners) {
        return Face{QUADRILATERAL_FACE, element, corners};
    };
    const auto triangle = [](int32_t element, const std::vector<int32_t>& corners) {
        return Face{TRIANGLE_FACE, element, corners};
    };
    const Region upper{"upper",
                       {quad(19, {6, 2, 3, 7}), quad(18, {5, 0, 4, 1}), quad(17, {7, 6, 5, 4}),
                        quad(16, {0, 1, 2, 3}), quad(15, {6, 5, 2, 1}), quad(14, {0, 4, 3, 7}),
                        triangle(13, {5, 4, 3}), triangle(12, {1, 0, 2}), quad(11, {4, 1, 5, 2}),
                        quad(10, {5, 3, 2, 0}), quad(9, {3, 1, 4, 0})}};
    const Region lower{"lower",
                       {triangle(0, {2, 1, 0}), triangle(1, {3, 1, 2}), triangle(2, {0, 3, 2}),
                        triangle(3, {1, 3, 0}), quad(4, {0, 2, 1, 3}), triangle(5, {4, 1, 2}),
                        triangle(6, {2, 3, 4}), triangle(7, {4, 0, 3}), triangle(8, {1, 0, 4})}};
    return {
        {{surface_array({lower}, 6), surfaces({upper}),
          region_types({{"WALL(no-slip)", "upper"}, {"THERM(300)", "lower"}}, 8),
          elements({tet,   tet,   tet,   tet,   pyramid, pyramid, pyramid, pyramid, pyramid, prism,
                    prism, prism, prism, prism, hex,     hex,     hex,     hex,     hex,     hex}),
          materials(std::vector<int32_t>(20, 3)), nodes(cube_corners()), coordinate_system(0)}}};
}

// Two faces of one hexahedron on walls, one of them twice; what makes no cell and no face; and a
// region without a name, which is passed over with a warning.
static FldFile passed_over_file()
{
    const Element hex{HEXAHEDRON, {0, 1, 3, 2, 4, 5, 7, 6}};
    const std::vector<Element> list = {
        {QUADRILATERAL, {0, 1, 2, 3}}, {PRISM, {0, 1, 2, 3, 4, 5}}, {TRIANGLE, {0, 1, 2}}, hex};
    const Face front{QUADRILATERAL_FACE, 3, {0, 1, 5, 4}},
        left{QUADRILATERAL_FACE, 3, {0, 2, 6, 4}};
    const Region nameless{"", {left}}, edge{"edge", {{LINE_FACE, 3, {0, 1}}, front}};
    return {
        {{coordinate_system(0), nodes(cube_corners()), materials({1, 0, 1, 1}), elements(list),
          region_types({{"Solid_Boundary\r", "edge\t"}, {"THERMAL", "left"}, {"WALLS", "left"}}),
          region_types({{"THERM(", "more"}, {"Wall_Boundary", ""}}),
          surfaces({edge, nameless, {"left", {left}}}), surface_array({nameless, edge}),
          surface_array({})}}};
}

// Two grids; the second has other variables in another order, an own boundary and no scalar "P".
// A third one is empty.
static FldFile three_grids_file()
{
    FldFile file = tetrahedron_file();
    const Region wall{"outlet", {{QUADRILATERAL_FACE, 0, {0, 1, 2, 3}}}};
    const Region inlet{"inlet", {{TRIANGLE_FACE, 0, {0, 1, 4}}}};
    file.grids.push_back(
        {scalar("T", "T", {5, 6, 7, 8, 9}), nodes(cube_corners(5)),
         vector("U", "", {{1, 2, 3}, {4, 5, 6}, {7, 8, 9}, {10, 11, 12}, {0, 0, 1}}),
         materials({-2}), elements({{PYRAMID, {0, 1, 2, 3, 4}}}), surfaces({wall, inlet}),
         coordinate_system(0), region_types({{"Wall_Boundary", "inlet"}})});
    file.grids.push_back({coordinate_system(0), nodes({}), materials({}), elements({}),
                          scalar("T", "T", {}), vector("U", "", {}), surfaces({})});
    return file;
}

// Radius, angle, z. The angle of the second node is the float next to a quarter turn, whose cosine
// is -4.3711388e-8: x and y show its rounding.
static FldFile cylindrical_file()
{
    const double quarter_turn = 1.5707963705062866;
    const std::vector<Point> positions = {{2, 0, 5}, {2, quarter_turn, 5}, {1, 0, 0}, {0, 0, -1}};
    const std::vector<Point> values = {{1, 0.5, 3}, {1, 0.5, 4}, {2, 3, 5}, {7, 9, 6}};
    return {{{nodes(positions), coordinate_system(1), materials({1}),
              elements({{TETRAHEDRON, {0, 1, 2, 3}}}), vector("VEL", "Velocity", values)}}};
}

// Undefined coordinates and values; a step number and time of the file's own; a keyword that no
// reader knows, with items of several shapes.
static FldFile undefined_values_file()
{
    const std::vector<Point> positions = {{0, 0, 0}, {1, -999, 0}, {0, 1, 0}, {-999, 0, 1}};
    const Section comment =
        layout("Comment", {text_item("written by nobody"), real_array({1, 2, 3}, 8), int_item(9)});
    const FldFile file{
        {{coordinate_system(0), nodes(positions), materials({1}),
          elements({{TETRAHEDRON, {0, 1, 2, 3}}}), scalar("T", "", {0, -999, 2, 999}),
          vector("U", "U", {{1, 0, 0}, {1, -999, 0}, {1, 0, 0}, {1, 0, -999}})}}};
    return with_keywords(file, {comment, unused(-999), bias(), cycle(4711, 0.125)});
}

// Sections of which nothing reaches the host, among those that it needs.
static FldFile silent_sections_file()
{
    const Section volumes =
        layout("LS_VolumeGeometry",
               {int_item(5), int_item(2), int_item(-1), text_item("fluid"), int_item(3),
                int_array({1, 2, 3}), text_item("nothing"), int_item(0), int_array({})});
    const Section volume_array = layout(
        "LS_VolumeGeometryArray", {int_item(5), int_item(2), int_item(4), text_item("one two "),
                                   int_array({4, 6}), int_array({1, 2, 3, 4, 5, 6, 7, 8, 9, 10})});
    // One group of two names and four entries, of every number of records that there is.
    std::vector<Item> ale = {int_item(5), int_item(4),       int_item(5),       int_item(1),
                             int_item(2), text_item("rot "), text_item("tran"), int_item(4)};
    for (const int32_t records : {1, 2, 3, 8}) {
        ale.insert(ale.end(), {text_item("part"), int_item(records)});
        const int32_t triples = records == 3 ? 2 : records;
        for (int i = 0; i < triples; ++i) ale.push_back(real_array({1, 2, 3}, i % 2 * 8));
        if (records == 3) ale.push_back(real_array({4}, 8));
    }
    const Section coc = layout("LS_STREAMcoc", {int_item(5), int_array({1, 2, 3})});
    // A text that may be longer than the file, and has no characters.
    const Section empty_text =
        layout("LS_VolumeGeometry", {int_item(5), int_item(1), int_item(100000), ints({1, 0, 1}),
                                     record(""), int_item(0), int_array({})});
    const Section unknown = layout("LS_nodes", {int_item(1), text_item("text")});
    FldFile file = tetrahedron_file();
    Sections& grid = file.grids[0];
    grid.insert(grid.begin(), {volumes, unknown, coc, layout("LS_ALE", ale)});
    grid.insert(grid.end() - 2, {volume_array, empty_text, layout("LS_Nodes2", {})});
    return file;
}

// A results file with a further grid of its own, whose grid file is two places earlier in the
// series. The grid file's results are reported, but the results file does not have them. Walls are
// known of the paired grid only.
static std::vector<NamedFile> series_files()
{
    const FldFile empty_step{{{coordinate_system(0), scalar("T", "T", {1, 1, 1, 1})}}};
    FldFile step{{{scalar("T", "T", {4, 3, 2, 1}), coordinate_system(0)}}};
    step.grids.push_back(
        {coordinate_system(0), nodes(cube_corners(4)), materials({1}),
         elements({{TETRAHEDRON, {0, 1, 2, 3}}}), region_types({{"Wall_Boundary", "wall"}}),
         surfaces({{"wall", {{TRIANGLE_FACE, 0, {0, 1, 2}}}}}), scalar("T", "T", {8, 7, 6, 5})});
    return {{"flow_0001.fld", tetrahedron_file()},
            {"flow_0002.fld", empty_step},
            {"flow_0003.fld", with_keywords(step, {bias(), cycle(3, 0.75)})}};
}

// Cylindrical results without a grid of their own.
static std::vector<NamedFile> cylindrical_pair()
{
    FldFile grid = cylindrical_file(), step = grid;
    grid.grids[0].pop_back();
    step.grids[0] = {step.grids[0][1], step.grids[0].back()};
    return {{"c.1", grid}, {"c.2", step}};
}

// The marker of undefined values in both precisions.
static FldFile both_markers_file()
{
    const Section markers = layout("Unused", {real_array({-1e30}, 4), real_array({-1e30}, 8)});
    const FldFile file = replaced(tetrahedron_file(), scalar("P", "Pressure", {1, -2, 0.5, -1e30}));
    return with_keywords(file, {markers, bias(), cycle(1, 0.5)});
}

// An expected trace, as a text file beside this one.
static std::string trace_of(const std::string& name)
{
    return file_content(std::string(FLD_TRACES_DIRECTORY "/") + name + ".txt");
}

static std::string exchanged(std::string trace, const std::string& text, const std::string& by)
{
    return trace.replace(trace.find(text), text.size(), by);
}

const std::vector<Dataset>& datasets()
{
    const Format short_subrecords{.max_subrecord = 5, .values_per_record = 3, .bias = 0};
    const Format short_records{.big_endian = true, .max_subrecord = 16, .values_per_record = 1};
    const Format doubles{.big_endian = true, .values_per_record = 2, .bias = -5, .precision = 8};
    const std::string options = "options 0 0 1\n";
    static const std::vector<Dataset> list = {
        {"tetrahedron", {{"a.fld", tetrahedron_file()}}, trace_of("tetrahedron")},
        {"all_faces", {{"a.fld", all_faces_file()}}, trace_of("all_faces")},
        {"passed_over", {{"a.fld", passed_over_file()}}, trace_of("passed_over")},
        {"three_grids", {{"a.fld", three_grids_file()}}, trace_of("three_grids")},
        {"cylindrical", {{"a.fld", cylindrical_file()}}, trace_of("cylindrical")},
        {"undefined_values", {{"a.fld", undefined_values_file()}}, trace_of("undefined_values")},
        {"silent_sections", {{"a.fld", silent_sections_file()}}, trace_of("tetrahedron")},
        {"results_series", series_files(), trace_of("series")},
        {"cylindrical_pair",
         cylindrical_pair(),
         exchanged(trace_of("cylindrical"), options, options + options),
         {},
         {},
         short_subrecords},
        {"both_markers",
         {{"a.fld", both_markers_file()}},
         exchanged(trace_of("tetrahedron"), "1e+30", "inf"),
         {},
         {},
         short_records},
        {"doubles", {{"a.fld", three_grids_file()}}, trace_of("three_grids"), {}, {}, doubles},
    };
    return list;
}

// ---- running ----

std::string write_files(const TemporaryDirectory& directory, const std::vector<NamedFile>& files,
                        const Format& format)
{
    for (const NamedFile& file : files) {
        (void)directory.write(file.name,
                              file.bytes.empty() ? build(file.file, format) : file.bytes);
    }
    return files.empty() ? "" : directory.path(files.back().name);
}

std::string run(TestHost& host, const Dataset& dataset, const Format& format)
{
    const TemporaryDirectory directory;
    host.hidden_prefix = directory.path("");
    host.controls = dataset.controls;
    return host.visit(write_files(directory, dataset.files, format),
                      [&] { (void)write_files(directory, dataset.changed, format); });
}

std::string run(const std::vector<NamedFile>& files, const Controls& controls, const Format& format)
{
    TestHost host;
    host.start();
    return run(host, {"", files, "", {}, controls}, format);
}

std::string pick(const std::string& trace, const std::vector<std::string>& words)
{
    std::istringstream stream(trace);
    std::string kept;
    for (std::string line; std::getline(stream, line);) {
        const std::string word = line.substr(0, line.find(' '));
        if (std::ranges::find(words, word) != words.end()) kept += line + "\n";
    }
    return kept;
}

std::string without_output(const std::string& trace)
{
    std::istringstream stream(trace);
    std::string kept;
    for (std::string line; std::getline(stream, line);) {
        const bool is_output = line.starts_with("out ") || line.starts_with("err ");
        line.erase(line.find_last_not_of(' ') + 1); // of names
        if (!is_output && !line.starts_with("options ")) kept += line + "\n";
    }
    return kept;
}

std::string component_names(const std::string& label, const std::string& key)
{
    const std::string begin = "variable " + label, end = key.empty() ? "" : " (" + key + ")";
    return begin + " (x-component)" + end + "; " + label + end + "\n" + begin + " (y-component)" +
           end + "\n" + begin + " (z-component)" + end + "\n";
}

std::string events(const std::string& trace)
{
    return pick(trace,
                {"open", "read", "flag", "out", "err", "face", "tet", "pyramid", "prism", "hex"});
}

} // namespace fld_test
