#include "ui/util/nzn_io.h"

#include "ui/util/byte_order.h"
#include "ui/util/utf8wrap.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdio>
#include <cstring>

// ---- state ----

// An open file, and the place in it where it stands.
struct RecordStream : RecordMark {
    FILE* file;          // owned; read by position alone, never through its own buffer
    int32_t unit;        // the number it was opened under
    bool swapped;        // the file is big-endian
    int64_t file_length; // bytes, when it was last asked for
    bool read_failed;    // the last read from the file did; otherwise it may have ended
};

constexpr int32_t MAX_UNITS = 101;
static RecordStream unit_table[MAX_UNITS]; // no holes; the order carries no meaning
static int32_t last_unit = -1;

static RecordStream* find_unit(int32_t unit)
{
    for (int32_t slot = 0; slot <= last_unit; ++slot) {
        if (unit_table[slot].unit != unit) continue;
        return unit_table[slot].file ? &unit_table[slot] : nullptr; // always a file: no holes
    }
    return nullptr;
}

// ---- bytes and positions ----

// The part of a file that was read last; there is one window for all units. Markers and short
// records are taken from it, long data goes straight to its destination. The window is what makes
// short records fast: one system call serves thousands of them.
constexpr int64_t WINDOW_SIZE = 262144;
constexpr int64_t FIRST_FILL = 512; // after a jump only the markers there may be wanted
constexpr int64_t DIRECT_SIZE = 32768;

struct Window {
    FILE* file; // null when it holds nothing
    int64_t begin;
    int64_t size;
    int64_t next_fill; // doubles as long as reading goes on without a jump
};
static Window window;
static unsigned char window_bytes[WINDOW_SIZE];

static int32_t short_read_status(const RecordStream* stream)
{
    return stream->read_failed ? NZN_FAILURE : NZN_END_OF_FILE;
}

static NznGoOn* go_on;
static void* go_on_context;

void nzn_ask_while_reading(NznGoOn* asked, void* context)
{
    go_on = asked;
    go_on_context = context;
}

constexpr int64_t ASKED_EVERY = 1 << 20; // bytes

// Reads from the file itself. Returns the number of bytes read.
static int64_t read_at(RecordStream* stream, int64_t position, void* to, int64_t count)
{
    const int64_t most = go_on ? ASKED_EVERY : count;
    for (int64_t got = 0;;) {
        const int64_t wanted = std::min(most, count - got);
        const int64_t here = utf8wrap::read_at(stream->file, position + got, wanted,
                                               static_cast<char*>(to) + got, &stream->read_failed);
        got += here;
        if (go_on && !go_on(go_on_context, here)) {
            stream->read_failed = true;
            return 0;
        }
        if (here < wanted || got == count) return got;
    }
}

// How many bytes from the current position on are in the window.
static int64_t bytes_in_window(const RecordStream* stream)
{
    if (window.file != stream->file || stream->position < window.begin) return 0;
    return std::max<int64_t>(0, window.begin + window.size - stream->position);
}

static const unsigned char* at_position(const RecordStream* stream)
{
    return window_bytes + (stream->position - window.begin);
}

// Fills the window with at least `need` bytes from the current position on, or with all that the
// file has. Returns how many it then holds.
static int64_t fill_window(RecordStream* stream, int64_t need)
{
    const int64_t kept = bytes_in_window(stream);
    if (kept >= need) return kept;
    const bool goes_on = window.file == stream->file && stream->position >= window.begin &&
                         stream->position <= window.begin + window.size;
    if (kept > 0) memmove(window_bytes, at_position(stream), static_cast<size_t>(kept));
    const int64_t fill = goes_on ? std::min(window.next_fill * 2, WINDOW_SIZE) : FIRST_FILL;
    const int64_t wanted = std::min(std::max(fill, need), WINDOW_SIZE - kept);
    window = {stream->file, stream->position, kept, fill};
    window.size += read_at(stream, stream->position + kept, window_bytes + kept, wanted);
    return window.size;
}

// Copies bytes from the current position on. Returns the number copied.
static int64_t read_bytes(RecordStream* stream, void* to, int64_t count)
{
    auto* destination = static_cast<unsigned char*>(to);
    int64_t got = 0;
    while (got < count) {
        const int64_t left = count - got;
        int64_t here = std::min(bytes_in_window(stream), left);
        if (here > 0) {
            memcpy(destination + got, at_position(stream), static_cast<size_t>(here));
        } else if (left >= DIRECT_SIZE) {
            here = read_at(stream, stream->position, destination + got, left);
        } else if (fill_window(stream, left) > 0) {
            continue;
        }
        if (here == 0) break;
        stream->position += here;
        got += here;
    }
    return got;
}

