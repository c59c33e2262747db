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

// Counts and lengths up to this one are believed whatever the file can hold: they cost little.
constexpr int32_t SMALL_LENGTH = 65536;

// Whether the rest of the file can hold so many values. Memory is asked for, and touched, only for
// what the file can back: a count that it cannot back leads to a failed read in any case.
[[nodiscard]] bool file_can_hold(int32_t unit, int32_t count, int32_t element_size);

// An item of exactly one int32.
[[nodiscard]] bool read_int_item(int32_t unit, int32_t* value);

// A text of a fixed length: the characters that the file had, and blanks after them that take no
// memory, since a length is only a claim.
struct FixedString {
    HeapArray<char> characters; // may be null when none were gathered
    int32_t gathered;
};

// The text of an item. Exactly 32 characters asked for may come short. Prints when memory or
// characters run short.
[[nodiscard]] bool read_fixed_string_item(int32_t unit, int32_t length, FixedString* text);

// The same, trimmed and terminated.
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

// The same as read_int_array_item, into a new array. Prints when its memory cannot be had.
[[nodiscard]] bool read_new_int_array_item(int32_t unit, int32_t count, HeapArray<int32_t>* array);

// `count` reals of either size as floats into `values`, which the caller owns; passed over when
// that is null. Values equal to the dataset's unused-value markers become +infinity. 8-byte values
// are read only once the item is known to be whole; prints when there is no memory to convert them.
[[nodiscard]] bool read_real_array_item(int32_t unit, int32_t count, float* values);

// An array that was passed over, so that whatever is wrong with it has shown, and whose values are
// read later on, a few at a time: fresh memory for all of them would cost more than reading them.
struct PassedItem {
    int32_t unit;
    int32_t element_size; // bytes
    int32_t per_record;   // values in a full record
    int32_t unread;       // values of the item that were not read yet
    int32_t record_left;  // values of the record at the mark that were not read yet
    RecordMark mark;      // where reading goes on
};
[[nodiscard]] bool pass_int_array_item(int32_t unit, int32_t count, PassedItem* item);

// Reads the next values as they are stored. The unit is left where it stood.
[[nodiscard]] bool read_passed(PassedItem* item, int32_t count, void* values);

// An array of reals of either size, passed over, and room for some of its values.
struct RealWindow {
    PassedItem item;
    HeapArray<double> values;
    int32_t capacity;
};
// Prints when there is no memory for the window.
[[nodiscard]] bool open_real_window(int32_t unit, int32_t count, RealWindow* window);

// Reads the next values into the window, at most its capacity; marked ones become +infinity.
[[nodiscard]] bool fill_real_window(RealWindow* window, int32_t count);

// The one line for an array of values whose memory cannot be had.
void print_no_memory_for_items(int32_t count);
