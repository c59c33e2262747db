// The record file layer: numbered units over Fortran unformatted sequential files.
//
// A file is a sequence of records. A record is one or more sub-records, each a 4-byte head marker,
// |head| bytes of data and a tail marker of the same magnitude. A negative head says that another
// sub-record of the record follows, a negative tail that an earlier one went before. Markers and
// numbers share one byte order, found when the file is opened.
//
// Statuses: 0 success; 4 end of file; 5 any other failure (unit not open, read error, markers that
// differ, data asked for beyond the end of the record). Nothing here prints.
#pragma once

#include <cstdint>

constexpr int32_t NZN_OK = 0;
constexpr int32_t NZN_END_OF_FILE = 4;
constexpr int32_t NZN_FAILURE = 5;

constexpr int32_t NZN_CANNOT_OPEN = 1;
constexpr int32_t NZN_NOT_UNFORMATTED = 2;

// Asked while files are read, at least once in every 4 MB, whether to go on; `bytes` were read
// since it was asked last. After a "no" the read at hand fails, as it does when the system's read
// fails.
using NznGoOn = bool(void* context, int64_t bytes);

// From now on; null: nobody is asked.
void nzn_ask_while_reading(NznGoOn* asked, void* context);

// Opens a file by UTF-8 path under a unit number; a file already open under it is closed first.
// 0 opened; 1 cannot be opened, or 101 units are open; 2 not an unformatted sequential file.
// Damage behind the first 10 sub-records does not prevent opening; only reading it fails.
[[nodiscard]] int32_t nzn_open_unit(int32_t unit, const char* path);

// 0 closed or not open; 5 when closing the stream failed (the unit is free all the same).
int32_t nzn_close_unit(int32_t unit);

// Begins the next record. What is left of the current one is skipped and its tail checked. When the
// next one cannot be begun, the current one stays current, all of it consumed.
[[nodiscard]] int32_t nzn_begin_record(int32_t unit);

// Skips the whole next record. Its last tail marker is checked by the next begin.
[[nodiscard]] int32_t nzn_skip_record(int32_t unit);

// Byte offset of the head marker of the record after the current one, or of the current position
// when no record is begun; the stream moves there. -1 on failure.
[[nodiscard]] int64_t nzn_tell(int32_t unit);

// Moves to an offset that nzn_tell gave, or to 0: 0 or 5.
[[nodiscard]] int32_t nzn_seek(int32_t unit, int64_t position);

// Whether so many bytes stand between the current position and the end of the file: no count read
// from it can stand for more. The file may grow while it is read; it is asked anew before the
// answer is no.
[[nodiscard]] bool nzn_can_hold(int32_t unit, int64_t count);

// Whether all that was passed over so far lies within the file: long skips do not look.
[[nodiscard]] bool nzn_is_within_file(int32_t unit);

// Whether nothing stands behind the current position, and the system did not fail to read there.
[[nodiscard]] bool nzn_file_ended(int32_t unit);

// Typed reads of the current record, across its sub-records and in native byte order afterwards.
// A count below 1 reads nothing and succeeds. A record that is too short is consumed and gives 5;
// the destination then holds what was read, its bytes not reversed.
[[nodiscard]] int32_t nzn_read_int32(int32_t unit, int64_t count, int32_t* destination);
[[nodiscard]] int32_t nzn_read_float32(int32_t unit, int64_t count, float* destination);
[[nodiscard]] int32_t nzn_read_float64(int32_t unit, int64_t count, double* destination);
// Characters are never reordered, and no terminator is written.
[[nodiscard]] int32_t nzn_read_chars(int32_t unit, int32_t count, char* destination);
// Passes over bytes of the current record.
[[nodiscard]] int32_t nzn_skip_bytes(int32_t unit, int64_t count);

// A 4-byte value to look for among those being read, while they are in the processor's cache. This
// is for speed only: searching a large array afterwards takes half as long as reading it.
struct ValueSearch {
    uint32_t bits;
    bool found; // set when a value has these bits, never cleared
};

[[nodiscard]] int32_t nzn_read_and_search(int32_t unit, int64_t count, float* destination,
                                          ValueSearch* search);

// Begins and reads (or skips, when the destination is null) the next records as long as they are
// whole records of `per_record` elements, at most `record_count` of them, and returns how many.
// This is for speed only: arrays of one value per record are read in a tenth of the time. It stops
// before any record that is long, damaged or continued, and leaves that to the operations above.
// Values are in native byte order. A search is for elements of 4 bytes.
[[nodiscard]] int64_t nzn_take_records(int32_t unit, int64_t element_size, int64_t per_record,
                                       int64_t record_count, void* destination,
                                       ValueSearch* search = nullptr);

// A place inside a record, to come back to while the unit stays open.
struct RecordMark {
    int64_t position;             // where the next byte is taken from
    int64_t records_begun;        // since the open, tell or seek; 0: at a record boundary
    int32_t reclen;               // bytes of the current sub-record
    int64_t offset;               // bytes of the current record consumed, in all its sub-records
    int32_t sub_reclen_remaining; // bytes of the current sub-record not yet consumed
    bool continued;               // further sub-records of this record follow
};
[[nodiscard]] RecordMark nzn_mark(int32_t unit);
[[nodiscard]] int32_t nzn_return(int32_t unit, const RecordMark& mark);
