// The record layer by itself: framing, byte order, positions, typed reads.
#include "fld_builder.h"

#include "ui/util/nzn_io.h"

#include <fstream>
#include <gtest/gtest.h>
#include <limits>
#include <numeric>
#include <optional>
#include <sstream>

namespace fld_test
{

constexpr int32_t UNIT = 9;

class Records : public testing::Test
{
protected:
    ~Records() override { nzn_close_unit(UNIT); }

    int32_t open(const std::string& bytes)
    {
        return nzn_open_unit(UNIT, directory_.write("records", bytes).c_str());
    }
    // The int32 of a record; nothing when beginning or reading it fails.
    static std::optional<std::vector<int32_t>> next_ints(int64_t count)
    {
        std::vector<int32_t> values(static_cast<size_t>(count));
        if (nzn_begin_record(UNIT) != 0) return {};
        if (nzn_read_int32(UNIT, count, values.data()) != 0) return {};
        return values;
    }

    // Makes calls, each a word with what it must give: begin, skip, tell, and with a number: read
    // int32, pass over bytes, seek. Gives what the last read filled, -7 where it did not.
    static std::vector<int32_t> ints_after(const std::string& calls)
    {
        std::vector<int32_t> values;
        std::istringstream words(calls);
        for (std::string word; words >> word;) {
            const std::string call = word.substr(0, word.find('='));
            const size_t digits = call.find_first_of("-0123456789");
            const std::string name = call.substr(0, digits);
            const int64_t number = digits < call.size() ? std::stoll(call.substr(digits)) : 0;
            if (name == "read") values = {-7, -7, -7};
            const int64_t result = name == "begin"  ? nzn_begin_record(UNIT)
                                   : name == "skip" ? nzn_skip_record(UNIT)
                                   : name == "tell" ? nzn_tell(UNIT)
                                   : name == "read" ? nzn_read_int32(UNIT, number, values.data())
                                   : name == "pass" ? nzn_skip_bytes(UNIT, number)
                                                    : nzn_seek(UNIT, number);
            EXPECT_EQ(call + "=" + std::to_string(result), word) << calls;
        }
        return values;
    }

