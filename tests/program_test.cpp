// The program "fld": what it prints where, and how it ends.
#include "datasets.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace fld_test
{

struct ProgramRun {
    int status;
    std::string out, err;
};

// Runs the program in a directory of its own with the table's datasets in it.
class Program : public testing::Test
{
protected:
    ProgramRun run(const std::string& arguments) const
    {
        const std::string out = directory_.path("out"), err = directory_.path("err");
        const std::string command = "cd " + directory_.path("") + " && " FLD_PROGRAM_PATH " " +
                                    arguments + " >" + out + " 2>" + err;
        const int status = system(command.c_str());
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, file_content(out), file_content(err)};
    }
    void write(const std::string& dataset_name) const
    {
        const auto found = std::ranges::find(datasets(), dataset_name, &Dataset::name);
        (void)write_files(directory_, found->files);
    }

    TemporaryDirectory directory_;
};

TEST_F(Program, describes_a_file_as_json)
{
    write("tetrahedron");
    const ProgramRun info = run("info a.fld --json");
    EXPECT_EQ(info.status, 0) << info.err;
    const auto files = nlohmann::json::parse(info.out);
    ASSERT_EQ(files.size(), 1U);
    const auto& file = files[0];
    EXPECT_EQ(file["file"], "a.fld");
    EXPECT_EQ(file["reader"], "scSTREAM [Direct Reader]");
    EXPECT_EQ(file["time"], 0.5);
    EXPECT_EQ(file["results_only"], false);
    ASSERT_EQ(file["grids"].size(), 1U);
    const auto& grid = file["grids"][0];
    EXPECT_EQ(grid["number"], 1);
    EXPECT_EQ(grid["bounding_box"]["x"], (nlohmann::json{{"minimum", 0}, {"maximum", 1}}));
    EXPECT_EQ(grid["bounding_box"]["z"], (nlohmann::json{{"minimum", 0}, {"maximum", 0}}));
    EXPECT_EQ(grid["cells"]["tetrahedra"], 1);
    EXPECT_EQ(grid["cells"]["hexahedra"], 0);
    EXPECT_EQ(grid["boundary_regions"][0]["name"], "wall");
    EXPECT_EQ(grid["boundary_regions"][1]["name"], "inlet");
    EXPECT_EQ(grid["variables"][0]["name"], "Pressure (P)");
    EXPECT_EQ(grid["variables"][0]["minimum"], -2);
    EXPECT_EQ(grid["variables"][0]["undefined"], 0);
}

// The library's messages and the program's own go to standard error: what is piped stays pure.
TEST_F(Program, keeps_standard_output_pure)
{
    write("tetrahedron");
    write("passed_over");
    (void)directory_.write("bad.fld", build(replaced(tetrahedron_file(), coordinate_system(9))));
    const ProgramRun warned = run("info a.fld --json");
    EXPECT_EQ(warned.status, 0);
    EXPECT_TRUE(nlohmann::json::accept(warned.out));
    EXPECT_NE(warned.err.find("Data reader warning: skipping surface region"), std::string::npos);
    const ProgramRun failed = run("info bad.fld a.fld --json");
    EXPECT_EQ(failed.status, 1);
    const auto files = nlohmann::json::parse(failed.out);
    ASSERT_EQ(files.size(), 2U);
    EXPECT_TRUE(files[0].contains("errors"));
    EXPECT_FALSE(files[1].contains("errors"));
    EXPECT_NE(failed.err.find("FLD file error: invalid coordinate system: 9\n"), std::string::npos);
}

TEST_F(Program, lists_a_series)
{
    write("results_series");
    (void)directory_.write("flow_0005.fld", build(tetrahedron_file()));
    const ProgramRun series = run("series flow_0003.fld --json");
    EXPECT_EQ(series.status, 0) << series.err;
    const auto result = nlohmann::json::parse(series.out);
    ASSERT_EQ(result["files"].size(), 4U);
    EXPECT_EQ(result["files"][0]["file"], "flow_0001.fld");
    EXPECT_EQ(result["files"][0]["has_grid"], true);
    EXPECT_EQ(result["files"][2]["time"], 0.75);
    EXPECT_EQ(result["files"][2]["has_grid"], false);
    EXPECT_EQ(result["missing"].size(), 1U);
}

// The third item of a section is cut: the records before it take 16 and 12 bytes, 40 for a name, 20
// for a descriptor or an end and 12 for an integer.
TEST_F(Program, finds_the_place_where_a_file_was_cut)
{
    FldBuilder file;
    file.record("CRDL-FLD").ints({4}).name("Bias").int_item(1).end().name("HeaderDataEnd");
    file.name("OverlapStart_0").name("LS_Nodes").int_item(0).int_item(4).real_array({0, 1, 2, 3});
    (void)directory_.write("cut.fld", file.bytes().substr(0, 340));
    const ProgramRun check = run("check cut.fld --json");
    EXPECT_EQ(check.status, 1);
    const auto result = nlohmann::json::parse(check.out)[0];
    const nlohmann::json damage = {
        {"what", "the file ends inside record 15, of which 16 bytes are there"},
        {"record", 15},
        {"byte", 324},
        {"grid", 1},
        {"section", "LS_Nodes"},
        {"item", 3},
        {"data_record", 1}};
    EXPECT_EQ(result["damage"], damage);
    EXPECT_EQ(result["intact_bytes"], 200);
    EXPECT_EQ(result["whole"], false);
}

// Results without their grid file are whole, a file whose contents the reader refuses is not.
TEST_F(Program, tells_whole_files_from_others)
{
    write("tetrahedron");
    const auto series = std::ranges::find(datasets(), "results_series", &Dataset::name);
    (void)directory_.write("alone.fld", build(series->files.back().file));
    (void)directory_.write("bad.fld", build(replaced(tetrahedron_file(), coordinate_system(9))));
    (void)directory_.write("text.fld", "no records");
    EXPECT_EQ(run("check a.fld alone.fld").status, 0);
    for (const char* file : {"bad.fld", "text.fld", "missing.fld", "."}) {
        EXPECT_EQ(run(std::string("check a.fld ") + file).status, 1) << file;
    }
}

TEST_F(Program, ends_with_a_status_for_each_kind_of_failure)
{
    write("tetrahedron");
    const std::pair<const char*, int> cases[] = {
        {"info a.fld", 0},
        {"--help", 0},
        {"--version", 0},
        {"info missing.fld", 1},
        {"series missing1.fld", 1},
        {"series a.fld", 1},
        {"info", 2},
        {"", 2},
        {"info a.fld --no-such-option", 2},
        {"info a.fld --reader none", 2},
    };
    for (const auto& [arguments, status] : cases) {
        const ProgramRun ended = run(arguments);
        EXPECT_EQ(ended.status, status) << arguments << "\n" << ended.err;
        EXPECT_EQ(ended.out.empty(), status != 0) << arguments;
        EXPECT_EQ(ended.err.empty(), status == 0) << arguments << "\n" << ended.err;
    }
}

} // namespace fld_test
