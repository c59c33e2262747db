// The host library: what its datasets deliver, from the reader that is linked in and from a loaded
// one, in any order and from any thread.
#include "dataset.h"
#include "datasets.h"
#include "linked_host.h"
#include "series.h"

#include <algorithm>
#include <bit>
#include <gtest/gtest.h>
#include <sstream>
#include <thread>

namespace fld_test
{

using fld_host::Buffers;
using fld_host::Error;
using fld_host::GridSink;
using fld_host::Reader;
using fld_host::Wanted;

// What a read delivered. Reals as their bits, so that what is no number equals itself.
struct Delivered {
    std::string cells, faces;
    std::vector<uint32_t> nodes;
    std::vector<std::vector<uint32_t>> variables;
    bool operator==(const Delivered&) const = default;
};

static const std::vector<std::string> cell_words = {"tet", "pyramid", "prism", "hex"};

static std::vector<uint32_t> bits_of(const std::vector<float>& values)
{
    std::vector<uint32_t> bits;
    for (const float value : values) bits.push_back(std::bit_cast<uint32_t>(value));
    return bits;
}

static Delivered deliver(fld_host::Dataset& dataset, int grid, const Wanted& wanted,
                         Recorder&& sink = Recorder(true))
{
    const auto nodes =
        static_cast<size_t>(dataset.contents().node_counts.at(static_cast<size_t>(grid)));
    std::vector<float> coords(wanted.nodes ? 3 * nodes : 0, -1);
    std::vector<std::vector<float>> values;
    Buffers buffers{coords.data(), {}};
    values.reserve(wanted.variables.size());
    for (const int variable : wanted.variables) {
        const auto& found = dataset.contents().variables.at(static_cast<size_t>(variable));
        values.emplace_back(static_cast<size_t>(found.components) * nodes, -1.0F);
        buffers.variables.push_back(values.back().data());
    }
    dataset.read(grid, wanted, buffers, sink);
    Delivered delivered{
        pick(sink.lines, cell_words), pick(sink.lines, {"face"}), bits_of(coords), {}};
    for (const auto& plane : values) delivered.variables.push_back(bits_of(plane));
    return delivered;
}

// The linked reader, and a loaded one, which is a copy: the tests' host has the library itself.
class HostLibrary : public testing::TestWithParam<bool>
{
protected:
    HostLibrary()
    {
        if (GetParam()) {
            reader = Reader::linked();
            return;
        }
        const std::string copy = directory.path("copy.so");
        std::filesystem::copy_file(FLD_READER_PATH, copy);
        testing::internal::CaptureStdout(); // where a loaded one prints
        reader = Reader::load(copy);
    }
    ~HostLibrary() override
    {
        if (GetParam()) return;
        const std::string printed = testing::internal::GetCapturedStdout();
        if (HasFailure()) std::cout << printed;
    }
    std::string write(const std::string& folder, const std::vector<NamedFile>& files) const
    {
        std::filesystem::create_directory(directory.path(folder));
        std::string path;
        for (const NamedFile& file : files) {
            path = directory.write(folder + "/" + file.name,
                                   file.bytes.empty() ? build(file.file) : file.bytes);
        }
        return path;
    }

