// The program "fld": what it prints where, and how it ends.
#include "datasets.h"

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sstream>

namespace fld_test
{

using nlohmann::json;

struct ProgramRun {
    int status;
    std::string out, err;
};

static size_t occurrences(const std::string& text, const std::string& part)
{
    size_t count = 0;
    for (size_t at = 0; (at = text.find(part, at)) != std::string::npos; at += part.size()) ++count;
    return count;
}

// The program and the reader library of this build, or of another one that runs here too.
static std::string from_environment(const char* name, const char* otherwise)
{
    const char* const value = getenv(name);
    return value ? value : otherwise;
}
static const std::string program = from_environment("FLD_TESTED_PROGRAM", FLD_PROGRAM_PATH);
static const std::string library = from_environment("FLD_TESTED_READER", FLD_READER_PATH);

// Runs the program in a directory of its own. Every document that it prints is checked against the
// schema.
class Program : public testing::Test
{
protected:
    ~Program() override
    {
        if (documents_.empty()) return;
        (void)directory_.write("documents", documents_.dump());
        const std::string command =
            "cd " + directory_.path("") +
            " && /usr/bin/python3 -c 'import json, jsonschema\n"
            "validator = jsonschema.Draft202012Validator(json.load(open(\"" FLD_SCHEMA "\")))\n"
            "for one in json.load(open(\"documents\")): validator.validate(one)' >errors 2>&1";
        EXPECT_EQ(system(command.c_str()), 0) << file_content(directory_.path("errors"));
    }

    // `command`: as a shell takes it, with "fld" for the program.
    ProgramRun shell(const std::string& command) const
    {
        const std::string out = directory_.path("out"), err = directory_.path("err");
        const std::string line = "cd " + directory_.path("") + " && fld() { " + program +
                                 " \"$@\"; } && { " + command + "; } >" + out + " 2>" + err;
        const int status = system(line.c_str());
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, file_content(out), file_content(err)};
    }
    ProgramRun run(const std::string& arguments) const { return shell("fld " + arguments); }

    // The first result; of none null.
    json result(const std::string& arguments, int status = 0)
    {
        const ProgramRun ended = run(arguments + " --json");
        EXPECT_EQ(ended.status, status) << arguments << "\n" << ended.err;
        const json document = json::parse(ended.out, nullptr, false);
        EXPECT_FALSE(document.is_discarded()) << ended.out;
        if (document.is_discarded()) return nullptr;
        documents_.push_back(document);
        EXPECT_EQ(document["errors"].empty(), status == 0 || arguments.starts_with("diff"));
        return document["results"].empty() ? json(nullptr) : document["results"][0];
    }

    void write(const std::string& name, const FldFile& file, const Format& format = {}) const
    {
        (void)directory_.write(name, build(file, format));
    }
    void write_series() const
    {
        const auto found = std::ranges::find(datasets(), "results_series", &Dataset::name);
        (void)write_files(directory_, found->files);
    }

    TemporaryDirectory directory_;
    json documents_ = json::array();
};

static FldFile with_pressures(const std::vector<double>& values)
{
    return replaced(tetrahedron_file(), scalar("P", "Pressure", values));
}

// ---- what files hold ----