// Up to this many bytes are skipped by reading them, which notices the end of the file. Longer
// skips do not look: only a later read can notice it.
constexpr int64_t READ_TO_SKIP = 4096;

// A skip that meets the end of the file stands there.
static bool skip_forward(RecordStream* stream, int64_t count)
{
    if (count > INT64_MAX - stream->position) return false;
    const int64_t there = count <= READ_TO_SKIP ? fill_window(stream, count) : count;
    stream->position += std::min(there, count);
    return there >= count;
}

static bool move_to(RecordStream* stream, int64_t position)
{
    if (position < 0) return false;
    if (position > stream->position) return skip_forward(stream, position - stream->position);
    stream->position = position;
    return true;
}

// ---- markers and sub-records ----

struct Marker {
    int64_t length; // its magnitude, in 64 bits: the lowest int32 has no positive twin
    bool negative;
};

// False when fewer than 4 bytes are left.
static bool read_marker(RecordStream* stream, Marker* marker)
{
    uint32_t word = 0;
    if (read_bytes(stream, &word, sizeof word) != sizeof word) return false;
    if (stream->swapped) word = reversed(word);
    const int64_t value = static_cast<int32_t>(word);
    *marker = {value < 0 ? -value : value, value < 0};
    return true;
}

static int32_t read_head_marker(RecordStream* stream)
{
    Marker head{};
    if (!read_marker(stream, &head)) return short_read_status(stream);
    if (head.length > INT32_MAX) return NZN_FAILURE;
    stream->continued = head.negative;
    stream->reclen = static_cast<int32_t>(head.length);
    stream->sub_reclen_remaining = stream->reclen;
    return NZN_OK;
}

static int32_t check_tail_marker(RecordStream* stream)
{
    Marker tail{};
    if (!read_marker(stream, &tail)) return short_read_status(stream);
    return tail.length == stream->reclen ? NZN_OK : NZN_FAILURE;
}

static void stand_at_boundary(RecordStream* stream)
{
    stream->records_begun = 0;
    stream->offset = 0;
    stream->reclen = 0;
    stream->sub_reclen_remaining = 0;
    stream->continued = false;
}

// From the end of one sub-record's data to the start of the next one's.
static int32_t cross_subrecord(RecordStream* stream)
{
    if (!stream->continued) return NZN_FAILURE;
    const int32_t status = check_tail_marker(stream);
    return status != NZN_OK ? status : read_head_marker(stream);
}

// Passes over what is left of the current record, up to its last tail marker.
static int32_t finish_subrecords(RecordStream* stream)
{
    for (;;) {
        if (!skip_forward(stream, stream->sub_reclen_remaining)) return NZN_FAILURE;
        stream->offset += stream->sub_reclen_remaining;
        stream->sub_reclen_remaining = 0;
        if (!stream->continued) return NZN_OK;
        const int32_t status = cross_subrecord(stream);
        if (status != NZN_OK) return status;
    }
}

static bool record_is_begun(const RecordStream* stream)
{
    return stream->records_begun > 0 || stream->offset > 0;
}

// The same and past that marker.
static int32_t finish_record(RecordStream* stream)
{
    const int32_t status = finish_subrecords(stream);
    return status != NZN_OK ? status : check_tail_marker(stream);
}

static int32_t read_across_subrecords(RecordStream* stream, void* buffer, int64_t element_size,
                                      int64_t count)
{
    int64_t want = element_size * count;
    auto* to = static_cast<unsigned char*>(buffer);
    while (want > 0) {
        const int64_t take = std::min<int64_t>(want, stream->sub_reclen_remaining);
        const int64_t got = read_bytes(stream, to, take);
        to += got;
        stream->offset += got;
        stream->sub_reclen_remaining -= static_cast<int32_t>(got);
        if (got != take) return short_read_status(stream);
        want -= take;
        if (want == 0) return NZN_OK;
        const int32_t status = cross_subrecord(stream);
        if (status != NZN_OK) return status;
    }
    return NZN_OK;
}

static int32_t skip_across_subrecords(RecordStream* stream, int64_t count)
{
    int64_t left = count;
    while (left > stream->sub_reclen_remaining) {
        if (!stream->continued) return NZN_FAILURE;
        if (!skip_forward(stream, stream->sub_reclen_remaining)) return NZN_FAILURE;
        left -= stream->sub_reclen_remaining;
        stream->sub_reclen_remaining = 0;
        const int32_t status = cross_subrecord(stream);
        if (status != NZN_OK) return status;
    }
    if (!skip_forward(stream, left)) return NZN_FAILURE;
    stream->sub_reclen_remaining -= static_cast<int32_t>(left);
    stream->offset += count;
    return NZN_OK;
}

