// Which file of its series a results file is paired with.
#include "datasets.h"

#include "ui/util/utf8wrap.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <set>
#include <sys/stat.h>

namespace fld_test
{

struct Series {
    const char* name;
    std::string opened;
    std::vector<std::string> grids;  // files with a grid
    std::vector<std::string> others; // files without one
    std::string paired;              // the grid file found; empty: none
    std::string errors = {};         // what then stands on standard error
};

static const Series all_series[] = {
    {"nearest_earlier", "f10.fld", {"f1.fld", "f7.fld", "f12.fld"}, {"f8.fld"}, "f7.fld"},
    {"by_number_not_by_text", "f10.fld", {"f9.fld", "f1.fld"}, {}, "f9.fld"},
    {"never_later", "f10.fld", {"f11.fld"}, {"f9.fld"}, ""},
    {"leading_zeros", "f0010.fld", {"f3.fld", "f00009.fld"}, {}, "f00009.fld"},
    {"numbered_extension",
     "case.0005",
     {"case.0001", "case.0004.bak", "case.0004x"},
     {},
     "case.0001"},
    {"empty_prefix", "0007.fld", {"0003.fld", "a0006.fld"}, {}, "0003.fld"},
    {"other_names",
     "flow0012.fld",
     {"flow0003.fld", "flow.fld", "flowx1.fld", "Flow0010.fld", "flow0011.FLD", "xflow0011.fld"},
     {},
     "flow0003.fld"},
    {"no_number", "flow.fld", {"flow1.fld"}, {}, ""},
    {"number_before_two_extensions", "case.0001.fld", {"case.0000.fld"}, {}, ""},
    {"name_that_begins_with_a_dot", ".h2", {".h1"}, {}, ".h1"},
    {"two_dots", "a..2", {"a..1"}, {}, ""},
    {"no_extension", "flow12", {"flow3", "flow4.fld"}, {}, "flow3"},
    // The dot of a second extension stands for any character.
    {"extension_is_a_pattern", "f2.a.b", {"f1.axb"}, {}, "f1.axb"},
    // So it does not match itself.
    {"prefix_is_a_pattern", "f[xy]2.fld", {"fx1.fld", "f[xy]1.fld"}, {}, ""},
    // It does not match itself, but in other letters: the case of the opened name is ignored.
    {"prefix_is_another_name", "[^AZ]*1", {"[^az]*1"}, {}, "[^az]*1"},
    {"unbalanced_parenthesis",
     "f(2.fld",
     {"f(1.fld"},
     {},
     "",
     "err \nerr ***ERROR: regcmp error \"^f([0-9][0-9]*\\.fld$\"\n"},
    {"nine_digits", "f100000000.fld", {"f99999999.fld", "f9.fld"}, {}, "f99999999.fld"},
    // 2 to the power of 32, and more than 64 bits hold.
    {"ten_digits", "f4294967296.fld", {"f999999999.fld", "f9.fld"}, {}, "f999999999.fld"},
    {"many_digits", "f100000000000000000000.fld", {"f9.fld"}, {}, "f9.fld"},
};

class SeriesFiles : public testing::TestWithParam<Series>
{
};

INSTANTIATE_TEST_SUITE_P(All, SeriesFiles, testing::ValuesIn(all_series), test_name);

// Each grid file has a boundary of its own name; the one reported tells which was paired.
TEST_P(SeriesFiles, are_paired)
{
    const Series& series = GetParam();
    const FldFile results{{{coordinate_system(0), scalar("T", "", {1, 2, 3, 4})}}};
    Dataset dataset{series.name, {}, ""};
    for (const std::string& name : series.grids) {
        dataset.files.push_back({name, replaced(tetrahedron_file(), surfaces({{name, {}}}))});
    }
    for (const std::string& name : series.others) dataset.files.push_back({name, results});
    dataset.files.push_back({series.opened, results});
    EXPECT_EQ(pick(run(dataset.files), {"out", "err", "boundary"}),
              series.paired.empty()
                  ? "out Data reader error: unable to find grid file for results file: " +
                        series.opened + "\n" + series.errors
                  : "boundary " + series.paired + "\n");
}

// A name's signs mean what they mean in an expression, unless that could take long to compile or to
// match. (The opened name seldom matches itself: most such series are empty.)
TEST(SeriesExpressions, are_refused_when_they_could_take_long)
{
    const struct {
        const char *begin, *repeated;
        int count;
        bool is_refused;
    } cases[] = {
        {"", "a+", 12, false},        {"", "a?", 12, false},    {"", "a*", 12, false},
        {"", "f{2,3}x{9}", 1, false}, {"", "(a|b)", 20, false}, {"", "((a*)?)*", 25, true},
        {"", "(^|a$)*", 30, true},    {"a", "*", 200, true},    {"(a|b)*a", "(a|b)", 40, true},
        {"f", "+", 30, true},         {"f", "{32}", 3, true},   {"", "(a?){40}", 5, true}};
    for (const auto& c : cases) {
        std::string prefix = c.begin;
        for (int i = 0; i < c.count; ++i) prefix += c.repeated;
        const FldFile results{{{coordinate_system(0), scalar("T", "", {1, 2, 3, 4})}}};
        EXPECT_EQ(pick(run({{prefix + "5.fld", results}}), {"err"}),
                  c.is_refused
                      ? "err \nerr ***ERROR: regcmp error \"^" + prefix + "[0-9][0-9]*\\.fld$\"\n"
                      : "")
            << prefix;
    }
}

// Directories are no files, whatever their names; links to files are. The name may come without a
// directory, and from the current one.
TEST(SeriesDirectory, entries_and_relative_names)
{
    const FldFile results{{{coordinate_system(0), scalar("T", "", {1, 2, 3, 4})}}};
    const TemporaryDirectory directory;
    std::filesystem::create_directory(directory.path("f8.fld"));
    std::filesystem::create_symlink("nowhere", directory.path("f7.fld"));
    std::filesystem::create_symlink(directory.write("grid", build(tetrahedron_file())),
                                    directory.path("f5.fld"));
    (void)directory.write("f9.fld", build(results));
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(directory.path(""));
    TestHost host;
    host.start();
    for (const char* name : {"f9.fld", "./f9.fld"}) {
        host.open(name);
        host.read(1);
        EXPECT_EQ(pick(host.take_trace(), {"out", "err", "flag", "nodes", "value"}),
                  "flag 0\nnodes 4\nflag 0\nvalue 1 2 3 4\nvalue inf inf inf inf\n");
    }
    std::filesystem::current_path(before);
}

// A path and the pattern of a listing hold 255 characters; entries with longer paths are left out.
TEST(SeriesDirectory, with_a_long_name)
{
    const FldFile results{{{coordinate_system(0), scalar("T", "", {1, 2, 3, 4})}}};
    const TemporaryDirectory directory;
    TestHost host;
    host.start();
    for (const size_t length : {249U, 253U, 254U}) {
        std::string path = directory.path("");
        path += std::string(200 - path.size(), 'd') + "/";
        path += std::string(length - path.size() - 1, 'e') + "/";
        std::filesystem::create_directories(path);
        for (const char* name : {"1", "0002"}) {
            const FldFile grid = replaced(tetrahedron_file(), surfaces({{name, {}}}));
            std::filesystem::rename(directory.write("a", build(grid)), path + name);
        }
        std::filesystem::rename(directory.write("a", build(results)), path + "3");
        host.hidden_prefix = path;
        host.open(path + "3");
        EXPECT_EQ(pick(host.take_trace(), {"out", "err", "boundary"}),
                  length == 249   ? "boundary 0002\n"
                  : length == 253 ? "boundary 1\n"
                                  : "out Data reader error: unable to find grid file for results "
                                    "file: 3\nerr \nerr ***ERROR: Can't open dir \"\"\n");
    }
}

TEST(SeriesDirectory, is_searched_again_with_every_open)
{
    const FldFile results{{{coordinate_system(0), scalar("T", "", {1, 2, 3, 4})}}};
    const TemporaryDirectory directory;
    TestHost host;
    host.start();
    const std::string path = directory.write("f9.fld", build(results));
    host.open(path);
    EXPECT_EQ(host.error_flag(), 1);
    (void)directory.write("f5.fld", build(tetrahedron_file()));
    host.open(path);
    EXPECT_EQ(host.error_flag(), 0);
}

// What a listing gives, and the longest pattern and directory that it takes.
TEST(Listings, give_what_a_pattern_matches)
{
    const TemporaryDirectory directory;
    for (const char* name : {"a1", "a22", "b1"}) (void)directory.write(name, "");
    const std::pair<std::string, std::set<std::string>> cases[] = {
        {directory.path("a*"), {"a1", "a22"}},
        {directory.path("?1"), {"a1", "b1"}},
        {directory.path("c*"), {}},
        {directory.path(std::string(256, '*')), {}},
        {std::string(255, '/') + directory.path("*"), {}},
    };
    for (const auto& [pattern, expected] : cases) {
        std::set<std::string> names;
        utf8wrap::Listing listing;
        utf8wrap::FoundEntry entry{};
        bool more = utf8wrap::FindFirstFileA(pattern.c_str(), &listing, &entry);
        for (; more; more = utf8wrap::FindNextFileA(&listing, &entry)) names.insert(entry.name);
        EXPECT_EQ(names, expected) << pattern;
    }
}

// Setting a file's time, here to before the epoch, is a change of the file.
TEST(Listings, tell_files_apart_by_their_status)
{
    const TemporaryDirectory directory;
    const std::string path = directory.write("a", "12345"), other = directory.write("b", "");
    std::filesystem::create_hard_link(path, directory.path("link"));
    const auto status = [](const std::string& of) {
        utf8wrap::FileStatus found{};
        EXPECT_EQ(utf8wrap::_stat64(of.c_str(), &found), 0);
        return found;
    };
    const auto before = status(path);
    const timespec times[] = {{0, 0}, {-2, 5}};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
    const auto found = status(directory.path("link"));
    EXPECT_TRUE(found.is_regular);
    EXPECT_EQ(found.size, 5);
    EXPECT_EQ(found.modified, -1'999'999'995);
    EXPECT_GE(found.changed, before.changed);
    EXPECT_EQ(found.file_number, before.file_number);
    EXPECT_NE(found.file_number, status(other).file_number);
    EXPECT_EQ(found.device, status(other).device);
    EXPECT_NE(found.device, status("/proc/self/stat").device);
}

} // namespace fld_test