// The nodes are (0, 0, 0), (1, 0, 0), (0, 1, 0) and (1, 1, 0).
TEST_F(Program, describes_files)
{
    write("a.fld",
          added(with_pressures({3, 7.5, -0.1, INFINITY}), scalar("T", "", {NAN, 2, 2, -INFINITY})));
    const json file = result("info a.fld"), grid = file["grids"][0];
    EXPECT_EQ(file["time"], 0.5);
    EXPECT_EQ(grid["bounding_box"]["x"], (json{{"minimum", 0}, {"maximum", 1}}));
    EXPECT_EQ(grid["bounding_box"]["z"], (json{{"minimum", 0}, {"maximum", 0}}));
    EXPECT_EQ(grid["cells"]["tetrahedra"], 1);
    EXPECT_EQ(grid["boundary_regions"][0]["name"], "wall");
    EXPECT_EQ(grid["boundary_regions"][0]["wall"], true);
    EXPECT_EQ(grid["boundary_regions"][1]["wall"], false);
    const json &p = grid["variables"][0], &t = grid["variables"][1];
    EXPECT_EQ(p["name"], "Pressure (P)");
    EXPECT_EQ(p["key"], "P");
    EXPECT_EQ(p["minimum"].get<float>(), -0.1F);
    EXPECT_EQ(p["minimum_at"], (json{{"node", 3}, {"position", {0, 1, 0}}}));
    EXPECT_EQ(p["maximum_at"], (json{{"node", 2}, {"position", {1, 0, 0}}}));
    EXPECT_NEAR(p["mean"], 10.4 / 3, 1e-7);
    EXPECT_EQ(p["undefined"], 1);
    EXPECT_EQ(t["nan"], 1);
    EXPECT_EQ(t["infinite"], 1);
    EXPECT_EQ(t["mean"], 2);
    // What was chosen alone.
    const json chosen = result("info a.fld --grid 1 --variable T")["grids"][0];
    EXPECT_EQ(chosen["variables"].size(), 1U);
    EXPECT_FALSE(chosen.contains("cells"));
    for (const char* none : {"--grid 2", "--grid 0", "--variable Q"}) {
        EXPECT_EQ(run(std::string("info a.fld ") + none).status, 1) << none;
    }
    const json listed = result("list a.fld");
    EXPECT_EQ(listed["nodes"], 4);
    EXPECT_EQ(listed["variables"][1]["key"], "T");
    // Records take 16, 12 and 40 bytes, 20 a descriptor or an end, 12 an integer.
    const json sections = result("sections a.fld")["sections"];
    EXPECT_EQ(sections[1]["name"], "Bias");
    EXPECT_EQ(sections[1]["byte"], 16 + 12 + 92);
    EXPECT_EQ(sections[1]["bytes"], 92);
    const json& nodes_section = sections[4]; // after three keywords and the coordinate system
    EXPECT_EQ(nodes_section["name"], "LS_Nodes");
    EXPECT_EQ(nodes_section["precision"], 4);
}

TEST_F(Program, names_the_grid_file_of_results)
{
    write_series();
    EXPECT_EQ(result("info flow_0003.fld")["grid_file"], "flow_0001.fld");
    EXPECT_EQ(result("list flow_0003.fld")["grid_file"], "flow_0001.fld");
    EXPECT_NE(run("info flow_0003.fld").out.find("grid file  flow_0001.fld"), std::string::npos);
}

TEST_F(Program, folds_tables_to_the_terminal)
{
    write("a.fld", tetrahedron_file());
    const ProgramRun shown = shell("script -qec 'stty cols 60; " + program +
                                   " info a.fld 2>/dev/null' /dev/null </dev/null");
    EXPECT_NE(shown.out.find("Pressure (P)"), std::string::npos);
    std::istringstream lines(shown.out);
    for (std::string line; std::getline(lines, line);) EXPECT_LE(line.size(), 61U) << line;
}

// A name that is no UTF-8, also of a variable.
TEST_F(Program, makes_every_name_readable)
{
    write("\xFFx.fld", replaced(tetrahedron_file(), scalar("P", "\xC0", {1, 2, 3, 4})));
    const json file = result("info \xFFx.fld");
    EXPECT_EQ(file["file"], "?x.fld");
    EXPECT_EQ(file["file_bytes"], "ff782e666c64");
}

// ---- what is wrong ----

