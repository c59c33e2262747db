// Every dataset, damaged in every way that a file can be: no harm is done, whatever it holds.
//
// Unharmed means: a callback that reports success has filled all that was asked for, nothing is
// touched outside the host's buffers, no file stays open, and a good file that is opened next has
// the trace it always has. A crash leaves the damaged file behind in its temporary directory.
//
// The usual run takes a sample of the widest loops; FLD_BATTERY=whole makes them whole.
#include "datasets.h"
#include "linked_host.h"
#include "test_system.h"

#include <algorithm>
#include <fstream>
#include <gtest/gtest.h>
#include <numeric>
#include <random>
#include <set>
#include <sstream>

namespace fld_test
{

template <class T> static std::vector<T> sampled(const std::vector<T>& cases, size_t limit)
{
    if (getenv("FLD_BATTERY") && getenv("FLD_BATTERY") == std::string("whole")) return cases;
    std::vector<T> chosen;
    std::sample(cases.begin(), cases.end(), std::back_inserter(chosen), limit, std::mt19937{1});
    return chosen;
}

static void count_tried(const std::string& what, size_t count)
{
    std::cout << "tried " << what << " " << count << "\n";
}

// ---- files as records ----

// A dataset without a description is a sample that the Fortran runtime writes.
static std::string contents(const NamedFile& file, const Format& format)
{
    if (!file.file.grids.empty()) return build(file.file, format);
    const TemporaryDirectory directory;
    EXPECT_TRUE(write_samples("little", directory.path(""), "--size 4 --only duct"));
    return file_content(directory.path(file.name));
}

enum class Kind { preamble, name, descriptor, data, end };

struct KnownRecord : Record {
    Kind kind = Kind::preamble;
    bool is_passed_over = false; // belongs to a section of which no reader knows the layout
};

// The records of a well-formed file: magic and version, then names, each with its list of items.
static std::vector<KnownRecord> known_records(const std::string& bytes, bool big_endian)
{
    static const std::set<std::string> unknown = {"Comment", "LS_nodes", "LS_Nodes2"};
    std::vector<KnownRecord> list;
    bool in_items = false, is_unknown = false;
    int32_t data_records = 0;
    for (const Record& plain : records_of(bytes, big_endian)) {
        KnownRecord& record = list.emplace_back(KnownRecord{plain});
        if (list.size() <= 2) continue;
        const std::string text = record.data.substr(0, record.data.find(' '));
        if (data_records > 0) {
            record.kind = Kind::data;
            --data_records;
        } else if (in_items) {
            in_items = record.data != std::string(12, '\0');
            record.kind = in_items ? Kind::descriptor : Kind::end;
            data_records = int_at(record.data, 8, big_endian);
        } else {
            record.kind = Kind::name;
            is_unknown = unknown.contains(text);
            in_items = text != "HeaderDataEnd" && text.compare(0, 7, "Overlap") != 0;
        }
        record.is_passed_over = is_unknown && record.kind != Kind::name;
    }
    return list;
}

enum class Outcome { any, refused, same };
using enum Outcome;

// Bytes of a file that others replace, and what must come of it when it is the file opened.
struct Change {
    size_t file, at, length;
    std::string bytes;
    Outcome outcome = any;
};

// ---- the host's visits ----

static std::string without(std::string text, const std::string& part)
{
    for (size_t at = 0; (at = text.find(part, at)) != std::string::npos;)
        text.erase(at, part.size());
    return text;
}

// Messages without the names of folders and the ends of lines.
static std::string said(const std::string& text, const std::string& folder)
{
    return without(without(text, folder), "\n");
}

// What the lines of a trace show of the output.
static std::string output(const std::string& trace)
{
    std::istringstream lines(without(pick(trace, {"out", "err"}), " (no newline)"));
    std::string text;
    for (std::string line; std::getline(lines, line);) text += line.substr(4);
    return text;
}

class BatteryFiles : public testing::TestWithParam<Dataset>
{
protected:
    BatteryFiles() : format_(GetParam().format)
    {
        host_.start();
        host_.hidden_prefix = directory_.path("");
        control_ = directory_.write("control.fld", build(tetrahedron_file()));
        write_all(format_);
        good_trace_ = visit();
        EXPECT_TRUE(GetParam().trace.empty() || good_trace_ == GetParam().trace) << good_trace_;
    }