// ---- recognising a file ----

constexpr int64_t ENOUGH_GOOD_SUBRECORDS = 10;

// What a walk over the markers in one byte order found.
struct Framing {
    int64_t good = 0; // sub-records before the first flaw, or before the walk stopped
    bool whole = false;
    bool stopped = false;
};

// Walks the markers of at most `most` sub-records. Up to 3 stray bytes at the end are accepted.
static Framing check_framing(RecordStream* stream, bool swapped, int64_t most)
{
    stream->swapped = swapped;
    stream->position = 0;
    Framing framing;
    bool continues = false; // the sub-record before this one announced it
    Marker head{};
    for (; read_marker(stream, &head); ++framing.good) {
        if (framing.good == most) {
            framing.stopped = true;
            return framing;
        }
        Marker tail{};
        if (head.length > INT32_MAX || !skip_forward(stream, head.length)) return framing;
        if (!read_marker(stream, &tail)) return framing;
        // A tail is negative exactly when its sub-record continues an earlier one; a zero has no
        // sign.
        const bool sign_fits = tail.negative == continues || tail.length == 0;
        if (tail.length != head.length || !sign_fits) return framing;
        continues = head.negative;
    }
    framing.whole = !stream->read_failed && framing.good > 0;
    return framing;
}

// Finds the byte order; false when the file is not framed in either. A file that is damaged, or
// still being written, counts when enough of its start is well framed. So a file whose start is
// well framed in one order and not in the other is recognised whatever follows, and only one that
// begins well in both is walked to its end: opening takes the same short time at any size.
static bool recognise(RecordStream* stream)
{
    for (const int64_t most : {ENOUGH_GOOD_SUBRECORDS, INT64_MAX}) {
        const Framing little = check_framing(stream, false, most);
        const Framing big = little.whole ? Framing{} : check_framing(stream, true, most);
        if (little.stopped && (big.whole || big.stopped)) continue;
        stream->swapped = !little.whole && (big.whole || big.good > little.good);
        stream->position = 0;
        return little.whole || big.whole ||
               std::max(little.good, big.good) >= ENOUGH_GOOD_SUBRECORDS;
    }
    return false; // never: the second walk does not stop early
}

// ---- units ----

int32_t nzn_close_unit(int32_t unit)
{
    RecordStream* stream = find_unit(unit);
    if (!stream) return NZN_OK;
    if (window.file == stream->file) window = {};
    const int32_t status = fclose(stream->file) == 0 ? NZN_OK : NZN_FAILURE;
    *stream = unit_table[last_unit];
    unit_table[last_unit] = {};
    --last_unit;
    return status;
}

int32_t nzn_open_unit(int32_t unit, const char* path)
{
    nzn_close_unit(unit);
    if (last_unit >= MAX_UNITS - 1) return NZN_CANNOT_OPEN;
    FILE* file = utf8wrap::fopen(path, "rb");
    if (!file) return NZN_CANNOT_OPEN;
    RecordStream* stream = &unit_table[++last_unit];
    *stream = {};
    stream->file = file;
    stream->unit = unit;
    stream->file_length = utf8wrap::file_length(file);
    const int32_t refusal = stream->file_length < 0 ? NZN_CANNOT_OPEN : NZN_NOT_UNFORMATTED;
    if (stream->file_length >= 0 && recognise(stream)) return NZN_OK;
    nzn_close_unit(unit);
    return refusal;
}

// ---- records ----

// Goes to the first byte of the next record's data. The record does not count as begun yet: until
// then a failure leaves the stream inside the record before it.
static int32_t enter_next_record(RecordStream* stream)
{
    int32_t status = record_is_begun(stream) ? finish_record(stream) : NZN_OK;
    if (status == NZN_OK) status = read_head_marker(stream);
    if (status == NZN_OK) stream->offset = 0;
    return status;
}

int32_t nzn_begin_record(int32_t unit)
{
    RecordStream* stream = find_unit(unit);
    if (!stream) return NZN_FAILURE;
    const int32_t status = enter_next_record(stream);
    if (status == NZN_OK) ++stream->records_begun;
    return status;
}

int32_t nzn_skip_record(int32_t unit)
{
    RecordStream* stream = find_unit(unit);
    if (!stream) return NZN_FAILURE;
    int32_t status = enter_next_record(stream);
    if (status == NZN_OK) status = finish_subrecords(stream);
    if (status == NZN_OK) ++stream->records_begun;
    return status;
}