// Each reason once, whoever tells it, and nothing else.
TEST_F(Program, names_the_true_cause)
{
    const FldFile results{{{coordinate_system(0), scalar("T", "", {1, 2, 3, 4})}}};
    const FldFile bad = replaced(tetrahedron_file(), coordinate_system(9));
    write("a.fld", tetrahedron_file());
    write("bad.fld", bad);
    write("s1.fld", bad);
    write("s2.fld", results);
    write("alone3.fld", results);
    write("lost2.fld", results);
    (void)directory_.write("lost1.fld", build(tetrahedron_file()).substr(0, 700));
    (void)directory_.write("text.fld", "no records");
    (void)directory_.write("empty.fld", "");
    (void)directory_.write("cut.fld", build(tetrahedron_file()).substr(0, 900));
    const std::string long_name = std::string(200, 'd') + "/" + std::string(60, 'n');
    std::filesystem::create_directory(directory_.path(std::string(200, 'd')));
    write(long_name, tetrahedron_file());
    const std::pair<std::string, std::string> cases[] = {
        {"missing.fld", "missing.fld: cannot be opened: there is no such file"},
        {".", ".: cannot be opened: is a directory"},
        {"empty.fld", "empty.fld: cannot be opened: is empty"},
        {"/dev/null", "/dev/null: cannot be opened: is not a regular file"},
        {"text.fld", "text.fld: cannot be opened: it is no FLD file: its start is no sequence"},
        {"lost2.fld", "lost1.fld is damaged: the file ends inside record "},
        {long_name, "the name has more than the 255 bytes that the reader takes"},
        {"bad.fld", "bad.fld: cannot be opened: invalid coordinate system: 9"},
        {"s2.fld", "s1.fld: cannot be opened: invalid coordinate system: 9"},
        {"alone3.fld",
         "alone3.fld: cannot be opened: no earlier file of its series holds its grid"},
        {"cut.fld", "cut.fld: cannot be opened: the file ends before record "},
    };
    for (const auto& [file, reason] : cases) {
        const ProgramRun info = run("info " + file);
        EXPECT_EQ(info.status, 1) << file;
        EXPECT_EQ(occurrences(info.err, reason), 1U) << info.err;
        EXPECT_EQ(occurrences(info.err, "\n"), 1U) << info.err;
        const bool is_whole = file == "alone3.fld" || file == "s2.fld" || file == "lost2.fld";
        EXPECT_EQ(run("check " + file).status, is_whole ? 0 : 1) << file;
    }
    const ProgramRun warned = run("info a.fld missing.fld --json");
    EXPECT_EQ(warned.status, 1);
    EXPECT_EQ(json::parse(warned.out)["errors"][0]["what"],
              "cannot be opened: there is no such file");
    (void)result("info a.fld cut.fld text.fld s2.fld", 1);
    (void)result("check cut.fld a.fld text.fld s2.fld", 1);
    EXPECT_EQ(result("list cut.fld", 1), nullptr);
    (void)result("sections cut.fld text.fld", 1);
}

// What the reader warns of comes on standard error, the same line once.
TEST_F(Program, keeps_standard_output_pure)
{
    const Region unnamed{"", {{TRIANGLE_FACE, 0, {0, 1, 2}}}};
    write("a.fld", replaced(tetrahedron_file(), surfaces({unnamed, unnamed})));
    (void)result("info a.fld");
    const ProgramRun info = run("info a.fld --json");
    EXPECT_EQ(occurrences(info.err, "skipping surface region"), 1U) << info.err;
    std::filesystem::copy_file(library, directory_.path("own.so"));
    const ProgramRun loaded = run("info a.fld --json --library own.so");
    EXPECT_EQ(loaded.status, 0) << loaded.err;
    EXPECT_EQ(loaded.out, info.out);
    EXPECT_EQ(loaded.err, info.err);
}

// The third item of a section is cut: the records before it take 16 and 12 bytes, 40 for a name, 20
// for a descriptor or an end and 12 for an integer.
TEST_F(Program, finds_the_place_where_a_file_was_cut)
{
    FldBuilder file;
    file.record("CRDL-FLD").ints({4}).name("Bias").int_item(1).end().name("HeaderDataEnd");
    file.name("OverlapStart_0").name("LS_Nodes").int_item(0).int_item(4).real_array({0, 1, 2, 3});
    (void)directory_.write("cut.fld", file.bytes().substr(0, 340));
    const json check = result("check cut.fld", 1);
    const json damage = {{"what", "the file ends inside record 15, of which 16 bytes are there"},
                         {"record", 15},
                         {"byte", 324},
                         {"grid", 1},
                         {"section", "LS_Nodes"},
                         {"item", 3},
                         {"data_record", 1}};
    EXPECT_EQ(check["damage"], damage);
    EXPECT_EQ(check["intact_bytes"], 200);
    EXPECT_EQ(check["whole"], false);
    EXPECT_EQ(check["salvage"], nullptr);
}

