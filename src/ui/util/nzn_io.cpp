#include "ui/util/nzn_io.h"

#include "ui/util/utf8wrap.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstring>

// ---- state ----

struct RecordStream {
    FILE* file;                   // owned
    int32_t unit;                 // the number it was opened under
    int64_t records_begun;        // since the open, tell or seek; 0: at a record boundary
    int32_t reclen;               // bytes of the current sub-record
    int64_t offset;               // bytes of the current record consumed, in all its sub-records
    int32_t sub_reclen_remaining; // bytes of the current sub-record not yet consumed
    bool continued;               // further sub-records of this record follow
    bool swapped;                 // the file is big-endian
    int64_t file_length;          // bytes, when it was opened
};

constexpr int32_t MAX_UNITS = 101;
static RecordStream unit_table[MAX_UNITS]; // no holes; the order carries no meaning
static int32_t last_unit = -1;

// Where bytes go that are passed over by reading, which is cheaper than a seek for a few of them.
constexpr int64_t SCRATCH_SIZE = 4096;
static unsigned char scratch[SCRATCH_SIZE];

static RecordStream* find_unit(int32_t unit)
{
    for (int32_t slot = 0; slot <= last_unit; ++slot) {
        if (unit_table[slot].unit != unit) continue;
        return unit_table[slot].file ? &unit_table[slot] : nullptr;
    }
    return nullptr;
}

// ---- bytes and positions ----

static int32_t short_read_status(FILE* file)
{
    return feof(file) ? NZN_END_OF_FILE : NZN_FAILURE;
}

static bool skip_forward(FILE* file, int64_t count)
{
    if (count > SCRATCH_SIZE) return utf8wrap::_fseeki64(file, count, SEEK_CUR) == 0;
    const auto wanted = static_cast<size_t>(count);
    return fread(scratch, 1, wanted, file) == wanted;
}

static bool move_to(FILE* file, int64_t position)
{
    const int64_t current = utf8wrap::_ftelli64(file);
    if (current < 0 || current > position) {
        return utf8wrap::_fseeki64(file, position, SEEK_SET) == 0;
    }
    return skip_forward(file, position - current);
}

static bool rewind_to_start(FILE* file)
{
    return utf8wrap::_ftelli64(file) == 0 || utf8wrap::_fseeki64(file, 0, SEEK_SET) == 0;
}

static uint32_t reversed(uint32_t word)
{
    const uint32_t halves = word << 16 | word >> 16;
    return (halves & 0x00FF00FFU) << 8 | (halves >> 8 & 0x00FF00FFU);
}

static uint64_t reversed(uint64_t word)
{
    return static_cast<uint64_t>(reversed(static_cast<uint32_t>(word))) << 32 |
           reversed(static_cast<uint32_t>(word >> 32));
}

// Reverses the bytes of every element in place. `data` may be an array of any element type.
template <class Word> static void reverse_elements(void* data, int64_t count)
{
    auto* bytes = static_cast<unsigned char*>(data);
    for (int64_t i = 0; i < count; ++i, bytes += sizeof(Word)) {
        Word word;
        memcpy(&word, bytes, sizeof word);
        word = reversed(word);
        memcpy(bytes, &word, sizeof word);
    }
}

// ---- markers and sub-records ----

struct Marker {
    int64_t length; // its magnitude, in 64 bits: the lowest int32 has no positive twin
    bool negative;
};

// False when fewer than 4 bytes are left.
static bool read_marker(FILE* file, bool swapped, Marker* marker)
{
    uint32_t word = 0;
    if (fread(&word, sizeof word, 1, file) != 1) return false;
    if (swapped) word = reversed(word);
    const int64_t value = static_cast<int32_t>(word);
    *marker = {value < 0 ? -value : value, value < 0};
    return true;
}

static int32_t read_head_marker(RecordStream* stream)
{
    Marker head{};
    if (!read_marker(stream->file, stream->swapped, &head)) return short_read_status(stream->file);
    if (head.length > INT32_MAX) return NZN_FAILURE;
    stream->continued = head.negative;
    stream->reclen = static_cast<int32_t>(head.length);
    stream->sub_reclen_remaining = stream->reclen;
    return NZN_OK;
}

static int32_t check_tail_marker(RecordStream* stream)
{
    Marker tail{};
    if (!read_marker(stream->file, stream->swapped, &tail)) return short_read_status(stream->file);
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
    int32_t status = check_tail_marker(stream);
    if (status != NZN_OK) return status;
    status = read_head_marker(stream);
    if (status != NZN_OK) stand_at_boundary(stream);
    return status;
}