    void write_all(const Format& format)
    {
        good_.clear();
        for (const NamedFile& file : GetParam().files) {
            good_.push_back(contents(file, format));
            write(good_.size() - 1, good_.back());
        }
    }
    void write(size_t file, const std::string& bytes)
    {
        (void)directory_.write(GetParam().files[file].name, bytes);
    }

    // Everything that a host does with a dataset. `meanwhile` happens after it was opened.
    std::string visit(const std::function<void()>& meanwhile = {})
    {
        const std::string path = directory_.path(GetParam().files.back().name);
        std::string trace = host_.visit(path, meanwhile);
        if (!meanwhile && !has_other_capacities_) expect_linked(trace);
        if (trace.ends_with("close\n")) return trace;
        host_.peek(path);
        host_.close();
        return trace + host_.take_trace();
    }

    // The linked reader delivers the same and says the same. Its host refuses cells and faces of
    // nodes that are not there, and more names than there is room for.
    void expect_linked(const std::string& trace, const std::function<void()>& meanwhile = {})
    {
        const std::string folder = directory_.path("");
        LinkedVisit linked = visit_linked(folder + GetParam().files.back().name, meanwhile);
        for (const fld_host::Error& error : linked.errors) {
            const std::string text = error.what();
            EXPECT_TRUE(text.starts_with(folder) && text.find('\n') == std::string::npos) << text;
            if (text.find(" names node ") != std::string::npos) return;
            if (text.find("there is room for") != std::string::npos) return;
        }
        EXPECT_EQ(without_output(linked.trace), without_output(trace));
        if (trace.find(" bytes more\n") != std::string::npos) return; // of which nobody keeps all
        EXPECT_EQ(said(linked.messages, folder), said(output(trace), folder));
    }

    void expect(Outcome outcome, const std::string& trace)
    {
        for (const char* lapse : {"untouched", "flag -1"}) {
            EXPECT_EQ(trace.find(lapse), std::string::npos) << trace;
        }
        EXPECT_TRUE(outcome != same || trace == good_trace_) << trace;
        EXPECT_TRUE(outcome != refused || pick(trace, {"flag"}) == "flag 1\n") << trace;
        const Controls controls = std::exchange(host_.controls, {});
        EXPECT_EQ(host_.visit(control_), datasets()[0].trace);
        host_.controls = controls;
    }

    // Every record of the file that is opened is needed, but not of the others of its series.
    void try_changes(const std::string& what, const std::vector<Change>& changes, size_t limit)
    {
        const std::vector<Change> chosen = sampled(changes, limit);
        for (const auto& [file, at, length, bytes, outcome] : chosen) {
            SCOPED_TRACE(testing::PrintToString(bytes) + " at " + std::to_string(at));
            std::string damaged = good_[file];
            write(file, damaged.replace(at, length, bytes));
            const bool is_opened = file + 1 == good_.size();
            expect(is_opened || outcome == same ? outcome : any, visit());
            write(file, good_[file]);
        }
        count_tried(what, chosen.size());
    }

    void expect_good_or_undefined(const std::string& trace)
    {
        const std::string good = pick(good_trace_, {"value"});
        std::istringstream lines(pick(trace, {"value"}));
        for (std::string line; std::getline(lines, line);) {
            EXPECT_TRUE(good.find(line + "\n") != std::string::npos ||
                        line.find_first_not_of(" inf", 5) == std::string::npos)
                << trace;
        }
    }

