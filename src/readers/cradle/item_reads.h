// Items: how an FLD file carries values. An item is a descriptor record of three int32
// (element_size, per_record, record_count) and record_count data records, all but the last of them
// full. A descriptor of three zeros, the end record, closes every list of items.
//
// The reads return true on success. Unless a message is named they fail silently: the caller knows
// what the item was for. Arrays and texts handed out belong to the caller, also after a failure.
#pragma once

#include "readers/cradle/heap_array.h"
#include "ui/util/nzn_io.h"

#include <cstdint>

// Cuts the text after its last character that is neither NUL nor white space, and at the first NUL
// that is left, so that it can be used as a C string. `text` holds `length` + 1 bytes.
void trim_text(char* text, int32_t length);

// Begins the next record and reads the 32 characters of a keyword or section name, trimmed.
[[nodiscard]] bool read_name_record(int32_t unit, char (&name)[33]);

[[nodiscard]] bool read_item_descriptor(int32_t unit, int32_t* element_size, int32_t* per_record,
                                        int32_t* record_count);

// True only if the next record is an end record.
[[nodiscard]] bool read_item_end(int32_t unit);

// Passes over items of any kind up to and including their end record.
[[nodiscard]] bool skip_item_list(int32_t unit);

// Whether the rest of the file can hold so many values. Memory is asked for, and touched, only for
// what the file can back: a count that it cannot back leads to a failed read in any case.
[[nodiscard]] bool file_can_hold(int32_t unit, int32_t count, int32_t element_size);

// An item of exactly one int32.
[[nodiscard]] bool read_int_item(int32_t unit, int32_t* value);

// `length` characters into a new buffer of `length` + 1 bytes, blank-padded and not terminated.
// Exactly 32 characters asked for may come short. Prints when memory or characters run short.
[[nodiscard]] bool read_fixed_string_item(int32_t unit, int32_t length, HeapArray<char>* text);

// The same, trimmed and terminated. Costs no more than the file has characters, whatever `length`.
[[nodiscard]] bool read_text_item(int32_t unit, int32_t length, HeapArray<char>* text);

// All characters of the item, however long, trimmed and terminated.
[[nodiscard]] bool read_string_item(int32_t unit, HeapArray<char>* text);

// The three int items that begin every section of named regions; the first is not interpreted.
[[nodiscard]] bool read_region_counts(int32_t unit, int32_t* region_count, int32_t* name_length);

// A region name as the name length of its section says: -1 for an item of any length, otherwise a
// fixed length. Trimmed and terminated.
[[nodiscard]] bool read_region_name(int32_t unit, int32_t name_length, HeapArray<char>* name);

// `count` int32 into `storage`, or passed over when that is null.
[[nodiscard]] bool read_int_array_item(int32_t unit, int32_t count, int32_t* storage);

// Passes over the item and gives the number of values in its full records and the place from which
// its data records are begun.
[[nodiscard]] bool pass_int_array_item(int32_t unit, int32_t count, int32_t* per_record,
                                       RecordMark* data);

// The same as read_int_array_item, into a new array. Prints when its memory cannot be had.
[[nodiscard]] bool read_new_int_array_item(int32_t unit, int32_t count, HeapArray<int32_t>* array);

// `count` reals as stored: 4-byte values into *floats (filled in place when the caller placed an
// array there, otherwise a new one), 8-byte values into a new array *doubles. With neither the item
// is passed over. Values equal to the dataset's unused-value markers become +infinity.
[[nodiscard]] bool read_real_array_item(int32_t unit, int32_t count, float** floats,
                                        double** doubles);

// `count` reals of either size as floats into `values`, which the caller owns; passed over when
// that is null.
[[nodiscard]] bool read_real_values(int32_t unit, int32_t count, float* values);

// The one line for an array of values whose memory cannot be had.
void print_no_memory_for_items(int32_t count);