// Passes over what is left of the current record, up to its last tail marker.
static int32_t finish_subrecords(RecordStream* stream)
{
    for (;;) {
        if (!skip_forward(stream->file, stream->sub_reclen_remaining)) return NZN_FAILURE;
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

static int32_t finish_record(RecordStream* stream)
{
    // An end of file met earlier must not fail what can be read now.
    clearerr(stream->file);
    if (!record_is_begun(stream)) return NZN_OK;
    const int32_t status = finish_subrecords(stream);
    return status != NZN_OK ? status : check_tail_marker(stream);
}

static int32_t read_across_subrecords(RecordStream* stream, void* buffer, int64_t element_size,
                                      int64_t count)
{
    int64_t want = element_size * count;
    if (want == 0) return NZN_OK;
    clearerr(stream->file);
    auto* to = static_cast<unsigned char*>(buffer);
    for (;;) {
        const int64_t take = std::min<int64_t>(want, stream->sub_reclen_remaining);
        const auto got =
            static_cast<int64_t>(fread(to, 1, static_cast<size_t>(take), stream->file));
        to += got;
        stream->offset += got;
        stream->sub_reclen_remaining -= static_cast<int32_t>(got);
        if (got != take) return short_read_status(stream->file);
        want -= take;
        if (want == 0) return NZN_OK;
        const int32_t status = cross_subrecord(stream);
        if (status != NZN_OK) return status;
    }
}

static int32_t skip_across_subrecords(RecordStream* stream, int64_t count)
{
    int64_t left = count;
    while (left > stream->sub_reclen_remaining) {
        if (!stream->continued) return NZN_FAILURE;
        if (!skip_forward(stream->file, stream->sub_reclen_remaining)) return NZN_FAILURE;
        left -= stream->sub_reclen_remaining;
        stream->sub_reclen_remaining = 0;
        const int32_t status = cross_subrecord(stream);
        if (status != NZN_OK) return status;
    }
    if (!skip_forward(stream->file, left)) return NZN_FAILURE;
    stream->sub_reclen_remaining -= static_cast<int32_t>(left);
    stream->offset += count;
    return NZN_OK;
}

// ---- recognising a file ----

// Walks all markers of the file in one byte order. True when they frame it to its end; `good` is
// the number of sub-records before the first flaw. Up to 3 stray bytes at the end are accepted.
static bool check_framing(FILE* file, bool swapped, int64_t* good)
{
    *good = 0;
    if (!rewind_to_start(file)) return false;
    clearerr(file);
    bool any_head = false;
    bool continues = false; // the sub-record before this one announced it
    Marker head{};
    while (read_marker(file, swapped, &head)) {
        any_head = true;
        Marker tail{};
        if (head.length > INT32_MAX || !skip_forward(file, head.length)) return false;
        if (!read_marker(file, swapped, &tail)) return false;
        // A tail is negative exactly when its sub-record continues an earlier one; a zero has no
        // sign.
        const bool sign_fits = tail.negative == continues || tail.length == 0;
        if (tail.length != head.length || !sign_fits) return false;
        continues = head.negative;
        ++*good;
    }
    return feof(file) && any_head && rewind_to_start(file);
}

constexpr int64_t ENOUGH_GOOD_SUBRECORDS = 10;

// Finds the byte order; false when the file is not framed in either. A file that is damaged, or
// still being written, counts when enough of its start is well framed.
static bool recognise(RecordStream* stream)
{
    int64_t little = 0;
    int64_t big = 0;
    stream->swapped = false;
    if (check_framing(stream->file, false, &little)) return true;
    stream->swapped = true;
    if (check_framing(stream->file, true, &big)) return true;
    stream->swapped = big > little;
    return std::max(little, big) >= ENOUGH_GOOD_SUBRECORDS && rewind_to_start(stream->file);
}

// ---- units ----

int32_t nzn_close_unit(int32_t unit)
{
    RecordStream* stream = find_unit(unit);
    if (!stream) return NZN_OK;
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

// Stands at the first byte of the next record's data.
static int32_t begin_next_record(RecordStream* stream)
{
    const int32_t status = finish_record(stream);
    if (status != NZN_OK) return status;
    const int64_t begun = stream->records_begun;
    stand_at_boundary(stream);
    clearerr(stream->file);
    const int32_t head_status = read_head_marker(stream);
    if (head_status == NZN_OK) stream->records_begun = begun + 1;
    return head_status;
}

int32_t nzn_begin_record(int32_t unit)
{
    RecordStream* stream = find_unit(unit);
    return stream ? begin_next_record(stream) : NZN_FAILURE;
}

int32_t nzn_skip_record(int32_t unit)
{
    RecordStream* stream = find_unit(unit);
    if (!stream) return NZN_FAILURE;
    const int32_t status = begin_next_record(stream);
    return status != NZN_OK ? status : finish_subrecords(stream);
}

int64_t nzn_tell(int32_t unit)
{
    RecordStream* stream = find_unit(unit);
    if (!stream || finish_record(stream) != NZN_OK) return -1;
    const int64_t position = utf8wrap::_ftelli64(stream->file);
    if (position < 0) return -1;
    stand_at_boundary(stream);
    return position;
}

int32_t nzn_seek(int32_t unit, int64_t position)
{
    RecordStream* stream = find_unit(unit);
    if (!stream) return NZN_FAILURE;
    clearerr(stream->file);
    if (!move_to(stream->file, position)) return NZN_FAILURE;
    stand_at_boundary(stream);
    return NZN_OK;
}

int64_t nzn_bytes_left(int32_t unit)
{
    const RecordStream* stream = find_unit(unit);
    if (!stream) return 0;
    const int64_t position = utf8wrap::_ftelli64(stream->file);
    return position < 0 ? 0 : std::max<int64_t>(0, stream->file_length - position);
}

// ---- record contents ----

static int32_t read_elements(int32_t unit, int64_t element_size, int64_t count, void* destination)
{
    RecordStream* stream = find_unit(unit);
    if (!stream) return NZN_FAILURE;
    if (count < 1) return NZN_OK;
    if (count > INT64_MAX / element_size) return NZN_FAILURE;
    const int32_t status = read_across_subrecords(stream, destination, element_size, count);
    if (status != NZN_OK || !stream->swapped) return status;
    if (element_size == 4) reverse_elements<uint32_t>(destination, count);
    if (element_size == 8) reverse_elements<uint64_t>(destination, count);
    return NZN_OK;
}

int32_t nzn_read_int32(int32_t unit, int64_t count, int32_t* destination)
{
    return read_elements(unit, sizeof(int32_t), count, destination);
}

int32_t nzn_read_float32(int32_t unit, int64_t count, float* destination)
{
    return read_elements(unit, sizeof(float), count, destination);
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
    clearerr(stream->file);
    return skip_across_subrecords(stream, count);
}
