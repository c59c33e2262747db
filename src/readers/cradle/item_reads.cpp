#include "readers/cradle/item_reads.h"

#include "readers/cradle/array_windows.h"
#include "readers/cradle/dataset_state.h"
#include "readers/cradle/diagnostics.h"
#include "readers/cradle/item_records.h"
#include "readers/cradle/unused_values.h"
#include "ui/util/nzn_io.h"

#include <algorithm>
#include <bit>
#include <utility>

constexpr int32_t ANY_LENGTH_NAMES = -1; // the name length of a section whose names carry their own
constexpr int32_t TOLERANT_LENGTH = 32;  // a text of this length may come short

static void print_no_memory_for_characters(int32_t count)
{
    print_diagnostic("FLD file error: not enough dynamic memory for %d characters\n", count);
}

// ---- text ----

// White space as the file's writers pad with it, whatever locale the host has set.
static bool is_padding(char c)
{
    return c == '\0' || c == ' ' || (c >= '\t' && c <= '\r');
}

void trim_text(char* text, int32_t length)
{
    int32_t kept = length;
    while (kept > 0 && is_padding(text[kept - 1])) --kept;
    text[kept] = '\0';
}

bool read_name_record(int32_t unit, char (&name)[33])
{
    if (nzn_begin_record(unit) != NZN_OK || nzn_read_chars(unit, 32, name) != NZN_OK) return false;
    trim_text(name, 32);
    return true;
}

// ---- lists of items ----

bool read_item_end(int32_t unit)
{
    ItemDescriptor item{};
    return read_item_descriptor(unit, &item) && is_end_record(item);
}

bool skip_item_list(int32_t unit)
{
    ItemDescriptor item{};
    while (read_item_descriptor(unit, &item)) {
        if (is_end_record(item)) return true;
        for (int32_t record = 0; record < item.record_count; ++record) {
            if (nzn_skip_record(unit) != NZN_OK) return false;
        }
    }
    return false;
}

// ---- integers ----

bool read_int_item(int32_t unit, int32_t* value)
{
    ItemDescriptor item{};
    if (!read_item_descriptor(unit, &item)) return false;
    if (item.element_size != 4 || item.per_record != 1 || item.record_count != 1) return false;
    return nzn_begin_record(unit) == NZN_OK && nzn_read_int32(unit, 1, value) == NZN_OK;
}

bool read_int_array_item(int32_t unit, int32_t count, int32_t* storage)
{
    ItemRecords records{};
    return begin_int_array(unit, count, &records) && read_whole_item(&records, count, storage);
}

bool read_new_int_array_item(int32_t unit, int32_t count, HeapArray<int32_t>* array)
{
    if (count < 0 || !file_can_hold(unit, count, sizeof(int32_t))) return false;
    *array = heap_array<int32_t>(count);
    if (!*array) {
        print_no_memory_for_items(count);
        return false;
    }
    return read_int_array_item(unit, count, array->get());
}

// ---- characters ----

// Reads the item without touching more memory than the file has characters for. Without storage it
// still finds what is wrong; only an item that claims no characters at all can then end well.
bool read_fixed_string_item(int32_t unit, int32_t length, FixedString* text)
{
    *text = {};
    if (length < 0) return false;
    if (length <= SMALL_LENGTH || file_can_hold(unit, length, 1)) {
        text->characters = heap_array<char>(int64_t{length} + 1);
        if (!text->characters) {
            print_no_memory_for_characters(length);
            return false;
        }
    }
    ItemDescriptor item{};
    if (!read_item_descriptor(unit, &item) || item.per_record < 0) return false;
    if (length > 0 ? item.element_size != 1 || item.record_count < 1 || item.record_count > length
                   : item.record_count != 1) {
        return false;
    }
    if (length > 0 && item.per_record == 0) return nzn_skip_record(unit) == NZN_OK;

    char* const to = text->characters.get();
    ItemRecords records = records_of(unit, item, length);
    text->gathered = records.values_left;
    if (!read_whole_item(&records, text->gathered, to) || !nzn_is_within_file(unit)) return false;
    if (text->gathered == length || length == TOLERANT_LENGTH) return to != nullptr;
    print_diagnostic("Data reader error: expected %d characters, got %d\n", length, text->gathered);
    return false;
}

bool read_text_item(int32_t unit, int32_t length, HeapArray<char>* text)
{
    FixedString item{};
    if (!read_fixed_string_item(unit, length, &item)) return false;
    *text = item.characters ? std::move(item.characters) : heap_array<char>(1);
    if (!*text) {
        print_no_memory_for_characters(length);
        return false;
    }
    trim_text(text->get(), item.gathered);
    return true;
}

bool read_string_item(int32_t unit, HeapArray<char>* text)
{
    if (!text) return false; // never: every caller wants the text
    text->reset();
    ItemDescriptor item{};
    if (!read_item_descriptor(unit, &item)) return false;
    if (item.element_size != 1 || item.per_record < 0 || item.record_count < 1) return false;
    const int64_t total = int64_t{item.per_record} * item.record_count;
    if (total > INT32_MAX) return false;
    const auto length = static_cast<int32_t>(total);
    if (!file_can_hold(unit, length, 1)) return false;
    *text = heap_array<char>(total + 1);
    if (!*text) {
        print_no_memory_for_characters(length);
        return false;
    }
    ItemRecords records = records_of(unit, item, length);
    if (!read_whole_item(&records, length, text->get())) return false;
    trim_text(text->get(), length);
    return true;
}

bool read_region_counts(int32_t unit, int32_t* region_count, int32_t* name_length)
{
    int32_t not_interpreted = 0;
    return read_int_item(unit, &not_interpreted) && read_int_item(unit, region_count) &&
           read_int_item(unit, name_length);
}

bool read_region_name(int32_t unit, int32_t name_length, HeapArray<char>* name)
{
    return name_length == ANY_LENGTH_NAMES ? read_string_item(unit, name)
                                           : read_text_item(unit, name_length, name);
}

// ---- reals ----

static bool read_doubles(const ItemRecords& records, int32_t count, float* values)
{
    RealWindow window{};
    if (!open_real_window(records, count, &window)) return false;
    for (int32_t at = 0; at < count;) {
        const int32_t n = std::min(window.capacity, count - at);
        if (!fill_real_window(&window, n)) return false;
        for (int32_t i = 0; i < n; ++i) values[at + i] = static_cast<float>(window.values[i]);
        at += n;
    }
    return true;
}

static bool read_floats(ItemRecords* records, int32_t count, float* values)
{
    const float unused = dataset_state.unused_float;
    ValueSearch search{std::bit_cast<uint32_t>(unused), false};
    if (!read_whole_item(records, count, values, &search)) return false;
    if (search.found) map_unused(values, count, unused);
    return true;
}

bool read_real_array_item(int32_t unit, int32_t count, float* values)
{
    ItemRecords records{};
    if (!begin_real_array(unit, count, &records)) return false;
    if (!values) return read_whole_item(&records, count, nullptr);
    return records.element_size == 8 ? read_doubles(records, count, values)
                                     : read_floats(&records, count, values);
}
