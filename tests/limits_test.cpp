// What a file may cost: memory, work and positions beyond 4 GiB, whatever it declares; series as
// long as they come.
#include "faulty_host.h"

#include "ui/util/nzn_io.h"
#include "ui/util/utf8wrap.h"

#include <array>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <random>
#include <sys/resource.h>
#include <sys/stat.h>

namespace fld_test
{

constexpr int64_t MEBIBYTE = 1 << 20;

// A visit under a limit of this process.
static std::string visit_within(FaultyHost& host, const std::string& path, decltype(RLIMIT_AS) kind,
                                int64_t limit)
{
    rlimit before{};
    EXPECT_EQ(getrlimit(kind, &before), 0);
    const rlimit lowered{static_cast<rlim_t>(limit), before.rlim_max};
    EXPECT_EQ(setrlimit(kind, &lowered), 0);
    std::string trace = host.visit(path);
    EXPECT_EQ(setrlimit(kind, &before), 0);
    return trace;
}

// What this process takes; the sanitizer takes it without bounds for itself.
static int64_t address_space()
{
#ifdef __SANITIZE_ADDRESS__
    return INT64_MAX / 2;
#endif
    int64_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    return pages * 4096;
}

// ---- memory ----

// Every int32 of a descriptor and of an item of one, among them all counts, becomes a large one.
TEST(BatteryLimits, memory_whatever_the_file_declares)
{
    FaultyHost host;
    const int stride = getenv("FLD_BATTERY") ? 1 : 7;
    int cases = 0;
    for (Dataset dataset : datasets()) {
        dataset.format = {};
        const std::string path = write_files(host.directory, dataset.files, dataset.format);
        for (const NamedFile& file : dataset.files) {
            const std::string bytes = build(file.file);
            const int64_t limit = 4 * std::ssize(bytes) + MEBIBYTE;
            for (const Record& record : records_of(bytes, false)) {
                for (size_t i = 0; i < 15 && record.data.size() <= 12; ++i) {
                    const int32_t count =
                        std::array{INT32_MAX, INT32_MIN, 1 << 28, 1000000, 70000}[i % 5];
                    if (i / 5 * 4 + 4 > record.data.size() || ++cases % stride != 0) continue;
                    std::string hostile = bytes;
                    memcpy(hostile.data() + record.begin + 4 + i / 5 * 4, &count, sizeof count);
                    (void)host.directory.write(file.name, hostile);
                    const std::string trace =
                        visit_within(host, path, RLIMIT_AS, address_space() + 2 * limit);
                    // An empty name table in one dataset cannot be told from one without memory.
                    const bool asks = trace.find("not enough dynamic memory") < trace.size();
                    EXPECT_TRUE(count < 0 || !asks || dataset.name == "passed_over") << trace;
                    EXPECT_LE(host.counted().peak_bytes, limit)
                        << dataset.name << ", " << count << " after byte " << record.begin;
                }
            }
            (void)host.directory.write(file.name, bytes);
        }
    }
    std::cout << "tried counts " << cases / stride << "\n";
}

// ---- work ----

// The tetrahedron with n of something.
static FldFile many(const std::string& what, size_t n)
{
    FldFile file = tetrahedron_file();
    std::vector<Region> regions;
    std::vector<RegionType> types;
    std::vector<Face> faces;
    for (size_t i = 0; i < n; ++i) {
        regions.push_back({"r" + std::to_string(i * 7919 % n), {{TRIANGLE_FACE, 0, {3, 1, 2}}}});
        types.push_back({"Wall_Boundary", regions.back().name});
        faces.push_back({TRIANGLE_FACE, static_cast<int32_t>(n - 1 - i), {3, 1, 2}});
        if (what == "variables") file = added(file, scalar(types.back().name, "", {1, 2, 3, 4}));
    }
    if (what == "regions") file = replaced(replaced(file, region_types(types)), surfaces(regions));
    if (what == "regions in arrays") file = added(many("regions", n), surface_array(regions, 12));
    if (what != "elements" && what != "walls") return file;
    file = replaced(file, elements(std::vector<Element>(n, {TETRAHEDRON, {0, 1, 2, 3}})));
    file = replaced(file, materials(std::vector<int32_t>(n, 1)));
    return what == "walls" ? replaced(file, surfaces({{"wall", faces}})) : file;
}

TEST(BatteryLimits, work_grows_in_proportion)
{
    FaultyHost host;
    const std::pair<std::string, size_t> cases[] = {{"elements", 20000},
                                                    {"walls", 20000},
                                                    {"regions", 4000},
                                                    {"regions in arrays", 4000},
                                                    {"variables", 500}};
    host.controls = {.boundary_capacity = 8192, .variable_capacity = 1024};
    for (const auto& [what, n] : cases) {
        Faults counted[2];
        for (const size_t i : {0U, 1U}) {
            const std::string bytes = build(many(what, n << i));
            const std::string trace = host.visit(host.directory.write("a.fld", bytes));
            EXPECT_EQ(trace.find("flag 1"), std::string::npos) << what;
            counted[i] = host.counted();
            const int64_t capacities = int64_t{8192 + 1024} * 4 * 80;
            EXPECT_LE(counted[i].peak_bytes, 4 * std::ssize(bytes) + capacities + MEBIBYTE) << what;
        }
        const auto& [once, twice] = counted;
        EXPECT_LE(10 * twice.bytes_read, 23 * once.bytes_read) << what;
        EXPECT_LE(10 * twice.calls[ALLOCATION], 23 * once.calls[ALLOCATION]) << what;
        // A variable's section is looked for among those of all others, at most 2048.
        if (what == "variables") continue;
        EXPECT_LE(10 * twice.comparisons, 23 * once.comparisons) << what;
    }
}

// However short the records are, they are read many at a time.
TEST(BatteryLimits, short_records_take_few_reads)
{
    FaultyHost host;
    const std::string bytes = build(many("elements", 5000), {.values_per_record = 1});
    EXPECT_GT(bytes.size(), 300000U);
    (void)host.visit(host.directory.write("a.fld", bytes));
    EXPECT_LT(host.counted().calls[READ], 200);
}

// ---- positions beyond 4 GiB ----

// A record of 6 GiB in four sub-records stands before the nodes; the file holds almost nothing of
// it. "MARK" stands 5 GiB after its beginning.
TEST(BatteryLimits, records_beyond_4_gibibytes)
{
    FaultyHost host;
    constexpr int32_t PIECE = 1610612736, LAST = 3;
    constexpr int64_t MARK = int64_t{5} << 30;
    FldFile file = tetrahedron_file();
    const Item small = record("MARK"), descriptor = ints({1, PIECE, 1});
    file.grids[0].insert(file.grids[0].begin(), layout("Comment", {descriptor, small}));
    const FldBuilder b;
    const std::string bytes = build(file);
    const size_t at = bytes.find("MARK") - 4;
    const std::string path = host.directory.write("a.fld", bytes.substr(0, at));
    std::ofstream stream(path, std::ios::binary | std::ios::in | std::ios::ate);
    for (int64_t i = 0; i <= LAST; ++i) {
        const int64_t begin = stream.tellp() + std::streamoff{4};
        stream << b.encoded(i < LAST ? -PIECE : PIECE, 4);
        if (i == LAST) stream.seekp(begin + MARK - i * PIECE) << "MARK";
        stream.seekp(begin + PIECE) << b.encoded(i > 0 ? -PIECE : PIECE, 4);
    }
    stream << bytes.substr(at + 12);
    stream.close();
    EXPECT_GT(std::filesystem::file_size(path), uintmax_t{6} << 30);
    EXPECT_EQ(host.visit(path), datasets()[0].trace);
    EXPECT_LT(host.counted().peak_bytes, MEBIBYTE);
    EXPECT_LT(host.counted().bytes_read, MEBIBYTE);
    char text[5] = "";
    ASSERT_EQ(nzn_open_unit(5, path.c_str()), 0);
    EXPECT_EQ(nzn_seek(5, static_cast<int64_t>(at)), 0);
    EXPECT_EQ(nzn_begin_record(5), 0);
    EXPECT_EQ(nzn_skip_bytes(5, MARK), 0);
    EXPECT_EQ(nzn_read_chars(5, 4, text), 0);
    EXPECT_STREQ(text, "MARK");
    EXPECT_EQ(nzn_tell(5), static_cast<int64_t>(at) + (LAST + 1) * int64_t{PIECE + 8});
    EXPECT_EQ(nzn_close_unit(5), 0);
}

// ---- series ----

static std::string member(int number)
{
    return "s" + std::to_string(number) + ".fld";
}

static const FldFile step{{{coordinate_system(0), scalar("T", "", {1, 2, 3, 4})}}};

// The first open looks at every member, a second one at the grid file alone. Each scans both files,
// reads both, and the time is asked for.
TEST(BatterySeries, twenty_thousand_members_under_a_limit_of_16_open_files)
{
    FaultyHost host;
    constexpr int COUNT = 20000;
    const std::string results = build(step);
    (void)host.directory.write(member(0), build(tetrahedron_file()));
    for (int number = 1; number < COUNT; ++number)
        (void)host.directory.write(member(number), results);
    host.module.seconds_later = 3;
    for (const int64_t looks : {COUNT, 1}) {
        const std::string trace =
            visit_within(host, host.directory.path(member(COUNT - 1)), RLIMIT_NOFILE, 16);
        EXPECT_EQ(pick(trace, {"out", "err", "flag", "value"}),
                  "flag 0\nflag 0\nvalue 1 2 3 4\nvalue inf inf inf inf\n");
        EXPECT_EQ(host.counted().calls[OPEN], looks + 5);
        EXPECT_LT(host.counted().peak_bytes, int64_t{COUNT} * 128 + MEBIBYTE);
    }
}

TEST(BatterySeries, looks_once_at_what_nobody_writes_to)
{
    FaultyHost host;
    const auto looks = [&](int last, const FaultPlan& plan = {}) {
        (void)host.visit(host.directory.path(member(last)), plan);
        return host.counted().calls[OPEN] - 5;
    };
    const std::string grid = build(tetrahedron_file()), results = build(step);
    (void)host.directory.write(member(0), grid);
    for (const int number : {1, 2, 3, 4, 5}) (void)host.directory.write(member(number), results);
    EXPECT_EQ(looks(4), 5);
    EXPECT_EQ(looks(4), 5) << "written just now";
    host.module.seconds_later = 1;
    EXPECT_EQ(looks(4), 5) << "written a second ago";
    host.module.seconds_later = 3;
    EXPECT_EQ(looks(4), 5);
    EXPECT_EQ(looks(4), 1);
    EXPECT_EQ(looks(5), 2) << "the next step and the grid file";
    (void)host.directory.write(member(2), results + "x");
    EXPECT_EQ(looks(5), 2) << "written again";
    EXPECT_EQ(looks(5), 1);
    (void)host.directory.write(member(3), "nothing but text");
    EXPECT_EQ(looks(5), 2);
    EXPECT_EQ(looks(5), 2) << "what is printed is due every time";
    // A read that fails, or ends, hides the grid only as long as it does.
    (void)host.directory.write(member(4), grid);
    const std::string good = host.visit(host.directory.path(member(5)));
    const int64_t reads = host.counted().calls[READ];
    for (int64_t k = 1; k <= 2 * reads; ++k) {
        (void)looks(5, {READ, (k + 1) / 2, true, k % 2 == 0 ? ERROR : END});
        EXPECT_EQ(host.visit(host.directory.path(member(5))), good) << k;
    }
}

// One more than the table holds: the last one that the directory lists is left out.
TEST(BatterySeries, a_member_too_many)
{
    FaultyHost host;
    constexpr int COUNT = 100001;
    const std::string grid_bytes = build(tetrahedron_file());
    std::string grid, last;
    for (int number = 0; number < COUNT - 1; ++number) {
        const std::string path = host.directory.path(member(number));
        // A file can have only so many names.
        if (number % 20000 == 0) grid = host.directory.write(member(number), grid_bytes);
        if (path != grid) std::filesystem::create_hard_link(grid, path);
    }
    const std::string results = host.directory.write(member(COUNT - 1), build(step));
    DIR* const listing = opendir(host.directory.path("").c_str());
    while (const dirent* entry = readdir(listing)) {
        if (entry->d_name[0] == 's') last = entry->d_name;
    }
    closedir(listing);
    const std::string unpaired =
        "out Data reader error: unable to find grid file for results file: s100000.fld\nflag 1\n";
    EXPECT_EQ(pick(host.visit(results), {"out", "err", "flag"}),
              last == member(COUNT - 1) ? unpaired : "flag 0\nflag 0\n");
}

// Parts of an expression behind one another, nested at most `depth` times.
static std::string random_parts(std::minstd_rand& random, int depth)
{
    const auto one_of = [&](std::initializer_list<const char*> choices) {
        return choices.begin()[random() % choices.size()];
    };
    std::string parts;
    for (size_t n = 1 + random() % 6; n > 0; --n) {
        std::string part = one_of({"a", "b", "a", "b", "a", "b", ".", "[ab]", "()", "^", "$"});
        if (depth > 0 && random() % 3 == 0) {
            part = "(" + random_parts(random, depth - 1);
            if (random() % 2 == 0) part.append("|").append(random_parts(random, depth - 1));
            part += ")";
        }
        parts += part;
        parts += one_of({"", "", "", "", "*", "+", "?", "*?", "{3}", "{,4}", "{2,}"});
    }
    return parts;
}

// In a directory of a thousand names of the letters that the expressions are made of.
TEST(BatterySeries, whatever_a_name_means)
{
    FaultyHost host;
    std::minstd_rand random;
    const std::string bytes = build(step), first = host.directory.write("0.fld", bytes);
    for (int k = 0; k < 1000; ++k) {
        std::string name;
        for (size_t n = 1 + random() % 200; n > 0; --n) name += random() % 2 == 0 ? 'a' : 'b';
        std::filesystem::create_hard_link(first, host.directory.path(name + member(k)));
    }
    rusage before{}, after{}; // with peaks in KiB
    getrusage(RUSAGE_SELF, &before);
    int accepted = 0, refused = 0;
    while (accepted + refused < 400) {
        const std::string name = random_parts(random, 3);
        if (name.size() > 200) continue;
        const std::string path = host.directory.write(name + "5000.fld", bytes);
        const std::string errors = pick(host.visit(path), {"err"});
        const std::string refusal = "err \nerr ***ERROR: regcmp error \"^" + name;
        if (!errors.empty()) {
            EXPECT_EQ(errors, refusal + "[0-9][0-9]*\\.fld$\"\n");
        }
        (errors.empty() ? accepted : refused) += 1;
        std::filesystem::remove(path);
    }
    std::string name = "(a|b)*a";
    for (int k = 0; k < 7; ++k) name += "(a|b)";
    const std::string again = host.directory.write(name + "5000.fld", bytes);
    for (int k = 0; k < 300; ++k) EXPECT_EQ(pick(host.visit(again), {"err"}), "") << k;
    EXPECT_GT(accepted, 40);
    EXPECT_GT(refused, 40);
    getrusage(RUSAGE_SELF, &after);
#ifdef FLD_RELEASE // the sanitizers keep what was released
    EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 16 * 1024);
#endif
}

