// Items read whole: single integers, texts and arrays; and lists of them passed over.
//
// The reads return true on success. Unless a message is named they fail silently: the caller knows
// what the item was for. Arrays and texts handed out belong to the caller, also after a failure.
#pragma once

#include "readers/cradle/heap_array.h"

#include <cstdint>

// Cuts the text after its last character that is neither NUL nor white space, and at the first NUL
// that is left, so that it can be used as a C string. `text` holds `length` + 1 bytes.
void trim_text(char* text, int32_t length);

// Begins the next record and reads the 32 characters of a keyword or section name, trimmed.
[[nodiscard]] bool read_name_record(int32_t unit, char (&name)[33]);

// True only if the next record is an end record.
[[nodiscard]] bool read_item_end(int32_t unit);

// Passes over items of any kind up to and including their end record.
[[nodiscard]] bool skip_item_list(int32_t unit);

// Counts and lengths up to this one are believed whatever the file can hold: they cost little.
constexpr int32_t SMALL_LENGTH = 65536;

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

// The same as read_int_array_item, into a new array. Prints when there is no memory for it.
[[nodiscard]] bool read_new_int_array_item(int32_t unit, int32_t count, HeapArray<int32_t>* array);

// `count` reals of either size as floats into `values`, which the caller owns; passed over when
// that is null. Values equal to the dataset's unused-value markers become +infinity. 8-byte values
// are read only once the item is known to be whole; prints when there is no memory to convert them.
[[nodiscard]] bool read_real_array_item(int32_t unit, int32_t count, float* values);