// ---- what can be saved ----

TEST_F(Program, salvages_what_can_be_read)
{
    const FldFile good = tetrahedron_file();
    FldFile refused = good;
    refused.grids.push_back(replaced(good, materials({1, 1})).grids[0]);
    FldFile lacking = good;
    lacking.grids.push_back({coordinate_system(0), nodes(cube_corners(4))});
    for (const bool big_endian : {false, true}) {
        const Format format{.big_endian = big_endian};
        const std::string expected = build(good, format);
        const std::string cut = build(added(good, scalar("T", "", {1, 2, 3, 4})), format);
        const std::pair<std::string, std::string> cases[] = {
            {"cut", cut.substr(0, cut.size() - 90)}, // inside the last section
            {"refused", build(refused, format)},
            {"lacking", build(lacking, format).substr(0, build(lacking, format).size() - 40)},
            {"whole", expected},
        };
        for (const auto& [name, bytes] : cases) {
            SCOPED_TRACE(name);
            (void)directory_.write(name, bytes);
            EXPECT_EQ(result("salvage " + name + " out.fld")["grids"], 1);
            EXPECT_EQ(file_content(directory_.path("out.fld")), expected);
            EXPECT_EQ(run("salvage " + name + " out.fld").status, 1) << "there already";
            EXPECT_EQ(file_content(directory_.path("out.fld")), expected);
            std::filesystem::remove(directory_.path("out.fld"));
        }
        // Nothing is written when nothing can be read.
        (void)directory_.write("nothing", expected.substr(0, 800));
        EXPECT_EQ(run("salvage nothing out.fld").status, 1);
        EXPECT_EQ(run("salvage nothing .").status, 1);
        EXPECT_FALSE(std::filesystem::exists(directory_.path("out.fld")));
    }
    // A reader's index of results takes 2,048 sections: the coordinate system, P and 2,046 more.
    FldFile many = good;
    for (int i = 0; i < 3000; ++i) {
        many.grids[0].push_back(
            scalar(std::string("Q").append(std::to_string(i)), "", {1, 2, 3, 4}));
    }
    write("many", many);
    EXPECT_EQ(result("salvage many out.fld")["grids"], 1);
    EXPECT_EQ(occurrences(file_content(directory_.path("out.fld")), "LS_Scalar:Q"), 2046U);
    std::filesystem::remove(directory_.path("out.fld"));
    (void)directory_.write("cut_1.fld", build(good).substr(0, build(good).size() - 20));
    EXPECT_NE(run("salvage cut_1.fld " + std::string(300, 'n') + " --json").out.find("255 bytes"),
              std::string::npos);
    EXPECT_NE(run("salvage cut_1.fld none/out.fld").err.find("none/out.fld: cannot be written"),
              std::string::npos);
    EXPECT_NE(run("salvage cut_1.fld cut_2.fld").err.find("a step of the series"),
              std::string::npos);
    size_t files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(directory_.path(""))) {
        files += entry.path().filename().string().find("salvage") != std::string::npos;
    }
    EXPECT_EQ(files, 0U) << "a draft is left";
}

// ---- what differs ----

