#include "readers/cradle/item_reads.h"

#include "readers/cradle/dataset_state.h"
#include "readers/cradle/diagnostics.h"
#include "ui/util/nzn_io.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <limits>
#include <type_traits>
#include <utility>

constexpr int32_t ANY_LENGTH_NAMES = -1; // the name length of a section whose names carry their own
constexpr int32_t TOLERANT_LENGTH = 32;  // a text of this length may come short

struct ItemDescriptor {
    int32_t element_size; // bytes: 1 characters, 4 int32 or float32, 8 float64
    int32_t per_record;   // elements in a full data record
    int32_t record_count;
};

// ---- messages ----

void print_no_memory_for_items(int32_t count)
{
    print_diagnostic("FLD file error: not enough dynamic memory for %d items\n", count);
}

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

// ---- descriptors and the walk over data records ----

bool read_item_descriptor(int32_t unit, int32_t* element_size, int32_t* per_record,
                          int32_t* record_count)
{
    int32_t values[3];
    if (nzn_begin_record(unit) != NZN_OK || nzn_read_int32(unit, 3, values) != NZN_OK) return false;
    *element_size = values[0];
    *per_record = values[1];
    *record_count = values[2];
    return true;
}

static bool read_item_descriptor(int32_t unit, ItemDescriptor* item)
{
    return read_item_descriptor(unit, &item->element_size, &item->per_record, &item->record_count);
}

static bool is_end(const ItemDescriptor& item)
{
    return item.element_size == 0 && item.per_record == 0 && item.record_count == 0;
}

bool read_item_end(int32_t unit)
{
    ItemDescriptor item{};
    return read_item_descriptor(unit, &item) && is_end(item);
}

bool skip_item_list(int32_t unit)
{
    ItemDescriptor item{};
    while (read_item_descriptor(unit, &item)) {
        if (is_end(item)) return true;
        for (int32_t record = 0; record < item.record_count; ++record) {
            if (nzn_skip_record(unit) != NZN_OK) return false;
        }
    }
    return false;
}

// Whether the descriptor can be that of an array of `count` values. An array of none still has one
// record, and its element size means nothing.
static bool shape_fits(const ItemDescriptor& item, int32_t count)
{
    if (count == 0) return item.per_record >= 0 && item.record_count == 1;
    return item.per_record >= 1 && item.record_count >= 1 && item.record_count <= count;
}

static int32_t take_full_records(int32_t unit, const ItemDescriptor& item, int32_t count,
                                 int32_t record_count, void* destination, ValueSearch* search)
{
    if (item.per_record < 1) return 0;
    const int32_t full = std::min(count / item.per_record, record_count);
    return static_cast<int32_t>(
        nzn_take_records(unit, item.element_size, item.per_record, full, destination, search));
}

// Where the values after the first few belong; null when they are passed over.
static void* advanced(void* destination, int32_t count, int32_t element_size)
{
    if (!destination) return nullptr;
    return static_cast<char*>(destination) + static_cast<int64_t>(count) * element_size;
}

// Begins the item's data records in turn. take(at, n) reads or passes over the n values of one
// record, `at` values after the item's first, and gives the status. `gathered` receives how many
// values the records held, at most `count`.
template <class Take> static bool walk_data_records(int32_t unit, const ItemDescriptor& item,
                                                    int32_t count, int32_t* gathered,
                                                    void* destination, Take take,
                                                    ValueSearch* search = nullptr)
{
    *gathered = 0;
    for (int32_t record = 0; record < item.record_count; ++record) {
        // Full records, as long as they are short and plain, are taken many at a time.
        const int32_t taken =
            take_full_records(unit, item, count - *gathered, item.record_count - record,
                              advanced(destination, *gathered, item.element_size), search);
        *gathered += taken * item.per_record;
        record += taken;
        if (record == item.record_count) break;
        const int32_t n = std::min(count - *gathered, item.per_record);
        if (nzn_begin_record(unit) != NZN_OK || take(*gathered, n) != NZN_OK) return false;
        *gathered += n;
    }
    return true;
}

// Passes over the data records of an array.
static bool pass_records(int32_t unit, const ItemDescriptor& item, int32_t count)
{
    int32_t gathered = 0;
    const auto take = [&](int32_t, int32_t n) {
        return nzn_skip_bytes(unit, static_cast<int64_t>(n) * item.element_size);
    };
    return walk_data_records(unit, item, count, &gathered, nullptr, take) && gathered == count;
}