int64_t nzn_tell(int32_t unit)
{
    RecordStream* stream = find_unit(unit);
    // A skip that failed left data to be passed over of a record that does not count as begun.
    if (!stream || finish_subrecords(stream) != NZN_OK) return -1;
    if (record_is_begun(stream) && check_tail_marker(stream) != NZN_OK) return -1;
    stand_at_boundary(stream);
    return stream->position;
}

int32_t nzn_seek(int32_t unit, int64_t position)
{
    RecordStream* stream = find_unit(unit);
    if (!stream || !move_to(stream, position)) return NZN_FAILURE;
    stand_at_boundary(stream);
    return NZN_OK;
}

// A file may still be written to: only an end that was asked for just now refuses anything.
static bool file_reaches(RecordStream* stream, int64_t end)
{
    if (end <= stream->file_length) return true;
    stream->file_length = utf8wrap::file_length(stream->file);
    return end <= stream->file_length;
}

bool nzn_can_hold(int32_t unit, int64_t count)
{
    RecordStream* stream = find_unit(unit);
    return stream && count <= INT64_MAX - stream->position &&
           file_reaches(stream, stream->position + count);
}

bool nzn_is_within_file(int32_t unit)
{
    RecordStream* stream = find_unit(unit);
    return stream && file_reaches(stream, stream->position);
}

bool nzn_file_ended(int32_t unit)
{
    const RecordStream* stream = find_unit(unit);
    return stream && !stream->read_failed && !nzn_can_hold(unit, 1);
}

// ---- record contents ----

// Puts values that were just read into the byte order of the processor, and searches them.
static void convert_and_search(const RecordStream* stream, void* data, int64_t element_size,
                               int64_t count, ValueSearch* search)
{
    if (stream->swapped) reverse_bytes(data, element_size, count);
    if (search && !search->found) search->found = holds_value(data, count, search->bits);
}

// How many elements are read at a time: few enough to be in the processor's cache still when they
// are converted.
constexpr int64_t CONVERTED_AT_A_TIME = 32768;

static int32_t read_and_convert(RecordStream* stream, int64_t element_size, int64_t count,
                                unsigned char* destination, ValueSearch* search)
{
    for (int64_t at = 0; at < count; at += CONVERTED_AT_A_TIME) {
        const int64_t n = std::min(CONVERTED_AT_A_TIME, count - at);
        unsigned char* const to = destination + at * element_size;
        const int32_t status = read_across_subrecords(stream, to, element_size, n);
        if (status != NZN_OK) {
            // An incomplete read leaves its bytes as they are in the file.
            if (stream->swapped) reverse_bytes(destination, element_size, at);
            return status;
        }
        convert_and_search(stream, to, element_size, n, search);
    }
    return NZN_OK;
}

static int32_t read_elements(int32_t unit, int64_t element_size, int64_t count, void* destination,
                             ValueSearch* search = nullptr)
{
    RecordStream* stream = find_unit(unit);
    if (!stream) return NZN_FAILURE;
    if (count < 1) return NZN_OK;
    if (count > INT64_MAX / element_size) return NZN_FAILURE;
    auto* const to = static_cast<unsigned char*>(destination);
    return search || (stream->swapped && element_size > 1)
               ? read_and_convert(stream, element_size, count, to, search)
               : read_across_subrecords(stream, to, element_size, count);
}

int32_t nzn_read_int32(int32_t unit, int64_t count, int32_t* destination)
{
    return read_elements(unit, sizeof(int32_t), count, destination);
}

int32_t nzn_read_float32(int32_t unit, int64_t count, float* destination)
{
    return read_elements(unit, sizeof(float), count, destination);
}

int32_t nzn_read_and_search(int32_t unit, int64_t count, float* destination, ValueSearch* search)
{
    return read_elements(unit, sizeof(float), count, destination, search);
}

int32_t nzn_read_float64(int32_t unit, int64_t count, double* destination)
{
    return read_elements(unit, sizeof(double), count, destination);
}

int32_t nzn_read_chars(int32_t unit, int32_t count, char* destination)
{
    return read_elements(unit, 1, count, destination);
}

int32_t nzn_skip_bytes(int32_t unit, int64_t count)
{
    RecordStream* stream = find_unit(unit);
    if (!stream) return NZN_FAILURE;
    if (count < 1) return NZN_OK;
    return skip_across_subrecords(stream, count);
}

// ---- runs of short records ----

constexpr int64_t LONGEST_SHORT_RECORD = 4096; // bytes; many of them stand in the window