TEST_F(Program, compares_files)
{
    const Sections marked = {dimension(3), bias(), cycle(12, 0.5), unused(1e30)};
    const FldFile a = with_pressures({1, -2, 0.5, 1e30});
    write("a.fld", a);
    write("b.fld", with_pressures({1, -2.5, 0.5, 1e30}));
    write("c.fld", added(a, scalar("T", "", {1, 2, 3, 4})));
    write("moved.fld", replaced(a, nodes({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 1, 2}})));
    write("turned.fld", replaced(a, elements({{TETRAHEDRON, {0, 2, 1, 3}}})));
    write("large.fld", replaced(a, nodes(cube_corners(5))));
    write("u.fld", with_keywords(a, marked));
    write("later.fld", with_keywords(a, {dimension(3), bias(), cycle(12, 0.75)}));
    write("v.fld", added(a, scalar("X", "", {0, 0, 0, 0})));
    write("w.fld", added(a, vector("X", "", cube_corners(4))));
    write("t01.fld", a);
    write("t2.fld", a);
    write("s1.fld", a);
    write("r1.fld", a);
    write("s2.fld", a);
    const std::pair<const char*, int> cases[] = {
        {"a.fld a.fld", 0},
        {"a.fld b.fld", 1},
        {"a.fld b.fld --absolute 0.5", 0},
        {"a.fld b.fld --absolute 0.4", 1},
        {"a.fld b.fld --relative 0.21", 0},
        {"a.fld b.fld --relative 0.19", 1},
        {"a.fld b.fld --variable P=0.5", 0},
        {"a.fld b.fld --variable 'Pressure (P)=0,0.21'", 0},
        {"a.fld b.fld --absolute 1 --variable P=0", 1},
        {"a.fld c.fld", 1},
        {"a.fld c.fld --variable P", 0},
        {"a.fld moved.fld", 1},
        {"a.fld turned.fld", 1},
        {"a.fld large.fld", 1},
        {"u.fld u.fld", 0},
        {"a.fld u.fld", 1}, // a value that only one defines
        {"s1.fld r1.fld --series", 1},
        {"s1.fld t1.fld --series", 0},
        {"a.fld missing.fld", 3},
        {"a.fld", 2},
        {"a.fld b.fld --absolute -1", 2},
        {"a.fld b.fld --variable P=x", 3},
        {"a.fld b.fld --variable Q", 3},
        {"a.fld b.fld --relative nan", 2},
        {"b.fld b.fld --variable P a.fld", 2},
        {"later.fld a.fld --absolute 9", 1},
        {"later.fld a.fld --variable time=0.25", 0},
        {"moved.fld a.fld --absolute 9", 1},
        {"moved.fld a.fld --variable coordinates=2", 0},
        {"v.fld w.fld", 1}, // a scalar and a vector of one name
        {"s1.fld s1.fld --series", 3},
        {"s1.fld none5.fld --series", 3},
        {"a.fld a.fld >/dev/full", 3},
    };
    for (const auto& [arguments, status] : cases) {
        const ProgramRun ended = run(std::string("diff ") + arguments);
        EXPECT_EQ(ended.status, status) << arguments << "\n" << ended.out << ended.err;
    }
    const json values = result("diff a.fld b.fld", 1)["grids"][0]["variables"][0];
    EXPECT_EQ(values["different"], 1);
    EXPECT_EQ(values["largest_absolute"]["size"], 0.5);
    EXPECT_EQ(values["largest_absolute"]["node"], 2);
    EXPECT_EQ(values["largest_absolute"]["position"], (json{1, 0, 0}));
    EXPECT_EQ(values["largest_relative"]["size"], 0.2);
    EXPECT_EQ(values["root_mean_square"], 0.25); // of 0.5 among four values
    EXPECT_EQ(result("diff a.fld u.fld", 1)["grids"][0]["variables"][0]["only_one"], 1);
    EXPECT_EQ(result("diff a.fld turned.fld", 1)["grids"][0]["different_cells"], 1);
    EXPECT_EQ(result("diff c.fld a.fld", 1)["variables"]["only_a"], (json{"T"}));
    EXPECT_EQ(result("diff s1.fld r1.fld --series", 1)["equal"], true); // of the first step
}

// ---- series ----

