#include "readers/cradle/item_records.h"

#include <algorithm>

// ---- descriptors ----

bool read_item_descriptor(int32_t unit, ItemDescriptor* item)
{
    int32_t values[3];
    if (nzn_begin_record(unit) != NZN_OK || nzn_read_int32(unit, 3, values) != NZN_OK) return false;
    *item = {values[0], values[1], values[2]};
    return true;
}

bool is_end_record(const ItemDescriptor& item)
{
    return item.element_size == 0 && item.per_record == 0 && item.record_count == 0;
}

// Whether the descriptor can be that of an array of `count` values. An array of none still has one
// record, and its element size means nothing.
// (Without the check of its sign, a negative per_record would be refused for holding less than
// none.)
static bool shape_fits(const ItemDescriptor& item, int32_t count)
{
    if (count == 0) return item.per_record >= 0 && item.record_count == 1;
    return item.per_record >= 1 && item.record_count >= 1 && item.record_count <= count;
}

bool file_can_hold(int32_t unit, int32_t count, int32_t element_size)
{
    return nzn_can_hold(unit, int64_t{count} * element_size);
}

ItemRecords records_of(int32_t unit, const ItemDescriptor& item, int32_t count)
{
    const int64_t held = int64_t{item.per_record} * item.record_count;
    return {unit,
            item.element_size,
            item.per_record,
            item.record_count,
            static_cast<int32_t>(std::min<int64_t>(held, count)),
            0};
}

static bool begin_array(int32_t unit, int32_t count, ItemRecords* records)
{
    ItemDescriptor item{};
    if (count < 0 || !read_item_descriptor(unit, &item) || !shape_fits(item, count)) return false;
    *records = records_of(unit, item, count);
    return true;
}

bool begin_int_array(int32_t unit, int32_t count, ItemRecords* records)
{
    return begin_array(unit, count, records) && (count == 0 || records->element_size == 4);
}

bool begin_real_array(int32_t unit, int32_t count, ItemRecords* records)
{
    return begin_array(unit, count, records) &&
           (count == 0 || records->element_size == 4 || records->element_size == 8);
}

// ---- values ----

// Reads or passes over values of the current record.
static int32_t read_elements(const ItemRecords& records, int32_t count, void* to,
                             ValueSearch* search)
{
    if (!to) return nzn_skip_bytes(records.unit, int64_t{count} * records.element_size);
    switch (records.element_size) {
    case 1: return nzn_read_chars(records.unit, count, static_cast<char*>(to));
    case 8: return nzn_read_float64(records.unit, count, static_cast<double*>(to));
    default: return nzn_read_and_search(records.unit, count, static_cast<float*>(to), search);
    }
}

// Full records, as long as they are short and plain, are taken many at a time; the number of values
// that came so.
static int32_t take_full_records(ItemRecords* records, int32_t count, void* to, ValueSearch* search)
{
    const int32_t full = std::min(count / records->per_record, records->records_left);
    const auto taken = static_cast<int32_t>(nzn_take_records(
        records->unit, records->element_size, records->per_record, full, to, search));
    records->records_left -= taken;
    return taken * records->per_record;
}

static bool begin_record(ItemRecords* records)
{
    if (nzn_begin_record(records->unit) != NZN_OK) return false;
    --records->records_left;
    records->record_left = std::min(records->per_record, records->values_left);
    return true;
}

bool read_item_values(ItemRecords* records, int32_t count, void* to, ValueSearch* search)
{
    auto* at = static_cast<char*>(to);
    for (int32_t left = count; left > 0;) {
        int32_t n = 0;
        if (records->record_left == 0) n = take_full_records(records, left, at, search);
        if (n == 0) {
            if (records->record_left == 0 && !begin_record(records)) return false;
            n = std::min(left, records->record_left);
            if (read_elements(*records, n, at, search) != NZN_OK) return false;
            records->record_left -= n;
        }
        if (at) at += int64_t{n} * records->element_size;
        records->values_left -= n;
        left -= n;
    }
    return true;
}

bool finish_item(ItemRecords* records)
{
    while (records->records_left > 0) {
        if (!begin_record(records)) return false;
    }
    return true;
}

bool read_whole_item(ItemRecords* records, int32_t count, void* to, ValueSearch* search)
{
    const int32_t held = records->values_left;
    return read_item_values(records, held, to, search) && finish_item(records) && held == count;
}