    TemporaryDirectory directory;
    std::shared_ptr<Reader> reader;
};
INSTANTIATE_TEST_SUITE_P(Reader, HostLibrary, testing::Bool(),
                         [](const auto& test) { return test.param ? "linked" : "loaded"; });

static std::string faces_of(const std::string& faces, int boundary)
{
    std::istringstream lines(faces);
    std::string found, line;
    for (const std::string start = "face " + std::to_string(boundary + 1) + " |";
         std::getline(lines, line);) {
        if (line.starts_with(start)) found.append(line).append("\n");
    }
    return found;
}

static std::string without_flags(std::string cells)
{
    bool are_flags = true;
    for (char& c : cells) {
        are_flags = c == '\n' || (are_flags && c != '|');
        if (are_flags && c == '7') c = '0';
    }
    return cells;
}

// Every dataset whole, and each part of it alone.
TEST_P(HostLibrary, delivers_what_the_callbacks_do)
{
    for (const Dataset& one : datasets()) {
        SCOPED_TRACE(one.name);
        if (!one.changed.empty() || one.trace.find("flag 1") != std::string::npos) continue;
        if (!pick(one.trace, {"boundary count", "variable count"}).empty()) continue;
        const std::string path = write(one.name, one.files);
        fld_host::Dataset dataset(reader, path);
        std::string faces, cells;
        for (int grid = 0; grid < std::ssize(dataset.contents().node_counts); ++grid) {
            const Wanted all = dataset.everything();
            const Delivered whole = deliver(dataset, grid, all);
            EXPECT_EQ(deliver(dataset, grid, all, Recorder(false)), whole);
            cells += whole.cells;
            faces += whole.faces;

            const Wanted none{false, false, false, {}, {}};
            EXPECT_EQ(deliver(dataset, grid, none),
                      Delivered({"", "", {}, std::vector<std::vector<uint32_t>>{}}));
            Wanted part = none;
            part.nodes = true;
            EXPECT_EQ(deliver(dataset, grid, part).nodes, whole.nodes);
            part = none;
            part.cells = part.wall_flags = true;
            EXPECT_EQ(deliver(dataset, grid, part).cells, whole.cells);
            part.wall_flags = false;
            EXPECT_EQ(deliver(dataset, grid, part).cells, without_flags(whole.cells));
            for (const int boundary : all.boundaries) {
                part = none;
                part.boundaries = {boundary};
                EXPECT_EQ(deliver(dataset, grid, part).faces, faces_of(whole.faces, boundary));
            }
            for (const int variable : all.variables) {
                part = none;
                part.variables = {variable};
                EXPECT_EQ(deliver(dataset, grid, part).variables[0],
                          whole.variables[static_cast<size_t>(variable)]);
            }
            const auto size = dataset.size(grid);
            EXPECT_EQ(size.has_value(), GetParam());
            if (!size) continue;
            int64_t created = 0, made = 0;
            for (const int64_t n : size->cells) created += n;
            for (const int64_t n : size->triangles) made += n;
            for (const int64_t n : size->quadrilaterals) made += n;
            EXPECT_EQ(created, std::ranges::count(whole.cells, '\n'));
            EXPECT_EQ(made, std::ranges::count(whole.faces, '\n'));
        }
        EXPECT_EQ(cells, pick(one.trace, cell_words));
        EXPECT_EQ(faces, pick(one.trace, {"face"}));
    }
}

TEST_P(HostLibrary, opens_any_number_of_datasets)
{
    const FldFile other = replaced(tetrahedron_file(), scalar("P", "Pressure", {4, 3, 2, 1}));
    const std::string paths[] = {write("a", {{"a.fld", tetrahedron_file()}}),
                                 write("b", {{"b.fld", other}})};
    std::vector<Delivered> alone;
    for (const std::string& path : paths) {
        fld_host::Dataset dataset(reader, path);
        alone.push_back(deliver(dataset, 0, dataset.everything()));
    }
    EXPECT_NE(alone[0], alone[1]);
    // Beside a loaded reader the linked one is at work too.
    fld_host::Dataset first(reader, paths[0]), second(Reader::linked(), paths[1]);
    const auto work = [&](size_t turn) {
        for (int i = 0; i < 25; ++i, ++turn) {
            fld_host::Dataset& dataset = turn % 2 == 0 ? first : second;
            EXPECT_EQ(deliver(dataset, 0, dataset.everything()), alone[turn % 2]);
            EXPECT_EQ(reader->time(paths[turn % 2]), 0.5F);
        }
    };
    std::vector<std::thread> threads;
    for (size_t turn = 0; turn < 4; ++turn) threads.emplace_back(work, turn);
    for (std::thread& thread : threads) thread.join();
    // What is another file by now is noticed when its turn comes.
    (void)write("a", {{"a.fld", added(tetrahedron_file(), scalar("T", "", {1, 2, 3, 4}))}});
    EXPECT_EQ(deliver(second, 0, second.everything()), alone[1]);
    const fld_host::Dataset another(reader, paths[1]);
    try {
        (void)deliver(first, 0, first.everything());
        ADD_FAILURE() << "not noticed";
    } catch (const Error& failure) {
        EXPECT_EQ(failure.kind, Error::Kind::changed) << failure.what();
        EXPECT_EQ(failure.file, paths[0]);
    }
    EXPECT_EQ(deliver(second, 0, second.everything()), alone[1]);
}

// What the reader fills is told by sections; names that look like a vector's are just names.
TEST_P(HostLibrary, fills_the_planes_that_a_variable_has)
{
    const std::vector<Point> points = {{1, 5, 9}, {2, 6, 10}, {3, 7, 11}, {4, 8, 12}};
    FldFile odd = without(tetrahedron_file(), "LS_Scalar:P");
    odd = added(odd, vector("U", "A (x-component)", points));
    for (const std::string name : {"B (x-component)", "B (y-component)", "B (z-component)"}) {
        odd = added(odd, scalar(name.substr(3, 1), name, {1, 2, 3, 4}));
    }
    const FldFile results{{{coordinate_system(0), scalar("T", "", {1, 2, 3, 4})}}};
    const std::string path = write("odd", {{"s1.fld", odd}, {"s2.fld", results}});
    constexpr uint32_t UNDEFINED = 0x7F800000;
    for (const bool own : {true, false}) {
        fld_host::Dataset dataset(reader, own ? directory.path("odd/s1.fld") : path);
        size_t vectors = 0, planes = 0;
        for (const auto& variable : dataset.contents().variables) {
            const int at = static_cast<int>(&variable - dataset.contents().variables.data());
            const Delivered one = deliver(dataset, 0, {false, false, false, {}, {at}});
            const std::vector<uint32_t>& bits = one.variables[0];
            planes += bits.size() / 4;
            vectors += variable.components == 3 && variable.name == "A (x-component) (U)";
            if (variable.key == "T") continue;
            for (size_t i = 0; i < bits.size(); ++i) {
                const float value = variable.components == 3 && variable.key == "U"
                                        ? static_cast<float>(i + 1)
                                        : static_cast<float>(i % 4 + 1);
                EXPECT_EQ(bits[i], own ? std::bit_cast<uint32_t>(value) : UNDEFINED) << i;
            }
        }
        EXPECT_EQ(vectors, 1U);
        EXPECT_EQ(planes, own ? 6U : 7U);
    }
}

TEST_P(HostLibrary, is_stopped_by_its_sink)
{
    fld_host::Dataset dataset(reader, write("a", {{"a.fld", tetrahedron_file()}}));
    const Delivered whole = deliver(dataset, 0, dataset.everything());
    struct Stop : GridSink {
        void take_cells(const fld_host::CellBlock& /*cells*/) override { on_cells(); }
        std::function<void()> on_cells;
    } stop;
    std::vector<float> room(64);
    const auto read = [&] {
        dataset.read(0, dataset.everything(), {room.data(), {room.data() + 12}}, stop);
    };
    stop.on_cells = [] { throw 7; };
    EXPECT_THROW(read(), int);
    stop.on_cells = [&] { (void)reader->time("any"); };
    EXPECT_THROW(read(), std::logic_error);
    stop.on_cells = [] { throw std::bad_alloc(); };
    EXPECT_THROW(read(), std::bad_alloc);
    stop.on_cells = [] {};
    EXPECT_THROW(dataset.read(0, dataset.everything(), {room.data(), {nullptr}}, stop),
                 std::invalid_argument);
    EXPECT_EQ(deliver(dataset, 0, dataset.everything()), whole);
    if (!GetParam()) return; // one that is loaded does not ask
    Recorder cancelling(true);
    cancelling.going_on = [] { return false; };
    try {
        (void)deliver(dataset, 0, dataset.everything(), std::move(cancelling));
        ADD_FAILURE() << "not cancelled";
    } catch (const Error& failure) {
        EXPECT_EQ(failure.kind, Error::Kind::cancelled);
    }
    try {
        (void)reader->time("missing");
        ADD_FAILURE() << "no error";
    } catch (const Error& failure) {
        EXPECT_EQ(failure.kind, Error::Kind::cannot_open);
    }
    EXPECT_EQ(deliver(dataset, 0, dataset.everything()), whole);
}

// A results file that is exchanged while its grid is read, so that its vectors need nodes that were
// not read.
TEST_P(HostLibrary, notices_what_changes_during_a_read)
{
    const auto results = [](int32_t system) {
        return FldFile{{{coordinate_system(system), vector("U", "", cube_corners(4))}}};
    };
    (void)write("turned", {{"s1.fld", tetrahedron_file()}, {"s2.fld", results(1)}});
    fld_host::Dataset turned(reader, directory.path("turned/s2.fld"));
    EXPECT_EQ(deliver(turned, 0, {false, false, false, {}, {0}}).variables[0],
              deliver(turned, 0, turned.everything()).variables[0]);
    const std::string path = write("a", {{"s1.fld", tetrahedron_file()}, {"s2.fld", results(0)}});
    fld_host::Dataset dataset(reader, path);
    struct Exchange : GridSink {
        void take_cells(const fld_host::CellBlock& /*cells*/) override {}
        void take_faces(const fld_host::FaceBlock& /*faces*/) override {}
        bool go_on(int64_t /*done*/, int64_t /*all*/) override { return on_question(), true; }
        std::function<void()> on_question;
    } exchange;
    exchange.on_question = [&] { (void)write("a", {{"s2.fld", results(1)}}); };
    std::vector<float> values(12);
    const Wanted wanted{false, true, false, {}, {0}};
    const auto read = [&] { dataset.read(0, wanted, {nullptr, {values.data()}}, exchange); };
    if (!GetParam()) return; // it reads the nodes in any case, and asks nothing
    try {
        read();
        ADD_FAILURE() << "not noticed";
    } catch (const Error& failure) {
        EXPECT_NE(failure.reader_says.find("has changed its coordinate system"), std::string::npos)
            << failure.what();
    }
}

// The error is of the right kind and names the file to blame.
TEST_P(HostLibrary, says_what_is_wrong_and_where)
{
    using enum Error::Kind;
    const FldFile results{{{coordinate_system(0), scalar("T", "", {1, 2, 3, 4})}}};
    const std::string cut = build(tetrahedron_file()).substr(0, 900);
    const FldFile bad = replaced(tetrahedron_file(), coordinate_system(9));
    const bool linked = GetParam();
    struct Case {
        std::string name;
        std::vector<NamedFile> files;
        Error::Kind kind;
        std::string blamed, says; // by the linked reader
    };
    const Case cases[] = {
        {"missing", {}, cannot_open, "missing.fld", "there is no such file"},
        {"text", {{"a.fld", {}, "no records"}}, cannot_open, "a.fld", "it is no FLD file"},
        {"alone", {{"s2.fld", results}}, no_grid_file, "s2.fld", "no earlier file"},
        {"passed_over",
         {{"s1.fld", {}, "no records"}, {"s2.fld", results}},
         no_grid_file,
         "s2.fld",
         "s1.fld was passed over: no FLD file"},
        {"bad", {{"a.fld", bad}}, damaged, "a.fld", "invalid coordinate system: 9"},
        {"bad_grid", {{"s1.fld", bad}, {"s2.fld", results}}, damaged, "s1.fld", "system: 9"},
        {"cut", {{"a.fld", {}, cut}}, damaged, "a.fld", "cut short or damaged"},
    };
    for (const auto& [name, files, kind, blamed, says] : cases) {
        SCOPED_TRACE(name);
        (void)write(name, files);
        const std::string path =
            directory.path(name + "/" + (files.empty() ? blamed : files.back().name));
        try {
            fld_host::Dataset dataset(reader, path);
            (void)deliver(dataset, 0, dataset.everything());
            ADD_FAILURE() << "no error";
        } catch (const Error& failure) {
            const std::string text = failure.what();
            EXPECT_EQ(std::ranges::count(text, '\n'), 0);
            if (linked || (kind != damaged && name != "text")) {
                EXPECT_EQ(failure.kind, kind) << text;
            }
            if (!linked) continue;
            EXPECT_NE(text.find(says), std::string::npos) << text;
            EXPECT_EQ(failure.file, directory.path(name + "/" + blamed));
        }
    }
    const std::string copy = directory.write("no.so", "no library");
    EXPECT_THROW((void)Reader::load(copy), Error);
    EXPECT_THROW((void)Reader::load("missing.so"), Error);
    EXPECT_THROW(reader->choose("none"), Error);
    EXPECT_THROW((void)reader->time("missing"), Error);
}

TEST_P(HostLibrary, knows_meshes_and_series)
{
    const FldFile results{{{coordinate_system(0), vector("U", "Velocity", cube_corners(4))}}};
    const std::vector<NamedFile> files = {
        {"s1.fld", tetrahedron_file()}, {"s2.fld", results}, {"s3.fld", results}};
    const std::string last = write("s", files), folder = directory.path("s/");
    fld_host::Dataset second(reader, folder + "s2.fld"), third(reader, last);
    ASSERT_EQ(third.contents().variables.size(), 2U);
    EXPECT_EQ(third.contents().variables[0].name, "Velocity (U)");
    EXPECT_EQ(third.contents().variables[0].key, "U");
    EXPECT_EQ(third.contents().variables[1].name, "Pressure (P)");
    EXPECT_EQ(third.contents().variables[1].key, "P");
    const auto mesh = third.mesh_identity(0);
    ASSERT_EQ(mesh.has_value(), GetParam());
    if (mesh) {
        EXPECT_EQ(second.mesh_identity(0), mesh);
        EXPECT_EQ(third.contents().grid_file, folder + "s1.fld");
        (void)write("s", {{"s1.fld", added(tetrahedron_file(), scalar("T", "", {1, 2, 3, 4}))}});
        EXPECT_NE(second.mesh_identity(0), mesh);
    }
    // A nearer grid file, which a file that is opened again is paired with.
    (void)write("s", {{"s2.fld", tetrahedron_file()}});
    const fld_host::Dataset another(reader, folder + "s1.fld");
    if (GetParam()) {
        EXPECT_THROW((void)deliver(third, 0, third.everything()), Error);
        EXPECT_EQ(third.contents().grid_file, folder + "s1.fld");
    }
    (void)write("s", {{"s2.fld", {}, "no records"}});
    const auto series = fld_host::series_of(reader, last);
    ASSERT_EQ(series.size(), 3U);
    EXPECT_EQ(series[0].holds_grid, true);
    EXPECT_EQ(series[1].holds_grid, std::nullopt);
    EXPECT_EQ(series[1].time, std::nullopt);
    EXPECT_EQ(series[2].holds_grid, false);
    EXPECT_EQ(series[2].time, 0.5F);
    EXPECT_EQ(series[2].number, "3");
}

} // namespace fld_test
