// The records of an item. An item is how an FLD file carries values: a descriptor record of three
// int32 (element_size, per_record, record_count) and record_count data records, all but the last of
// them full. A descriptor of three zeros, the end record, closes every list of items.
//
// The reads return true on success and print nothing.
#pragma once

#include "ui/util/nzn_io.h"

#include <cstdint>

struct ItemDescriptor {
    int32_t element_size; // bytes: 1 characters, 4 int32 or float32, 8 float64
    int32_t per_record;   // elements in a full data record
    int32_t record_count;
};

[[nodiscard]] bool read_item_descriptor(int32_t unit, ItemDescriptor* item);

[[nodiscard]] bool is_end_record(const ItemDescriptor& item);

// Whether the rest of the file can hold so many values. Memory is asked for, and touched, only for
// what the file can back: a count that it cannot back leads to a failed read in any case.
[[nodiscard]] bool file_can_hold(int32_t unit, int32_t count, int32_t element_size);

// The data records that follow a descriptor, and how far they were read.
struct ItemRecords {
    int32_t unit;
    int32_t element_size; // bytes
    int32_t per_record;   // values in a full record
    int32_t records_left; // that were not begun yet
    int32_t values_left;  // of the item, not read yet
    int32_t record_left;  // of the current record, not read yet
};

// The records of an item, and the values that they hold, at most `count` of them.
[[nodiscard]] ItemRecords records_of(int32_t unit, const ItemDescriptor& item, int32_t count);

// Reads the descriptor of an array of `count` int32, or of so many reals of either size. Its
// records may hold fewer.
[[nodiscard]] bool begin_int_array(int32_t unit, int32_t count, ItemRecords* records);
[[nodiscard]] bool begin_real_array(int32_t unit, int32_t count, ItemRecords* records);

// Reads the next `count` values, of those that are left, as they are stored, or passes over them
// when `to` is null. A search is for values of 4 bytes.
[[nodiscard]] bool read_item_values(ItemRecords* records, int32_t count, void* to,
                                    ValueSearch* search = nullptr);

// Begins every record that is left: those of an item may go on behind its last value.
[[nodiscard]] bool finish_item(ItemRecords* records);

// Reads or passes over all values, and finishes the item. False also when they were not `count`.
[[nodiscard]] bool read_whole_item(ItemRecords* records, int32_t count, void* to,
                                   ValueSearch* search = nullptr);