bool file_can_hold(int32_t unit, int32_t count, int32_t element_size)
{
    return static_cast<int64_t>(count) * element_size <= nzn_bytes_left(unit);
}

// ---- integers ----

bool read_int_item(int32_t unit, int32_t* value)
{
    ItemDescriptor item{};
    if (!read_item_descriptor(unit, &item)) return false;
    if (item.element_size != 4 || item.per_record != 1 || item.record_count != 1) return false;
    return nzn_begin_record(unit) == NZN_OK && nzn_read_int32(unit, 1, value) == NZN_OK;
}

// The descriptor of an array of `count` int32.
static bool read_int_array_descriptor(int32_t unit, int32_t count, ItemDescriptor* item)
{
    if (count < 0 || !read_item_descriptor(unit, item)) return false;
    return shape_fits(*item, count) && (count == 0 || item->element_size == 4);
}

static bool read_int_array_records(int32_t unit, const ItemDescriptor& item, int32_t count,
                                   int32_t* storage)
{
    if (!storage) return pass_records(unit, item, count);
    int32_t gathered = 0;
    const auto take = [&](int32_t at, int32_t n) { return nzn_read_int32(unit, n, storage + at); };
    return walk_data_records(unit, item, count, &gathered, storage, take) && gathered == count;
}