    TestHost host_;
    TemporaryDirectory directory_;
    const Format format_;
    const FldBuilder coder_{format_};
    std::string control_;
    std::vector<std::string> good_; // the files' contents
    std::string good_trace_;
    bool has_other_capacities_ = false;
};

INSTANTIATE_TEST_SUITE_P(All, BatteryFiles, testing::ValuesIn(datasets()), test_name);
INSTANTIATE_TEST_SUITE_P(Fortran, BatteryFiles,
                         testing::Values(Dataset{"duct_sample", {{"duct.fld"}}, ""}), test_name);

// ---- damaged files ----

// Only the last tail marker is not needed.
TEST_P(BatteryFiles, cut_at_every_length)
{
    std::vector<Change> cuts, near_the_end;
    for (size_t file = 0; file < good_.size(); ++file) {
        const size_t size = good_[file].size();
        for (size_t at = 0; at <= size; ++at) {
            auto& list = at + 6 < size ? cuts : near_the_end;
            list.push_back({file, at, size - at, "", at + 4 < size ? refused : same});
        }
    }
    try_changes("cuts", cuts, 300);
    try_changes("cuts", near_the_end, near_the_end.size());
}

TEST_P(BatteryFiles, every_byte_replaced)
{
    std::vector<Change> changes;
    for (size_t file = 0; file < good_.size(); ++file) {
        for (size_t at = 0; at < good_[file].size(); ++at) {
            const char byte = good_[file][at];
            for (const char by :
                 {'\0', '\1', '\x7F', '\x80', '\xFF', char(byte ^ 1), char(byte ^ ' ')}) {
                if (by != byte) changes.push_back({file, at, 1, {by}});
            }
        }
    }
    try_changes("bytes", changes, 500);
}

// Every marker, and every word of a record, wherever the record stands.
TEST_P(BatteryFiles, every_word_replaced)
{
    std::vector<Change> changes;
    for (size_t file = 0; file < good_.size(); ++file) {
        const auto size = static_cast<int64_t>(good_[file].size());
        for (const Subrecord& part : subrecords_of(good_[file], format_.big_endian)) {
            for (size_t word = 0; word <= part.length / 4 + 1; ++word) {
                const size_t at = word <= part.length / 4 ? part.head + 4 * word : part.tail;
                const int64_t count = int_at(good_[file], at, format_.big_endian);
                for (const int64_t by :
                     {int64_t{0}, int64_t{1}, int64_t{-1}, count + 1, count - 1, int64_t{INT32_MAX},
                      int64_t{INT32_MIN}, int64_t{65536}, size + 1, size - 1}) {
                    if (by != count) changes.push_back({file, at, 4, coder_.encoded(by, 4)});
                }
            }
        }
    }
    try_changes("words", changes, 500);
}

// The sign of a tail matters only while a file is recognised, its value wherever a record is left.
TEST_P(BatteryFiles, every_tail_marker_wrong)
{
    constexpr size_t enough_to_recognise = 10;
    std::vector<Change> changes;
    for (size_t file = 0; file < good_.size(); ++file) {
        const std::vector<Subrecord> parts = subrecords_of(good_[file], format_.big_endian);
        for (size_t i = 0; i < parts.size(); ++i) {
            const int64_t tail = int_at(good_[file], parts[i].tail, format_.big_endian);
            const auto add = [&](int64_t value, Outcome outcome) {
                changes.push_back({file, parts[i].tail, 4, coder_.encoded(value, 4), outcome});
            };
            for (const int64_t wrong : {tail + 1, tail - 1, tail + 256}) {
                add(wrong, i + 1 < parts.size() ? refused : same);
            }
            add(-tail, i < enough_to_recognise && tail != 0 ? refused : same);
        }
    }
    try_changes("tails", changes, 300);
}

enum class Fault { deleted, doubled, swapped, shorter, longer };

// What must come of a fault of one record; `any` where what is left is a sensible file, with
// another grid or other values.
static Outcome outcome_of(Fault fault, const KnownRecord& record)
{
    if (fault == Fault::longer) return same; // what is beyond the bytes asked for means nothing
    if (record.kind == Kind::preamble) return refused;
    if (record.is_passed_over || record.kind == Kind::name || fault == Fault::swapped) return any;
    if (fault == Fault::shorter) return refused;
    if (fault == Fault::deleted) return record.kind == Kind::data ? any : refused;
    return record.kind == Kind::descriptor ? refused : any;
}

TEST_P(BatteryFiles, every_record_damaged)
{
    std::vector<Change> changes;
    for (size_t file = 0; file < good_.size(); ++file) {
        const std::string& good = good_[file];
        const auto records = known_records(good, format_.big_endian);
        for (size_t i = 0; i < records.size(); ++i) {
            const KnownRecord& record = records[i];
            const std::string bytes = good.substr(record.begin, record.end - record.begin);
            const auto add = [&](Fault fault, size_t length, const std::string& by) {
                const bool differs = good.compare(record.begin, length, by) != 0;
                changes.push_back(
                    {file, record.begin, length, by, differs ? outcome_of(fault, record) : same});
            };
            const auto resize = [&](Fault fault, const std::string& data) {
                add(fault, bytes.size(), FldBuilder(format_).record(data).bytes());
            };
            add(Fault::deleted, bytes.size(), "");
            add(Fault::doubled, bytes.size(), bytes + bytes);
            if (i + 1 < records.size()) {
                const std::string next = good.substr(record.end, records[i + 1].end - record.end);
                add(Fault::swapped, bytes.size() + next.size(), next + bytes);
            }
            if (!record.data.empty()) resize(Fault::shorter, record.data.substr(1));
            resize(Fault::longer, record.data + "+");
            resize(Fault::longer, record.data + std::string(5000, '\1'));
        }
    }
    try_changes("records", changes, 300);
}

// What was counted when the dataset was opened is a bound for what is delivered, never a fact.
TEST_P(BatteryFiles, exchanged_cut_or_grown_before_the_read)
{
    size_t tried = 0;
    const auto exchange = [&](size_t file, const std::string& bytes, Outcome outcome) {
        const auto put = [&] { write(file, bytes); };
        const std::string trace = visit(put);
        expect(outcome, trace);
        write(file, good_[file]);
        expect_linked(trace, put);
        write(file, good_[file]);
        ++tried;
    };
    for (size_t file = 0; file < good_.size(); ++file) {
        for (const Dataset& other : datasets()) {
            SCOPED_TRACE(other.name);
            for (const NamedFile& by : other.files) {
                const std::string bytes = build(by.file, other.format);
                exchange(file, bytes, bytes == good_[file] ? same : any);
                exchange(file, build(by.file, format_), any);
            }
        }
        for (const std::string& more : {std::string("\1"), std::string(5000, '\0'), good_[file]}) {
            exchange(file, good_[file] + more, same);
        }
        std::vector<size_t> lengths(good_[file].size());
        std::iota(lengths.begin(), lengths.end(), 0U);
        for (const size_t length : sampled(lengths, 100)) {
            exchange(file, good_[file].substr(0, length), any);
        }
    }
    count_tried("pairs", tried);
}

// ---- good files ----

TEST_P(BatteryFiles, alike_in_every_format)
{
    std::vector<Format> formats;
    for (const bool big_endian : {false, true}) {
        for (const int32_t max_subrecord : {0, 1, 2, 3, 4, 5, 7, 8, 16}) {
            for (const int32_t values : {0, 1, 3}) {
                for (const int32_t bias : {1, 0, -5, 2000000000}) { // 0 and below are a bias too
                    formats.push_back({big_endian, max_subrecord, values, bias, 4});
                    formats.push_back({big_endian, max_subrecord, values, bias, 8});
                }
            }
        }
    }
    formats = sampled(formats, 100);
    for (const Format& format : formats) {
        write_all(format);
        EXPECT_EQ(visit(), good_trace_)
            << (format.big_endian ? "big-endian" : "little-endian") << ", sub-records of "
            << format.max_subrecord << ", values per record " << format.values_per_record
            << ", bias " << format.bias << ", precision " << format.precision;
    }
    count_tried("formats", formats.size());
}

// Opened twice, read backwards and again: every grid gives what it gave.
TEST_P(BatteryFiles, read_again_in_another_order)
{
    host_.open(directory_.path(GetParam().files.back().name));
    std::string reads;
    const auto read_backwards = [&] {
        host_.take_trace();
        for (int32_t grid = host_.grid_count(); grid >= 1; --grid) {
            host_.read(grid);
            reads.insert(0, host_.take_trace());
        }
    };
    const std::string again = visit(read_backwards);
    EXPECT_EQ(again, reads + "close\n");
    EXPECT_TRUE(good_trace_.ends_with(reads + "close\n"));
}

static int32_t count_of(const std::string& word, const std::string& trace)
{
    return static_cast<int32_t>(std::ranges::count(pick(trace, {word}), '\n'));
}

static const std::vector<std::string> all_but_variables = {
    "nodes", "boundary", "time", "flag", "face", "tet", "pyramid", "prism", "hex", "x", "y", "z"};

// Names without a row are counted only: faces of such a boundary have no type, and every block of
// values is as it was or undefined.
TEST_P(BatteryFiles, any_capacity)
{
    size_t tried = 0;
    const auto each = [&](int32_t& capacity, int32_t n, const auto& check) {
        for (const int32_t rows : {0, 1, n - 1, n, n + 1}) {
            if (rows < 0) continue;
            capacity = rows;
            has_other_capacities_ = true; // which a dataset refuses
            const std::string trace = visit();
            rows < n ? check(trace) : expect(same, trace);
            ++tried;
        }
        host_.controls = {};
        has_other_capacities_ = false;
    };
    each(host_.controls.grid_capacity, host_.grid_count(),
         [&](const std::string& trace) { expect(refused, trace); });
    each(host_.controls.boundary_capacity, count_of("boundary", good_trace_),
         [&](const std::string& trace) {
             expect(any, trace);
             const std::vector<std::string> others = {"nodes", "variable", "time"};
             EXPECT_EQ(pick(trace, others), pick(good_trace_, others));
             std::string stored = pick(trace, {"boundary"});
             stored.resize(std::min(stored.size(), stored.find("boundary count")));
             EXPECT_TRUE(pick(good_trace_, {"boundary"}).starts_with(stored)) << trace;
         });
    each(host_.controls.variable_capacity, count_of("variable", good_trace_),
         [&](const std::string& trace) {
             EXPECT_EQ(pick(trace, all_but_variables), pick(good_trace_, all_but_variables));
             expect_good_or_undefined(trace);
         });
    count_tried("capacities", tried);
}

// The host asks for other counts than those it was told.
TEST_P(BatteryFiles, any_count)
{
    const int32_t variables = count_of("variable", good_trace_);
    for (const int32_t asked : {0, 1, variables - 1, variables + 1, 2 * variables + 3}) {
        if (asked < 0) continue;
        const std::string trace = visit([&] { host_.set_variable_count(asked); });
        expect(any, trace);
        EXPECT_EQ(pick(trace, all_but_variables), pick(good_trace_, all_but_variables));
        expect_good_or_undefined(trace);
    }
    for (const int32_t change : {-1000000, -1, 1, 1000}) {
        const std::string trace = visit([&] { host_.change_node_counts(change); });
        expect(any, trace);
        std::istringstream counts(pick(good_trace_, {"nodes"}).substr(5));
        std::string flags = "flag 0\n";
        for (int32_t count = 0; counts >> count;) {
            const int32_t asked = std::max(count + change, 0);
            flags += asked == count ? "flag 0\n" : "flag 1\n";
        }
        EXPECT_EQ(pick(trace, {"flag"}), flags);
    }
    count_tried("capacities", 9);
}

// ---- the heap's contents ----

// Every dataset, whole and damaged here and there.
static void write_traces(std::ostream& stream)
{
    TestHost host;
    host.start();
    for (Dataset dataset : datasets()) {
        stream << run(host, dataset, dataset.format);
        NamedFile& file = dataset.files.back();
        const std::string good = build(file.file, dataset.format);
        for (size_t at = 200; at < good.size(); at += 41) {
            file.bytes = good;
            file.bytes[at] ^= 4;
            stream << run(host, dataset, dataset.format);
        }
    }
}

// Whatever memory holds when it is handed out, the traces are the same. What it is filled with is
// settled when a process starts: this test runs itself.
TEST(BatteryHeap, shows_in_no_trace)
{
    if (const char* const path = getenv("FLD_HEAP_TRACES")) {
        std::ofstream stream(path);
        const std::unique_ptr<volatile unsigned char[]> fresh(new unsigned char[999]);
        stream << int{fresh[500]} << "\n";
        write_traces(stream);
        return;
    }
    const TemporaryDirectory directory;
    const std::string program = std::filesystem::read_symlink("/proc/self/exe").string();
    std::string traces[2];
    int filled_with[2] = {};
    for (const int pattern : {0, 1}) {
        const std::string path = directory.path("traces"), fill = pattern ? "238" : "17";
        std::string command = "FLD_HEAP_TRACES=" + path;
        command.append(" GTEST_TOTAL_SHARDS=1 GTEST_SHARD_INDEX=0 GLIBC_TUNABLES=")
            .append("glibc.malloc.tcache_count=0:glibc.malloc.perturb=" + fill)
            .append(" ASAN_OPTIONS=max_malloc_fill_size=1000000:malloc_fill_byte=" + fill)
            .append(" " + program + " --gtest_filter=BatteryHeap.* >/dev/null");
        ASSERT_EQ(system(command.c_str()), 0);
        std::ifstream stream(path);
        stream >> filled_with[pattern];
        traces[pattern].assign(std::istreambuf_iterator<char>(stream), {});
    }
    EXPECT_NE(filled_with[0], filled_with[1]);
    EXPECT_GT(traces[0].size(), 100000U);
    EXPECT_TRUE(traces[0] == traces[1]);
}

} // namespace fld_test