// An expression holds 255 characters, 18 of them beside the prefix; a path holds as many.
TEST(BatterySeries, names_at_the_limit)
{
    FaultyHost host;
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(host.directory.path(""));
    for (const size_t length : {1U, 236U, 237U, 238U, 248U}) {
        const std::string prefix(length, 'p'), name = prefix + "100.fld";
        (void)host.directory.write(prefix + "099.fld", build(tetrahedron_file()));
        std::string unpaired = "out Data reader error: unable to find grid file for results file: ";
        unpaired.append(name).append("\nerr \nerr ***ERROR: regcmp error \"^").append(prefix);
        unpaired += "[0-9][0-9]*\\.fld$\"\nflag 1\n";
        (void)host.directory.write(name, build(step));
        EXPECT_EQ(pick(host.visit(name), {"out", "err", "flag"}),
                  length <= 237 ? "flag 0\nflag 0\n" : unpaired);
    }
    for (const size_t length : {255U, 256U}) {
        const std::string name = "./" + std::string(length - 2, 'n');
        (void)host.directory.write(name, build(tetrahedron_file()));
        EXPECT_EQ(pick(host.visit(name), {"out", "err", "flag"}),
                  length == 255 ? "flag 0\nflag 0\n"
                                : "out Cannot open file: " + name + "\nflag 1\n");
    }
    std::filesystem::current_path(before);
}

// ---- status ----

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