    TemporaryDirectory directory_;
};

using Ints = std::vector<int32_t>;

static FldBuilder good_records(int count, const Format& format = {})
{
    FldBuilder b(format);
    for (int i = 0; i < count; ++i) b.ints({i});
    return b;
}

// ---- recognising a file ----

TEST_F(Records, are_recognised_by_their_framing)
{
    const Format big{.big_endian = true};
    const std::string marker = FldBuilder().encoded(4, 4), wrong = FldBuilder().encoded(5, 4);
    const std::string damaged = marker + "data" + wrong, cut = marker + "da";
    const std::string zero(4, '\0'), lowest = FldBuilder().encoded(INT32_MIN, 4);
    const std::string head = FldBuilder().encoded(-4, 4);
    const auto bytes = [](const FldBuilder& b) { return b.bytes(); };
    const struct {
        const char* name;
        std::string bytes;
        int32_t status;
    } cases[] = {
        {"empty file", "", 2},
        {"3 bytes", std::string(3, '\0'), 2},
        {"head marker only", zero, 2},
        {"one empty record", zero + zero, 0},
        {"3 stray bytes", bytes(good_records(1)) + "xyz", 0},
        {"4 stray bytes", bytes(good_records(1)) + "wxyz", 2},
        {"text", "This is no unformatted file, whatever its name may say.\n", 2},
        {"tail differs", damaged, 2},
        {"9 good records", bytes(good_records(9)) + damaged, 2},
        {"10 good records", bytes(good_records(10)) + damaged, 0},
        {"10 good records, big-endian", bytes(good_records(10, big)) + damaged, 0},
        {"9 good records, cut", bytes(good_records(9)) + cut, 2},
        {"12 good records, cut", bytes(good_records(12)) + cut, 0},
        {"continued, tails right", head + "data" + marker + marker + "data" + head, 0},
        {"continued, last tail positive", head + "data" + marker + marker + "data" + marker, 2},
        {"continued, first tail negative", head + "data" + head + marker + "data" + head, 2},
        {"continued by nothing", head + "data" + marker + zero + zero, 0},
        {"head of the lowest number", lowest + zero + lowest, 2},
        {"10 good records, head of the lowest number", bytes(good_records(10)) + lowest + zero, 0},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(open(c.bytes), c.status) << c.name;
        EXPECT_EQ(nzn_begin_record(UNIT), c.status == 0 ? 0 : 5) << c.name;
    }
    EXPECT_EQ(nzn_open_unit(UNIT, directory_.path("missing").c_str()), 1);
    EXPECT_EQ(nzn_open_unit(UNIT, directory_.path("").c_str()), 1);
}

// Ten empty records are well framed in both orders; both walks then fail at the same place. Taken
// for big-endian, the last record would go on beyond the end of the file.
TEST_F(Records, tie_goes_to_little_endian)
{
    ASSERT_EQ(open(std::string(80, '\0') + FldBuilder().encoded(2, 4) + "??"), 0);
    for (int i = 0; i < 11; ++i) EXPECT_EQ(nzn_begin_record(UNIT), 0);
    char text[3];
    EXPECT_EQ(nzn_read_chars(UNIT, 2, text), 0);
    EXPECT_EQ(nzn_read_chars(UNIT, 1, text), 5);
}

// In one byte order a record of 65,536 bytes, in the other one 248 records of 256 bytes and a cut
// one: a file that is whole counts more than one that begins well.
TEST_F(Records, are_recognised_by_what_is_whole)
{
    for (const bool big_endian : {false, true}) {
        FldBuilder inner({.big_endian = !big_endian});
        for (int i = 0; i < 248; ++i) inner.record(std::string(256, 'd'));
        const std::string data = inner.bytes().substr(4) + std::string(68, '\0');
        ASSERT_EQ(open(FldBuilder({.big_endian = big_endian}).record(data).bytes()), 0);
        std::string text(data.size(), ' ');
        EXPECT_EQ(nzn_begin_record(UNIT), 0);
        EXPECT_EQ(nzn_read_chars(UNIT, 65536, text.data()), 0);
        EXPECT_TRUE(text == data);
    }
}

TEST_F(Records, may_be_as_long_as_a_marker_can_say)
{
    const std::string marker = FldBuilder().encoded(INT32_MAX, 4);
    const std::string path = directory_.write("records", marker);
    std::ofstream stream(path, std::ios::binary | std::ios::in);
    stream.seekp(std::streamoff{4} + INT32_MAX) << marker;
    stream.close();
    EXPECT_EQ(nzn_open_unit(UNIT, path.c_str()), 0);
    EXPECT_EQ(nzn_skip_record(UNIT), 0);
    EXPECT_EQ(nzn_begin_record(UNIT), 4);
}

TEST_F(Records, units_are_101_at_most)
{
    const std::string path = directory_.write("records", good_records(1).bytes());
    for (int32_t unit = 0; unit < 101; ++unit) ASSERT_EQ(nzn_open_unit(unit, path.c_str()), 0);
    EXPECT_EQ(nzn_open_unit(101, path.c_str()), 1);
    EXPECT_EQ(nzn_begin_record(101), 5);
    EXPECT_EQ(nzn_open_unit(50, path.c_str()), 0);
    EXPECT_EQ(nzn_close_unit(3), 0);
    EXPECT_EQ(nzn_close_unit(3), 0);
    EXPECT_EQ(nzn_open_unit(101, path.c_str()), 0);
    for (int32_t unit = 0; unit < 102; ++unit) {
        EXPECT_EQ(nzn_begin_record(unit), unit == 3 ? 5 : 0) << unit;
        EXPECT_EQ(nzn_close_unit(unit), 0);
    }
}

TEST_F(Records, fail_on_a_unit_that_is_not_open)
{
    int32_t number = 0;
    (void)ints_after("begin=5 skip=5 tell=-1 seek0=5 read0=5 pass0=5");
    EXPECT_EQ(nzn_take_records(UNIT, 4, 1, 1, &number), 0);
    EXPECT_FALSE(nzn_can_hold(UNIT, 0));
    EXPECT_EQ(nzn_return(UNIT, nzn_mark(UNIT)), 5);
    EXPECT_FALSE(nzn_is_within_file(UNIT) || nzn_file_ended(UNIT));
    EXPECT_EQ(nzn_close_unit(UNIT), 0);
}

// ---- reading ----

// The same numbers and text whatever the framing; short sub-records divide every number.
TEST_F(Records, read_the_same_in_every_framing)
{
    for (const bool big_endian : {false, true}) {
        for (const int32_t limit : {0, 1, 2, 3, 4, 5, 7, 11, 16}) {
            const Format format{.big_endian = big_endian, .max_subrecord = limit};
            FldBuilder b(format);
            const std::string doubles =
                b.encoded(0x3FF0000000000000, 8) + b.encoded(int64_t{0x7FF0} << 48, 8);
            b.ints({258, -1, INT32_MIN, 7}).record("ABCDEFG").record(doubles);
            b.record(b.encoded(0x3FC00000, 4)).ints({1, 2, 3}).ints({42});
            SCOPED_TRACE("sub-records of " + std::to_string(limit));
            ASSERT_EQ(open(b.bytes()), 0);
            EXPECT_EQ(next_ints(4), (Ints{258, -1, INT32_MIN, 7}));
            char text[8] = "-------";
            EXPECT_EQ(nzn_begin_record(UNIT), 0);
            EXPECT_EQ(nzn_read_chars(UNIT, 2, text), 0);
            EXPECT_EQ(nzn_skip_bytes(UNIT, 3), 0);
            EXPECT_EQ(nzn_read_chars(UNIT, 2, text + 2), 0);
            EXPECT_STREQ(text, "ABFG---");
            double real[2] = {};
            EXPECT_EQ(nzn_begin_record(UNIT), 0);
            EXPECT_EQ(nzn_read_float64(UNIT, 2, real), 0);
            EXPECT_EQ(real[0], 1.0);
            EXPECT_EQ(real[1], std::numeric_limits<double>::infinity());
            float single = 0;
            EXPECT_EQ(nzn_begin_record(UNIT), 0);
            EXPECT_EQ(nzn_read_float32(UNIT, 1, &single), 0);
            EXPECT_EQ(single, 1.5F);
            EXPECT_EQ(next_ints(1), Ints{1}); // the rest is passed over by the next begin
            EXPECT_EQ(next_ints(1), Ints{42});
            EXPECT_EQ(nzn_begin_record(UNIT), 4);
            EXPECT_EQ(nzn_begin_record(UNIT), 4);
        }
    }
}

// Long records are read straight to where they are wanted, runs of short ones many at a time.
TEST_F(Records, are_read_whole_when_long_and_in_runs_when_short)
{
    Ints longer(200'000), run(120'000);
    std::iota(longer.begin(), longer.end(), -1000);
    std::iota(run.begin(), run.end(), 5);
    for (const Format& format : {Format{}, Format{.big_endian = true},
                                 Format{.big_endian = true, .max_subrecord = 100'001}}) {
        FldBuilder b(format);
        b.ints(longer).ints({42});
        for (int32_t i = 5; i < 120'005; i += 3) b.ints({i, i + 1, i + 2});
        ASSERT_EQ(open(b.ints({7}).bytes()), 0);
        EXPECT_EQ(next_ints(200'000), longer);
        EXPECT_EQ(next_ints(1), Ints{42});
        const RecordMark start = nzn_mark(UNIT);
        Ints taken(120'000);
        EXPECT_EQ(nzn_take_records(UNIT, 4, 3, 40'001, taken.data()), 40'000);
        EXPECT_EQ(taken, run);
        EXPECT_EQ(next_ints(1), Ints{7});
        EXPECT_EQ(nzn_return(UNIT, start), 0);
        EXPECT_EQ(nzn_take_records(UNIT, 4, 3, 2, nullptr), 2);
        EXPECT_EQ(next_ints(3), (Ints{11, 12, 13}));
        EXPECT_EQ(nzn_seek(UNIT, nzn_tell(UNIT)), 0);
        EXPECT_EQ(nzn_take_records(UNIT, 4, 3, 1, taken.data()), 1);
        EXPECT_EQ(taken[0], 14);
        EXPECT_EQ(nzn_take_records(UNIT, 4, 0, 1, taken.data()), 0) << "records of nothing";
        EXPECT_EQ(nzn_take_records(UNIT, 4, 2, 1, taken.data()), 0) << "records of another length";
    }
}

TEST_F(Records, refuse_more_than_they_hold)
{
    for (const int32_t limit : {0, 3}) {
        ASSERT_EQ(open(FldBuilder({.max_subrecord = limit}).ints({1, 2}).ints({3}).bytes()), 0);
        (void)ints_after("read1=5 begin=0 read0=0 read-1=0 read9223372036854775807=5");
        EXPECT_EQ(ints_after("read3=5"), (Ints{1, 2, -7}));
        EXPECT_EQ(ints_after("read1=5 begin=0 read1=0"), (Ints{3, -7, -7}));
        EXPECT_EQ(ints_after("pass1=5 seek0=0 begin=0 pass9=5 seek0=0 begin=0 seek0=0 read1=5"),
                  (Ints{-7, -7, -7}));
        EXPECT_EQ(next_ints(2), (Ints{1, 2}));
    }
}

// What an incomplete read leaves behind is as it stands in the file, also what came long before.
TEST_F(Records, are_left_as_they_stand_when_they_end_too_soon)
{
    for (const bool big_endian : {false, true}) {
        ASSERT_EQ(open(FldBuilder({.big_endian = big_endian}).ints(Ints(33'000, 1)).bytes()), 0);
        Ints values(33'001, 7);
        EXPECT_EQ(nzn_begin_record(UNIT), 0);
        EXPECT_EQ(nzn_read_int32(UNIT, 33'001, values.data()), 5);
        const int32_t stored = big_endian ? 0x01000000 : 1;
        for (const size_t i : {0U, 32'767U, 32'768U, 32'999U}) EXPECT_EQ(values[i], stored) << i;
        EXPECT_EQ(values.back(), 7);
    }
}

// ---- positions ----

TEST_F(Records, can_be_found_again)
{
    const std::string large(5000, 'x'); // passed over by seeking, small ones by reading
    for (const int32_t limit : {0, 7, 4096, 4097}) {
        const Format format{.max_subrecord = limit};
        const int64_t second =
            static_cast<int64_t>(FldBuilder(format).record(large).bytes().size());
        const FldBuilder b = FldBuilder(format).record(large).ints({1}).record("").ints({2});
        ASSERT_EQ(open(b.bytes()), 0);
        const int64_t size = std::ssize(b.bytes());
        const int64_t third = second + 12;
        const std::string at = std::to_string(second), end = std::to_string(size);
        (void)ints_after("seek-1=5 tell=0 begin=0 read1=0 tell=" + at + " tell=" + at);
        EXPECT_TRUE(nzn_can_hold(UNIT, size - second));
        EXPECT_FALSE(nzn_can_hold(UNIT, size - second + 1));
        EXPECT_EQ(next_ints(1), Ints{1});
        EXPECT_EQ(ints_after("skip=0 begin=0 read1=0 tell=" + end + " begin=4")[0], 2);
        EXPECT_EQ(nzn_seek(UNIT, size + 5000), 0);
        EXPECT_FALSE(nzn_can_hold(UNIT, 0));
        EXPECT_EQ(ints_after("seek" + at + "=0 begin=0 read1=0")[0], 1);
        EXPECT_EQ(ints_after("seek" + std::to_string(third) + "=0 skip=0 begin=0 read1=0")[0], 2);
        EXPECT_EQ(ints_after("seek0=0 skip=0 begin=0 read1=0")[0], 1);
    }
}

// A file may be longer by the time that it is asked what it holds.
TEST_F(Records, may_be_added_while_they_are_read)
{
    const std::string bytes = good_records(2).bytes();
    ASSERT_EQ(open(bytes.substr(0, 12)), 0);
    EXPECT_EQ(next_ints(1), Ints{0});
    EXPECT_FALSE(nzn_can_hold(UNIT, 5));
    EXPECT_EQ(nzn_begin_record(UNIT), 4);
    std::ofstream(directory_.path("records"), std::ios::app) << bytes.substr(12);
    EXPECT_TRUE(nzn_can_hold(UNIT, 12));
    EXPECT_FALSE(nzn_file_ended(UNIT));
    EXPECT_EQ(ints_after("seek12=0 begin=0 read1=0 tell=24")[0], 1);
    EXPECT_TRUE(nzn_file_ended(UNIT));
}

// ---- damage behind a good start ----

// Ten good records of 12 bytes, and what stands behind them. Seeking beyond the end of a file
// succeeds; only the next read shows it.
TEST_F(Records, fail_where_the_damage_begins_and_keep_their_place)
{
    const FldBuilder b;
    const std::string good = good_records(10).bytes(), data = "data", minus_four = b.encoded(-4, 4);
    const std::string four = b.encoded(4, 4), five = b.encoded(5, 4), hundred = b.encoded(100, 4);
    const struct {
        std::string bytes; // behind the good records
        const char* calls;
    } cases[] = {
        // Nothing follows: before a record was begun, and after the last one.
        {"", "tell=120 begin=4 tell=120 begin=4"},
        {"", "seek108=0 begin=0 begin=4 tell=-1 begin=4"},
        {"", "skip=4 tell=120 seek108=0 skip=0 skip=4 tell=-1"},
        {"", "seek130=5 tell=120 seek0=0 seek130=5 tell=120"},
        {"", "seek9999=0 tell=9999 begin=4"},
        // The head marker is cut, is no length, or leads beyond the file.
        {"xy", "begin=4 tell=122"},
        {b.encoded(INT32_MIN, 4) + data, "begin=5 read1=5 seek120=0 skip=5"},
        {b.encoded(INT32_MAX, 4) + data, "begin=0 read1=0 begin=4 seek120=0 skip=0"},
        // The data are cut: not passed, not counted.
        {hundred + "da", "skip=5 begin=4 tell=-1"},
        {four + "da", "begin=0 read1=4 begin=5 seek120=0 skip=5"},
        // The tail marker is cut, missing or wrong; its sign means nothing.
        {four + data + "\4", "begin=0 read1=0 begin=4 seek120=0 skip=0"},
        {four + data, "begin=0 read1=0 begin=4 seek120=0 skip=0"},
        {four + data + five + four + data + four, "begin=0 read1=0 begin=5 seek120=0 skip=0"},
        {four + data + minus_four + four + data + five, "begin=0 read1=0 begin=0 seek120=0 skip=0"},
        // The continuation is missing, or its announcement ends with another length.
        {minus_four + data + four, "begin=0 read1=0 read1=4 tell=-1 begin=4"},
        {minus_four + data + four, "begin=0 read1=0 begin=4 seek120=0 skip=4 tell=-1"},
        {minus_four + data + five + four, "begin=0 read1=0 begin=5 seek120=0 skip=5"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.bytes));
        ASSERT_EQ(open(good + c.bytes), 0);
        (void)ints_after(std::string("seek120=0 ") + c.calls);
        EXPECT_EQ(ints_after("seek0=0 begin=0 read1=0")[0], 0);
    }
}

} // namespace fld_test