bool read_int_array_item(int32_t unit, int32_t count, int32_t* storage)
{
    ItemDescriptor item{};
    return read_int_array_descriptor(unit, count, &item) &&
           read_int_array_records(unit, item, count, storage);
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

// Reads characters into `to`, or reads them past when that is null.
static int32_t take_chars(int32_t unit, int32_t count, char* to)
{
    if (to) return nzn_read_chars(unit, count, to);
    char passed[4096];
    for (int32_t left = count; left > 0;) {
        const int32_t n = std::min<int32_t>(left, sizeof passed);
        const int32_t status = nzn_read_chars(unit, n, passed);
        if (status != NZN_OK) return status;
        left -= n;
    }
    return NZN_OK;
}

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
    const auto take = [&](int32_t at, int32_t n) { return take_chars(unit, n, to ? to + at : to); };
    if (!walk_data_records(unit, item, length, &text->gathered, to, take)) return false;
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
    if (!text) return false;
    text->reset();
    ItemDescriptor item{};
    if (!read_item_descriptor(unit, &item)) return false;
    if (item.element_size != 1 || item.per_record < 0 || item.record_count < 1) return false;
    const int64_t total = static_cast<int64_t>(item.per_record) * item.record_count;
    if (total > INT32_MAX) return false;
    const auto length = static_cast<int32_t>(total);
    if (!file_can_hold(unit, length, 1)) return false;
    *text = heap_array<char>(total + 1);
    if (!*text) {
        print_no_memory_for_characters(length);
        return false;
    }
    int32_t gathered = 0;
    const auto take = [&](int32_t at, int32_t n) {
        return nzn_read_chars(unit, n, text->get() + at);
    };
    if (!walk_data_records(unit, item, length, &gathered, text->get(), take)) return false;
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

// ---- passing over first, reading later ----

static bool pass_array(int32_t unit, const ItemDescriptor& item, int32_t count, PassedItem* passed)
{
    *passed = {unit, item.element_size, item.per_record, count, 0, nzn_mark(unit)};
    return pass_records(unit, item, count) && nzn_is_within_file(unit);
}

bool pass_int_array_item(int32_t unit, int32_t count, PassedItem* item)
{
    ItemDescriptor descriptor{};
    return read_int_array_descriptor(unit, count, &descriptor) &&
           pass_array(unit, descriptor, count, item);
}

// Reads at most `count` values of the records at hand; below 1 when that fails.
static int32_t read_some(PassedItem* item, int32_t count, void* to)
{
    if (item->record_left == 0) {
        const int64_t taken = nzn_take_records(item->unit, item->element_size, item->per_record,
                                               count / item->per_record, to);
        if (taken > 0) return static_cast<int32_t>(taken) * item->per_record;
        if (nzn_begin_record(item->unit) != NZN_OK) return 0;
        item->record_left = std::min(item->per_record, item->unread);
    }
    const int32_t n = std::min(count, item->record_left);
    item->record_left -= n;
    const int32_t status = item->element_size == 8
                               ? nzn_read_float64(item->unit, n, static_cast<double*>(to))
                               : nzn_read_int32(item->unit, n, static_cast<int32_t*>(to));
    return status == NZN_OK ? n : 0;
}

bool read_passed(PassedItem* item, int32_t count, void* values)
{
    const RecordMark elsewhere = nzn_mark(item->unit);
    if (nzn_return(item->unit, item->mark) != NZN_OK) return false;
    for (int32_t done = 0; done < count;) {
        const int32_t n = read_some(item, count - done, advanced(values, done, item->element_size));
        if (n < 1) return false;
        item->unread -= n;
        done += n;
    }
    item->mark = nzn_mark(item->unit);
    return nzn_return(item->unit, elsewhere) == NZN_OK;
}

// ---- reals ----

// Small enough for the processor's cache, large enough to make calls of the system rare.
constexpr int32_t REAL_WINDOW_VALUES = 32768;

// Replaces every value that is, bit for bit, the marker of an undefined one. A marker of 0 marks
// nothing.
template <class Real> static void map_unused(Real* values, int32_t count, Real unused)
{
    using Bits = std::conditional_t<sizeof(Real) == 4, uint32_t, uint64_t>;
    if (unused == 0) return;
    const Bits marker = std::bit_cast<Bits>(unused);
    for (int32_t i = 0; i < count; ++i) {
        if (std::bit_cast<Bits>(values[i]) == marker) {
            values[i] = std::numeric_limits<Real>::infinity();
        }
    }
}

// The descriptor of an array of `count` reals.
static bool read_real_array_descriptor(int32_t unit, int32_t count, ItemDescriptor* item)
{
    if (count < 0 || !read_item_descriptor(unit, item) || !shape_fits(*item, count)) return false;
    return count == 0 || item->element_size == 4 || item->element_size == 8;
}

static bool open_real_window(int32_t unit, const ItemDescriptor& descriptor, int32_t count,
                             RealWindow* window)
{
    if (!file_can_hold(unit, count, descriptor.element_size)) return false;
    window->capacity = std::min(count, REAL_WINDOW_VALUES);
    window->values = heap_array<double>(window->capacity);
    if (!window->values) {
        print_no_memory_for_items(count);
        return false;
    }
    return pass_array(unit, descriptor, count, &window->item);
}

bool open_real_window(int32_t unit, int32_t count, RealWindow* window)
{
    ItemDescriptor descriptor{};
    return read_real_array_descriptor(unit, count, &descriptor) &&
           open_real_window(unit, descriptor, count, window);
}

// The values as stored, in 4 bytes each, take the upper half of the window until they are widened.
static bool fill_with_singles(RealWindow* window, int32_t count)
{
    auto* const stored =
        reinterpret_cast<char*>(window->values.get() + count) - static_cast<int64_t>(count) * 4;
    if (!read_passed(&window->item, count, stored)) return false;
    for (int32_t i = 0; i < count; ++i) {
        float value = 0;
        memcpy(&value, stored + int64_t{i} * 4, sizeof value);
        map_unused(&value, 1, dataset_state.unused_float);
        window->values[i] = static_cast<double>(value);
    }
    return true;
}

bool fill_real_window(RealWindow* window, int32_t count)
{
    if (window->item.element_size != 8) return fill_with_singles(window, count);
    if (!read_passed(&window->item, count, window->values.get())) return false;
    map_unused(window->values.get(), count, dataset_state.unused_double);
    return true;
}

static bool read_doubles(int32_t unit, const ItemDescriptor& item, int32_t count, float* values)
{
    RealWindow window{};
    if (!open_real_window(unit, item, count, &window)) return false;
    for (int32_t at = 0; at < count;) {
        const int32_t n = std::min(window.capacity, count - at);
        if (!fill_real_window(&window, n)) return false;
        for (int32_t i = 0; i < n; ++i) values[at + i] = static_cast<float>(window.values[i]);
        at += n;
    }
    return true;
}

static bool read_floats(int32_t unit, const ItemDescriptor& item, int32_t count, float* values)
{
    int32_t gathered = 0;
    const float unused = dataset_state.unused_float;
    ValueSearch search{std::bit_cast<uint32_t>(unused), false};
    const auto take = [&](int32_t at, int32_t n) {
        return nzn_read_and_search(unit, n, values + at, &search);
    };
    if (!walk_data_records(unit, item, count, &gathered, values, take, &search)) return false;
    if (gathered != count) return false;
    if (search.found) map_unused(values, count, unused);
    return true;
}

bool read_real_array_item(int32_t unit, int32_t count, float* values)
{
    ItemDescriptor item{};
    if (!read_real_array_descriptor(unit, count, &item)) return false;
    if (!values) return pass_records(unit, item, count);
    return item.element_size == 8 ? read_doubles(unit, item, count, values)
                                  : read_floats(unit, item, count, values);
}