TEST_F(Program, lists_series)
{
    write_series();
    write("flow_0005.fld", tetrahedron_file());
    write("other.1", tetrahedron_file());
    const json series = result("series flow_*.fld");
    ASSERT_EQ(series["files"].size(), 4U);
    EXPECT_EQ(series["files"][0]["file"], "flow_0001.fld");
    EXPECT_EQ(series["files"][0]["has_grid"], true);
    EXPECT_EQ(series["files"][2]["time"], 0.75);
    EXPECT_EQ(series["files"][2]["has_grid"], false);
    EXPECT_EQ(series["missing"].size(), 1U);
    const ProgramRun both = shell("fld series * <&-");
    EXPECT_EQ(occurrences(both.out, "series of "), 2U) << both.out;
    EXPECT_EQ(both.status, 1); // what the shell writes there is no FLD file
    EXPECT_NE(both.out.find("4 files"), std::string::npos);
    (void)directory_.write("flow_0004.fld", "no records");
    const ProgramRun failed = run("series flow_0001.fld --json");
    EXPECT_EQ(failed.status, 1);
    EXPECT_EQ(json::parse(failed.out)["errors"][0]["file"], "flow_0004.fld");
}

// A step that is still being written is waited for; the user ends it with Ctrl-C.
TEST_F(Program, follows_a_running_series)
{
    const std::string bytes = build(tetrahedron_file());
    write("s1.fld", tetrahedron_file());
    (void)directory_.write("start", bytes.substr(0, 900));
    (void)directory_.write("rest", bytes.substr(900));
    const ProgramRun followed = shell(
        program +
        " series --follow s1.fld >steps & "
        "wait_for() { for i in $(seq 300); do grep -q \"$1\" steps && return; sleep 0.1; done; }; "
        "wait_for s1.fld; cp start s2.fld; sleep 0.5; cat steps; cat rest >>s2.fld; "
        "wait_for s2.fld; echo; cat steps; kill -INT $!; wait $!");
    EXPECT_EQ(followed.status, 0) << followed.err;
    EXPECT_EQ(followed.out, "s1.fld  time 0.5  grid yes\n\ns1.fld  time 0.5  grid yes\n"
                            "s2.fld  time 0.5  grid yes\n");
}

// ---- usage ----

TEST_F(Program, helps_with_wrong_usage)
{
    write("a.fld", tetrahedron_file());
    write("-dash.fld", tetrahedron_file());
    struct Case {
        const char* arguments;
        int status;
        const char* says;
    };
    const Case cases[] = {
        {"info a.fld", 0, ""},
        {"--help", 0, "Exit status"},
        {"help", 0, "Examples"},
        {"help diff", 0, "--absolute"},
        {"--version", 0, "fld 1.0.0\n"},
        {"info ./-dash.fld", 0, ""},
        {"info", 2, "see fld help info"},
        {"", 2, "see fld help"},
        {"infp a.fld", 2, "unknown command \"infp\"; did you mean \"info\"?"},
        {"help serie", 2, "did you mean \"series\"?"},
        {"info a.fld --no-such-option", 2, "see fld help info"},
        {"info -dash.fld", 2, "./-dash.fld"},
        {"info a.fld --reader none", 2, "scSTREAM [Direct Reader]"},
        {"series --follow a.fld a.fld", 2, "one file only"},
        {"series --follow a.fld", 1, "the name has no number"},
        {"info a.fld --library a.fld", 1, "cannot load the reader"},
        {"info a.fld >&-", 1, "standard output"},
        {"info a.fld >/dev/full", 1, "standard output"},
    };
    for (const auto& [arguments, status, says] : cases) {
        const ProgramRun ended = run(arguments);
        EXPECT_EQ(ended.status, status) << arguments << "\n" << ended.err;
        EXPECT_EQ(ended.out.empty(), status != 0) << arguments;
        EXPECT_EQ(ended.err.empty(), status == 0) << arguments << "\n" << ended.err;
        EXPECT_NE((ended.out + ended.err).find(says), std::string::npos) << ended.err;
    }
}

TEST_F(Program, prints_what_its_document_shows)
{
    const std::string text = file_content(FLD_DOCUMENTS "/json.md");
    for (size_t at = 0; (at = text.find("```json\n", at)) != std::string::npos;) {
        at += 8;
        documents_.push_back(json::parse(text.substr(at, text.find("```", at) - at)));
    }
    EXPECT_EQ(documents_.size(), 7U);
}

} // namespace fld_test