// The data of the next record, when the window holds all of it, the markers before it are as
// expected (the tail of the current record, its own head) and it has `length` bytes; otherwise
// null.
static const unsigned char* next_record_data(const RecordStream* stream, int64_t length,
                                             uint32_t marker)
{
    const int64_t tail_size = record_is_begun(stream) ? 4 : 0;
    if (bytes_in_window(stream) < tail_size + 4 + length) return nullptr;
    const unsigned char* const at = at_position(stream);
    uint32_t head = 0;
    memcpy(&head, at + tail_size, sizeof head);
    if (head != marker) return nullptr;
    uint32_t tail = 0;
    memcpy(&tail, at, sizeof tail);
    if (stream->swapped) tail = reversed(tail);
    const bool tail_fits = tail_size == 0 || tail == static_cast<uint32_t>(stream->reclen);
    return tail_fits ? at + tail_size + 4 : nullptr;
}

static void stand_after_records(RecordStream* stream, int64_t count, int64_t length,
                                const unsigned char* end)
{
    stream->position = window.begin + (end - window_bytes);
    stream->reclen = static_cast<int32_t>(length);
    stream->offset = length;
    stream->records_begun += count;
}

// Copies the data of up to `most` records, the first of which begins at `at` with the tail of the
// record before it, as long as both markers are as expected. Returns how many were copied. With a
// length that the compiler knows this costs little more than the copying.
template <int64_t LENGTH> inline int64_t copy_records(const unsigned char* at, int64_t most,
                                                      int64_t length, uint32_t marker,
                                                      unsigned char* to)
{
    const uint64_t both_markers = uint64_t{marker} << 32 | marker;
    const auto size = static_cast<size_t>(LENGTH > 0 ? LENGTH : length);
    int64_t count = 0;
    for (; count < most; ++count, at += 8 + size) {
        uint64_t markers = 0;
        memcpy(&markers, at, sizeof markers);
        if (markers != both_markers) break;
        if (to) memcpy(to + static_cast<size_t>(count) * size, at + 8, size);
    }
    return count;
}

static int64_t copy_records(const unsigned char* at, int64_t most, int64_t length, uint32_t marker,
                            unsigned char* to)
{
    if (length == 4) return copy_records<4>(at, most, length, marker, to);
    if (length == 8) return copy_records<8>(at, most, length, marker, to);
    return copy_records<0>(at, most, length, marker, to);
}

// Takes the records that are in the window, and moves behind them.
static int64_t take_from_window(RecordStream* stream, int64_t length, uint32_t marker, int64_t most,
                                unsigned char* to)
{
    const unsigned char* const first = next_record_data(stream, length, marker);
    if (!first) return 0;
    if (to) memcpy(to, first, static_cast<size_t>(length));
    const unsigned char* const rest = first + length;
    const int64_t whole = (window_bytes + window.size - rest) / (8 + length);
    const int64_t count =
        copy_records(rest, std::min(most - 1, whole), length, marker, to ? to + length : to);
    stand_after_records(stream, 1 + count, length, rest + count * (8 + length));
    return 1 + count;
}

int64_t nzn_take_records(int32_t unit, int64_t element_size, int64_t per_record,
                         int64_t record_count, void* destination, ValueSearch* search)
{
    RecordStream* stream = find_unit(unit);
    const int64_t length = element_size * per_record;
    if (!stream || length < 1 || length > LONGEST_SHORT_RECORD) return 0;
    if (stream->continued || stream->sub_reclen_remaining > 0) return 0;
    uint32_t marker = static_cast<uint32_t>(length);
    if (stream->swapped) marker = reversed(marker);
    auto* const destination_bytes = static_cast<unsigned char*>(destination);
    int64_t taken = 0;
    while (taken < record_count) {
        unsigned char* const to = destination ? destination_bytes + taken * length : nullptr;
        const int64_t here = take_from_window(stream, length, marker, record_count - taken, to);
        if (to) convert_and_search(stream, to, element_size, here * per_record, search);
        taken += here;
        if (here == 0 && (fill_window(stream, 8 + length) < 8 + length ||
                          !next_record_data(stream, length, marker))) {
            break;
        }
    }
    return taken;
}

// ---- coming back ----

RecordMark nzn_mark(int32_t unit)
{
    const RecordStream* stream = find_unit(unit);
    if (!stream) return {};
    return *stream;
}

int32_t nzn_return(int32_t unit, const RecordMark& mark)
{
    RecordStream* stream = find_unit(unit);
    if (!stream) return NZN_FAILURE;
    static_cast<RecordMark&>(*stream) = mark;
    return NZN_OK;
}
