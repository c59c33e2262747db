// Every call of the system that can fail, made to fail at every place: the message, and nothing
// left behind. The callbacks in every order.
#include "faulty_host.h"

#include "ui/util/nzn_io.h"

#include <algorithm>
#include <fcntl.h>
#include <iostream>
#include <map>
#include <sstream>
#include <unistd.h>

namespace fld_test
{

// ---- messages worked out by hand ----

// For each dataset what cannot be had, call by call: "3i" stands for 3 items, "3c" for 3
// characters, "exit" for the end of the process.
static const std::string lists = "face counts,region types,boundaries,variables,variables,";
static const std::string all_lists = "variables," + lists, paired = "grids,variables," + all_lists;
static const std::string tetrahedron = "32c,4c,32c,5c,32c,4c,5c,boundaries,boundaries,"
                                       "wall names,32c,4c,wall region name,32c,5c,element walls,4c,"
                                       "1i,1i,3i,5c,1i,1i,3i,1i,1i,1i,4i,32c,";
static const std::map<std::string, std::string> memory_calls = {
    {"tetrahedron", all_lists + tetrahedron},
    {"cylindrical_pair", all_lists + "32c,exit,exit," + paired + "4i,1i,1i,1i,4i,32c,4i,4i,"},
    {"results_series", all_lists + "32c,32c,4c,4c,32c,boundaries,variables,exit,exit,exit," +
                           paired + tetrahedron + "4c,1i,1i,3i,1i,1i,1i,4i,32c,"}};
// Which file cannot be opened.
static const std::map<std::string, std::string> open_calls = {
    {"tetrahedron", "file: a.fld,time step file: a.fld,grid file: a.fld,"},
    {"results_series",
     "file: flow_0003.fld,time step file: flow_0003.fld,time step file: flow_0002.fld,"
     "time step file: flow_0001.fld,file: flow_0001.fld,time step file: flow_0003.fld,"
     "grid file: flow_0001.fld,results file: flow_0003.fld,grid file: flow_0003.fld,"
     "results file: flow_0003.fld,"}};

static std::string message_of(int kind, const std::string& what)
{
    const std::string error = " error: not enough dynamic memory for ";
    const std::string number = what.substr(0, what.size() - 1);
    if (kind == OPEN) return "out Cannot open " + what;
    if (isalpha(what[0])) return "out Data reader" + error + what + ".";
    return "out FLD file" + error + number + (what.back() == 'i' ? " items" : " characters");
}

// The message of each call; empty when they were not worked out.
static std::vector<std::string> messages_of(int kind, const std::string& dataset)
{
    const auto& calls = kind == ALLOCATION ? memory_calls : open_calls;
    std::vector<std::string> messages;
    if (kind != ALLOCATION && kind != OPEN) return messages;
    std::istringstream list(calls.contains(dataset) ? calls.at(dataset) : "");
    for (std::string what; std::getline(list, what, ',');) {
        messages.push_back(message_of(kind, what));
    }
    return messages;
}

// What a failed call of a kind can lead to.
static testing::Matcher<std::string> is_known(int kind)
{
    const std::string name = R"((a\.fld|flow_000[123]\.fld|c\.[12]))";
    const std::string unpaired =
        "|out Data reader error: unable to find grid file for results file: " + name;
    const std::string opening = "out Cannot open ((time step|grid|results) )?file: " + name;
    const std::string memory = " error: not enough dynamic memory for ";
    const std::string known[CALL_KINDS] = {
        "out Data reader" + memory + "[a-z ]+\\.|out FLD file" + memory +
            "[0-9]+ (items|characters)",
        "out (F|(Time step|Grid|Results) f)ile is not unformatted: " + name +
            "|out FLD file error: (Bias value is missing|[a-z ]+ data not found)\\."
            "|out Data reader error: number of grids exceeds limit of 4"
            "|out Error: unable to get file position in FLD file\\." +
            unpaired,
        opening + unpaired,
        "none",
        opening + unpaired,
        R"(err |err \*\*\*ERROR: Can't open dir "")" + unpaired,
        R"(err |err \*\*\*ERROR: regcmp error "\^(flow_|c\\\.)\[0-9]\[0-9]\*(\\\.fld)?\$")" +
            unpaired};
    return testing::MatchesRegex(known[kind]);
}

// ---- failing calls ----

static std::vector<std::vector<std::string>> lines_of_callbacks(const std::string& trace)
{
    std::vector<std::vector<std::string>> list;
    std::istringstream stream(trace);
    for (std::string line; std::getline(stream, line);) {
        if (line == "open" || line == "peek" || line == "close" || line.starts_with("read ")) {
            list.emplace_back();
        }
        list.back().push_back(line);
    }
    return list;
}

// Every callback shows all that it does without the fault, or a beginning of it and its flag. Gives
// the first new message.
static std::string expect_known(int kind, const std::string& trace, const std::string& good_trace)
{
    const testing::Matcher<std::string> known = is_known(kind);
    const auto list = lines_of_callbacks(trace), good = lines_of_callbacks(good_trace);
    std::string first;
    for (size_t i = 0; i < list.size(); ++i) {
        size_t at = 0; // the next line of the good callback
        bool failed = false;
        for (const std::string& line : list[i]) {
            if (i < good.size() && at < good[i].size() && line == good[i][at]) {
                ++at;
            } else if (line.starts_with("out ") || line.starts_with("err ")) {
                EXPECT_TRUE(known.Matches(line)) << line;
                if (first.empty()) first = line;
            } else if (line != "flag 1" && line != "time 0 flag 1" && kind == READ && i < 2) {
                // A name that cannot be read ends the header, or the grid, as the end of the file
                // does.
                return first;
            } else {
                EXPECT_TRUE(line == "flag 1" || line == "time 0 flag 1" || line == "read alone")
                    << trace;
                failed = true;
            }
        }
        EXPECT_NE(failed, i < good.size() && at == good[i].size()) << trace;
    }
    return first;
}

// Opens a file whose name is no string of ours, with nothing captured; gives the error flag.
static int32_t open_directly(const FaultyHost& host, const char* path)
{
    const int32_t unit = 7, capacity = 8;
    int32_t grids, nodes[8], boundaries, variables, flag = -1;
    char rows[2][640];
    host.library().registrations().readers[0].read_header(
        path, nullptr, &unit, &capacity, &capacity, &capacity, &grids, nodes, &boundaries, rows[0],
        nullptr, &variables, rows[1], &flag);
    return flag;
}

// The end of the process, seen from outside.
static void expect_end_of_process(FaultyHost& host, const std::string& path, const FaultPlan& plan)
{
    const auto open_and_fail = [&] {
        host.module.plan(plan);
        (void)open_directly(host, path.c_str());
    };
    EXPECT_EXIT(open_and_fail(), testing::ExitedWithCode(1),
                "^ERROR: Out of memory - file \"src/readers/cradle/time_series_names_S\" line "
                "519\n$");
}

using BatteryCalls = testing::TestWithParam<int>;
INSTANTIATE_TEST_SUITE_P(Kind, BatteryCalls, testing::Range(0, int{CALL_KINDS}));

// The k-th call fails, or all from the k-th on; reads also as if the file ended there.
TEST_P(BatteryCalls, fail_at_every_place)
{
    FaultyHost host;
    const int kind = GetParam();
    int64_t tried = 0;
    for (const Dataset& dataset : datasets()) {
        const std::string path = write_files(host.directory, dataset.files, dataset.format);
        EXPECT_EQ(host.visit(path), dataset.trace);
        const int64_t calls = host.counted().calls[kind];
        std::vector<std::string> messages = messages_of(kind, dataset.name);
        const bool are_known = !messages.empty();
        EXPECT_TRUE(!are_known || calls == std::ssize(messages)) << dataset.name << calls;
        messages.resize(static_cast<size_t>(calls));
        for (int64_t k = 0; k < (kind == READ ? 6 : 2) * calls; ++k, ++tried) {
            const FaultPlan plan{kind, k % calls + 1, k / calls % 2 == 1, FaultWay(k / calls / 2)};
            const std::string& message = messages[static_cast<size_t>(plan.first - 1)];
            SCOPED_TRACE(dataset.name + ", " + std::to_string(k) + " of " + std::to_string(calls));
            if (message.ends_with(" exit.")) {
                expect_end_of_process(host, path, plan);
                continue;
            }
            if (plan.way == SHORT) {
                EXPECT_EQ(host.visit(path, plan), dataset.trace);
                continue;
            }
            const std::string first = expect_known(kind, host.visit(path, plan), dataset.trace);
            EXPECT_TRUE(!are_known || first == message) << first << "\n" << message;
            EXPECT_EQ(host.visit(path), dataset.trace) << "after a fault";
        }
    }
    std::cout << "tried calls " << tried << "\n";
}

// Through the linked reader every failure is an error, also where the process ends otherwise.
TEST_P(BatteryCalls, fail_at_every_place_of_the_linked_reader)
{
    FaultyModule module(FLD_FAULTY_LINKED_PATH);
    const auto call = reinterpret_cast<decltype(&fld_visit)>(module.find("fld_visit"));
    const TemporaryDirectory directory;
    const int kind = GetParam();
    const auto visit = [&](const std::string& path, const FaultPlan& plan, int64_t* calls) {
        LinkedVisit shown;
        module.plan(plan);
        call(path.c_str(), &shown);
        *calls = module.end().calls[kind];
        return shown;
    };
    int64_t tried = 0;
    for (const Dataset& dataset : datasets()) {
        const std::string path = write_files(directory, dataset.files, dataset.format);
        int64_t calls = 0, unused = 0;
        const std::string good = visit(path, {}, &calls).trace;
        tried += (kind == READ ? 6 : 2) * calls;
        EXPECT_EQ(good, without_output(dataset.trace));
        for (int64_t k = 0; k < (kind == READ ? 6 : 2) * calls; ++k) {
            const FaultPlan plan{kind, k % calls + 1, k / calls % 2 == 1, FaultWay(k / calls / 2)};
            SCOPED_TRACE(dataset.name + ", " + std::to_string(k) + " of " + std::to_string(calls));
            const LinkedVisit shown = visit(path, plan, &unused);
            for (const fld_host::Error& error : shown.errors) {
                EXPECT_EQ(error.kind == fld_host::Error::Kind::no_memory, kind == ALLOCATION);
            }
            if (plan.way == SHORT || (kind == CLOSE && shown.errors.empty())) {
                EXPECT_EQ(shown.trace, good);
                continue;
            }
            (void)expect_known(kind, shown.trace, good);
            EXPECT_EQ(visit(path, {}, &unused).trace, good) << "after a fault";
        }
    }
    std::cout << "tried calls " << tried << "\n";
}

// Arrays too long to be looked at when they are found: they are passed over, and read when they are
// wanted. The file may fail, or turn out to end, only then.
static Dataset long_arrays(int32_t precision)
{
    constexpr size_t COUNT = 1100;
    const std::vector<Point> points(COUNT, {1, 0, 0});
    const std::vector<Face> faces(COUNT, {TRIANGLE_FACE, 0, {0, 1, 2}});
    const FldFile grid{
        {{coordinate_system(0), nodes(points), region_types({{"Wall_Boundary", "wall"}}),
          materials(std::vector<int32_t>(COUNT, 1)), surfaces({{"wall", faces}}),
          surface_array({{"", faces}, {"wall", faces}}),
          elements(std::vector<Element>(COUNT, {TETRAHEDRON, {0, 1, 2, 3}}))}}};
    const FldFile step{{{coordinate_system(1), vector("U", "", points)}}};
    return {"", {{"c.1", grid}, {"c.2", step}}, "", {}, {}, {.precision = precision}};
}

TEST(BatteryLongArrays, fail_at_every_place)
{
    FaultyHost host;
    for (const int32_t precision : {4, 8}) {
        const Dataset dataset = long_arrays(precision);
        const std::string path = write_files(host.directory, dataset.files, dataset.format);
        const std::string good = host.visit(path);
        EXPECT_EQ(pick(good, {"flag"}), "flag 0\nflag 0\n");
        const Faults counted = host.counted();
        for (const int kind : {ALLOCATION, READ}) {
            for (int64_t k = 1; k <= counted.calls[kind]; ++k) {
                // Without memory for the two paths of the series the process ends.
                if (kind == ALLOCATION && (k == 8 || k == 9)) continue;
                SCOPED_TRACE(std::to_string(kind) + ": " + std::to_string(k));
                (void)expect_known(kind, host.visit(path, {kind, k}), good);
            }
        }
    }
}

// Planes that are read straight to where they belong, each in halves of what is left of it.
TEST(BatteryLongArrays, come_whole_in_pieces)
{
    FaultyHost host;
    constexpr size_t COUNT = 20000;
    const FldFile file{
        {{coordinate_system(0), nodes(std::vector<Point>(COUNT, {1, 2, 3})), materials({}),
          elements({}), scalar("T", "", std::vector<double>(COUNT, 4))}}};
    const std::string path = host.directory.write("a.fld", build(file));
    const std::string good = host.visit(path);
    EXPECT_EQ(pick(good, {"flag"}), "flag 0\nflag 0\n");
    EXPECT_TRUE(host.visit(path, {READ, 1, true, SHORT}) == good);
}

// Nothing of what ends inside an array is created, not even what comes before the end.
TEST(BatteryLongArrays, are_whole_or_not_read)
{
    FaultyHost host;
    const Dataset dataset = long_arrays(4);
    (void)write_files(host.directory, dataset.files);
    const std::string bytes = build(dataset.files[0].file);
    constexpr size_t AFTER_THE_ARRAY = 4 + 20 + 40; // tail, end record and last name
    host.open(host.directory.path("c.2"));
    host.take_trace();
    for (const size_t missing : {4U, 8U, 20U}) {
        (void)host.directory.write("c.1",
                                   bytes.substr(0, bytes.size() - AFTER_THE_ARRAY - missing));
        host.read(1);
        EXPECT_EQ(pick(host.take_trace(), {"tet", "flag"}), "flag 1\n") << missing;
    }
}

// The end of a file is status 4, as the records that are cut show; a read that fails is 5.
TEST(BatteryRecords, tell_a_failed_read_from_the_end_of_the_file)
{
    const TemporaryDirectory directory;
    FldBuilder builder;
    for (int i = 0; i < 12; ++i) builder.record(std::string(99999, 'r'));
    const std::string path = directory.write("records", builder.bytes());
    const int file = open("/dev/null", O_RDONLY);
    close(file); // the unit gets this descriptor
    ASSERT_EQ(nzn_open_unit(3, path.c_str()), 0);
    ASSERT_EQ(nzn_begin_record(3), 0);
    close(file);
    std::string text(99999, ' ');
    EXPECT_EQ(nzn_read_chars(3, 99999, text.data()), 5);
    EXPECT_EQ(nzn_seek(3, 200014), 0);
    EXPECT_EQ(nzn_begin_record(3), 5);
    EXPECT_EQ(nzn_close_unit(3), 5);
}

// ---- callbacks ----

// Every sequence of four callbacks, whatever sense it makes. What each must say depends only on
// whether the last opening succeeded and nothing closed the dataset since.
TEST(BatteryBoundary, callbacks_in_every_order)
{
    FaultyHost host;
    const std::string good = host.directory.write("a.fld", build(tetrahedron_file()));
    const std::string bad = host.directory.write("b.fld", "nothing but text");
    const std::string is_text = "ile is not unformatted: b.fld\n";
    const std::string closed = "out Cannot open grid file: \nflag 1\n";
    const std::string no_grid = "out FLD file error: coordinate system data not found.\nflag 1\n";
    const std::string expected[] = {"",
                                    "flag 0\n",
                                    "out F" + is_text + "flag 1\n",
                                    "time 0.5 flag 0\n",
                                    "out Time step f" + is_text + "time 0 flag 1\n",
                                    "",
                                    "flag 0\n"};
    const auto shown = [&] { return pick(host.take_trace(), {"out", "err", "time", "flag"}); };
    host.read(1);
    EXPECT_EQ(shown(), closed) << "before the first header callback";
    (void)host.visit(good); // registers the other callbacks
    bool is_open = false;
    for (int code = 0; code < 9 * 9 * 9 * 9 && !HasFailure(); ++code) {
        SCOPED_TRACE(code);
        for (int divisor : {1, 9, 81, 729}) {
            const int callback = code / divisor % 9;
            if (callback == 0) host.close();
            if (callback == 1 || callback == 2) host.open(callback == 1 ? good : bad);
            if (callback == 3 || callback == 4) host.peek(callback == 3 ? good : bad);
            if (callback >= 5) host.read(callback == 8 ? INT32_MIN : callback - 5);
            if (callback < 3) is_open = callback == 1;
            const bool reads = callback < 5 || (is_open && callback == 6);
            EXPECT_EQ(shown(), reads ? expected[callback] : is_open ? no_grid : closed);
        }
    }
    host.close();
    host.take_trace();
    EXPECT_EQ(host.visit(good), datasets()[0].trace);
}

// ---- closed from inside a service ----

static int calls_left; // of any service, before the one that closes the dataset
static fld_host::CloseCallback close_dataset;

static void count_call()
{
    if (--calls_left == 0) close_dataset();
}
static void count_registration(void* /*callback*/)
{
    count_call();
}
static void count_options(int /*first*/, int /*second*/, unsigned char /*third*/)
{
    count_call();
}

// A callback whose dataset is closed by the host's own service ends with its error flag set. Only
// when the close callback is registered for the first time is there nothing to close.
TEST(BatteryBoundary, closed_from_inside_a_service)
{
    FaultyHost host;
    const Dataset& series = *std::ranges::find(datasets(), "results_series", &Dataset::name);
    const std::string path = write_files(host.directory, series.files);
    EXPECT_EQ(host.visit(path), series.trace);
    close_dataset = host.library().registrations().close_file;
    void* const registration = reinterpret_cast<void*>(&count_registration);
    EXPECT_EQ(host.library().set_func(registration, "register_user_close_file"), 1);
    EXPECT_EQ(host.library().set_func(registration, "register_user_peek_time"), 1);
    EXPECT_EQ(host.library().set_func(reinterpret_cast<void*>(&count_options), "ReaderSetOptions"),
              1);
    host.on_create = count_call;
    // Two registrations and the options for either file; two faces and a cell of either grid.
    for (int call = 1; call <= 6 + 3 + 2; ++call) {
        calls_left = call;
        const std::string good = "flag 0\n", failed = "flag 1\n";
        EXPECT_EQ(pick(host.visit(path), {"flag", "out"}),
                  call <= 2   ? good + good + good
                  : call <= 6 ? failed
                  : call <= 9 ? good + failed + "out Cannot open grid file: \n" + failed
                              : good + good + failed)
            << call;
    }
    calls_left = 0;
    EXPECT_EQ(events(host.visit(path)), events(series.trace));
    // Another dataset that is opened there ends the callback too, from the first registration on.
    static const FaultyHost* const opening_host = &host;
    static const std::string another = path;
    close_dataset = [] { EXPECT_EQ(open_directly(*opening_host, another.c_str()), 0); };
    for (int call = 1; call <= 6; ++call) {
        calls_left = call;
        EXPECT_EQ(pick(host.visit(path), {"flag", "out"}), "flag 1\n") << call;
    }
}

// A host that calls a callback from inside a service may lose the one that runs, and nothing else.
TEST(BatteryBoundary, called_from_inside_a_service)
{
    const TemporaryDirectory directory;
    const std::string path = write_files(directory, datasets()[0].files);
    FaultyHost host;
    for (const bool opens : {false, true}) {
        bool is_called = false;
        host.on_create = [&] {
            if (std::exchange(is_called, true)) return;
            const int32_t unit = 9, grid = 1, nodes = 4, variables = 1;
            float coordinates[12], values[4];
            int32_t flag = -1;
            const auto read_data = host.library().registrations().readers[0].read_data;
            if (opens) flag = open_directly(host, path.c_str());
            if (!opens) read_data(&unit, &grid, &nodes, coordinates, &variables, values, &flag);
            EXPECT_EQ(flag, 0);
        };
        EXPECT_EQ(pick(host.visit(path), {"flag"}),
                  opens ? "flag 0\nflag 1\n" : "flag 0\nflag 0\n");
        host.on_create = [] {};
        EXPECT_EQ(host.visit(path), datasets()[0].trace);
    }
}

TEST(BatteryBoundary, a_null_name_cannot_be_opened)
{
    FaultyHost host;
    host.call([&] { EXPECT_EQ(open_directly(host, nullptr), 1); });
    host.call([&] {
        float time = -1;
        int32_t flag = -1;
        const auto peek = host.library().registrations().peek_time;
        peek(nullptr, nullptr, nullptr, nullptr, &time, &flag);
        EXPECT_EQ(time, 0);
        EXPECT_EQ(flag, 1);
    });
    EXPECT_EQ(host.take_trace(), "out Cannot open file: \nout Cannot open time step file: \n");
}

} // namespace fld_test
