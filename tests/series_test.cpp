// Which file of its series a results file is paired with.
#include "datasets.h"
#include "test_system.h"
#include "ui/util/utf8wrap.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <set>
#include <sstream>

namespace fld_test
{

static const FldFile results{{{coordinate_system(0), scalar("T", "", {1, 2, 3, 4})}}};

struct Series {
    const char* name;
    std::string opened;
    std::vector<std::string> grids;  // files with a grid
    std::vector<std::string> others; // files without one
    std::string paired;              // the grid file found; empty: none
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
    {"symbols_in_the_extension", "f2.[[.[.]a*-_]*", {"f1.a[a", "f1.b"}, {}, "f1.a[a"},
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
    if (!can_be_named(series.opened) || !std::ranges::all_of(series.grids, can_be_named)) {
        GTEST_SKIP() << "no file can have these names";
    }
    Dataset dataset{series.name, {}, ""};
    for (const std::string& name : series.grids) {
        dataset.files.push_back({name, replaced(tetrahedron_file(), surfaces({{name, {}}}))});
    }
    for (const std::string& name : series.others) dataset.files.push_back({name, results});
    dataset.files.push_back({series.opened, results});
    EXPECT_EQ(pick(run(dataset.files), {"out", "err", "boundary"}),
              series.paired.empty()
                  ? "out Data reader error: unable to find grid file for results file: " +
                        series.opened + "\n"
                  : "boundary " + series.paired + "\n");
}

// ---- names that mean something as expressions ----

static std::string times(int count, const std::string& text)
{
    std::string all;
    while (count-- > 0) all += text;
    return all;
}

// Files that only look like one with a grid.
TEST(SeriesGrids, have_nodes_and_elements)
{
    const Section other = surfaces({{"other", {}}}), points = nodes(cube_corners(4));
    std::string behind = build({{{other, points}}});
    behind.append(FldBuilder().name("LS_Elements").end().bytes());
    const std::string files[] = {behind, build({{{other, points, layout("LS_Elements2", {})}}}),
                                 build({{{other, elements({})}}})};
    for (const std::string& bytes : files) {
        EXPECT_EQ(
            pick(run({{"f1.fld", tetrahedron_file()}, {"f8.fld", {}, bytes}, {"f9.fld", results}}),
                 {"boundary"}),
            "boundary wall\nboundary inlet\n");
    }
}

// A file is paired only when its name matches itself.
static std::string or_itself(const std::string& expression)
{
    return std::string("(").append(expression).append("|[(][ -\xFF]*)");
}

// The beginning of the opened name, and another that it matches.
TEST(SeriesNames, keep_their_meaning_as_expressions)
{
    const std::pair<std::string, std::string> cases[] = {
        {or_itself("a+b+c+d+e+f+g+h+i+j+k+l+"), "abcdefghijkl"},
        {or_itself("a*b*c*d*e*f*g*h*i*j*k*l*"), "aaaddl"},
        {or_itself("a?b?c?d?e?f?g?h?i?j?k?l?"), "bcl"},
        {or_itself(times(12, "[^#]*") + "f"), "eeef"},
        {or_itself("f{2,3}x{9}"), "ffxxxxxxxxx"},
        {or_itself("f{2}{1,}"), "ffffff"},
        {or_itself("(e{,2}f{0}|g)"), "e"},
        {or_itself("((a*)?)*b++"), "aabb"},
        {or_itself("(a|b)*a(a|b)(a|b)"), "babbaab"},
        {or_itself(times(80, "(") + times(1, "f") + times(80, ")")), "f"},
        {or_itself("(|)()f"), "f"},
        {or_itself("[]a-]+"), "a-]"},
        {or_itself("[^]#-]"), "f"},
        {or_itself("[[=-=]+-0[=a=]x]+"), "-0ax"},
        {or_itself("\xC3\xA9[\x80-\xFF]*"), "\xC3\xA9\xC3\xB6"},
        {or_itself("^f"), "f"},
        {"f)", "f)"},
        // What stands behind the '|' can be anywhere.
        {"e|f", "gf"},
        {"e|[^0-9#]f", "eeggf"},
    };
    for (const auto& [prefix, matched] : cases) {
        const FldFile other = replaced(tetrahedron_file(), surfaces({{"other", {}}}));
        EXPECT_EQ(pick(run({{matched + "1.fld", tetrahedron_file()},
                            {"#2.fld", other},
                            {prefix + "3.fld", results}}),
                       {"out", "err", "boundary"}),
                  "boundary wall\nboundary inlet\n")
            << prefix;
    }
}

// What the platform does not compile, and what would take it minutes or gigabytes, to compile or
// to match.
TEST(SeriesNames, that_are_refused_as_expressions)
{
    std::vector<std::string> prefixes = {
        times(1, "f") + times(30, "+"),
        times(1, "a") + times(190, "*"),
        times(50, "a+*?"),
        times(25, "(") + times(1, "a") + times(25, "*)?"),
        times(25, "((a*)?)*"),
        times(70, "()*"),
        times(30, "(^|a$)*"),
        times(9, "(a*|b*)*"),
        times(4, "(") + times(1, "a") + times(4, "{9})"),
        times(200, "|"),
        times(50, "(|)"),
        times(190, "^"),
        times(190, "$"),
        times(1, "(a|b)*a") + times(40, "(a|b)"),
    };
    std::istringstream more("f{32}{32} f{600} f{0,400} f{9999999999} [^~]*a[^~]{20} [^~]*^[^~]{20} "
                            "[^~]*$[^~]{20} ([^~]?){40}[ab]{10} e|[ab]*a[ab]{12} e)|f "
                            "f( * (+) e|?f f{ f{} f{3,2} f^* f(^)* [f- [f-e] [a-c-e] [[=f] "
                            "[[=ff=]] [[=a=]-f] [a-[=f=]]");
    for (std::string prefix; more >> prefix;) prefixes.push_back(prefix);
    std::vector<std::pair<std::string, std::string>> cases; // what stands around the number
    for (const std::string& prefix : prefixes) cases.emplace_back(prefix, ".fld");
    for (const char* extension :
         {".[", ".[^", ".[]", ".[a-", ".[[=", ".[[.a", ".(", ".{2", ".b.*a.{20}"}) {
        cases.emplace_back("f", extension);
    }
    for (const auto& [prefix, extension] : cases) {
        const std::string name = prefix + "2" + extension;
        if (!can_be_named(name)) continue;
        EXPECT_EQ(pick(run({{"f1.fld", tetrahedron_file()}, {name, results}}), {"out", "err"}),
                  "out Data reader error: unable to find grid file for results file: " + name +
                      "\nerr \nerr ***ERROR: regcmp error \"^" + prefix + "[0-9][0-9]*\\" +
                      extension + "$\"\n");
    }
}

// Directories are no files, whatever their names; links to files are. The name may come without a
// directory, and from the current one.
TEST(SeriesDirectory, entries_and_relative_names)
{
    const TemporaryDirectory directory;
    std::filesystem::create_directory(directory.path("f8.fld"));
    std::filesystem::create_symlink("nowhere", directory.path("f7.fld"));
    (void)directory.write("f9.fld", build(results));
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(directory.path(""));
    TestHost host;
    host.start();
    host.open("f9.fld");
    EXPECT_EQ(pick(host.take_trace(), {"flag"}), "flag 1\n"); // there is no grid yet
    std::filesystem::create_symlink(directory.write("grid", build(tetrahedron_file())),
                                    directory.path("f5.fld"));
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

} // namespace fld_test
