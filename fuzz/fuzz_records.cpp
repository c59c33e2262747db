// The record layer: every record of a well framed file against its own parse, then a small program
// of calls over any file.
#include "input.h"
#include "ui/util/nzn_io.h"

#include <algorithm>
#include <limits>

using fld_fuzz::require;

constexpr int32_t UNIT = 3;

static void compare_records(const fld_fuzz::FldRecords& file)
{
    for (const std::string& record : file.records) {
        std::string data(record.size(), '\0');
        const auto length = static_cast<int32_t>(data.size());
        require(nzn_begin_record(UNIT) == NZN_OK, "a record was not begun");
        require(nzn_read_chars(UNIT, length, data.data()) == NZN_OK, "a record was not read");
        require(data == record, "a record was not read as it stands");
        require(nzn_read_chars(UNIT, 1, data.data()) != NZN_OK, "more than a record was read");
        require(nzn_seek(UNIT, nzn_tell(UNIT)) == NZN_OK, "a position was not found");
    }
    require(nzn_begin_record(UNIT) == NZN_END_OF_FILE, "a record behind the last one");
    require(nzn_seek(UNIT, 0) == NZN_OK, "the start was not found");
}

static void check_status(int32_t status)
{
    require(status == NZN_OK || status == NZN_END_OF_FILE || status == NZN_FAILURE, "status");
    fld_fuzz::show("status " + std::to_string(status) + "\n");
}

template <class T, class Read> static void read_values(int64_t count, Read read)
{
    // Exactly as long as the count says: the sanitizer guards both ends.
    std::vector<T> values(static_cast<size_t>(std::max<int64_t>(count, 0)));
    check_status(read(UNIT, static_cast<int32_t>(count), values.data()));
}

static void call(uint8_t step, int64_t file_size)
{
    static constexpr int64_t counts[] = {1, 0, 2, 3, 4, 8, 32, 37, 100, 5000, -1};
    static constexpr int64_t far_counts[] = {INT32_MAX, 0x100000000, INT64_MAX, INT64_MIN};
    const int64_t argument = step >> 3;
    const int64_t count = counts[static_cast<size_t>(argument) % std::size(counts)];
    switch (step & 7) {
    case 0: return check_status(nzn_begin_record(UNIT));
    case 1: return check_status(nzn_skip_record(UNIT));
    case 2: return read_values<int32_t>(count, nzn_read_int32);
    case 3: return read_values<float>(count, nzn_read_float32);
    case 4: return read_values<double>(count, nzn_read_float64);
    case 5: return read_values<char>(count, nzn_read_chars);
    case 6:
        return check_status(
            nzn_skip_bytes(UNIT, argument < 28 ? count : far_counts[argument - 28]));
    default: break;
    }
    const int64_t position = argument < 16 ? nzn_tell(UNIT) : (argument - 16) * file_size / 15;
    if (position >= 0) check_status(nzn_seek(UNIT, position));
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const fld_test::TemporaryDirectory directory;
    const fld_fuzz::Input input = fld_fuzz::split_input(data, size);
    const auto file_size = static_cast<int64_t>(input.file.size());
    const fld_fuzz::FldRecords file = fld_fuzz::parse_records(input.file);
    const bool well_framed = !file.records.empty() && file.rest.size() < 4;

    const int32_t status = nzn_open_unit(UNIT, directory.write("a.fld", input.file).c_str());
    require(status == NZN_OK || (status == NZN_NOT_UNFORMATTED && !well_framed), "open");
    fld_fuzz::show("open " + std::to_string(status) + "\n");
    if (status == NZN_OK && well_framed) compare_records(file);
    for (const char step : input.choices) {
        call(static_cast<uint8_t>(step), file_size);
        require(!nzn_can_hold(UNIT, file_size + 1), "bytes left");
    }
    require(nzn_close_unit(UNIT) == NZN_OK, "close");
    return 0;
}
