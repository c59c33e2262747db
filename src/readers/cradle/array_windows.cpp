#include "readers/cradle/array_windows.h"

#include "readers/cradle/dataset_state.h"
#include "readers/cradle/diagnostics.h"
#include "readers/cradle/unused_values.h"

#include <algorithm>
#include <cstring>

void print_no_memory_for_items(int32_t count)
{
    print_diagnostic("FLD file error: not enough dynamic memory for %d items\n", count);
}

// ---- passing over first, reading later ----

static bool pass_item(const ItemRecords& records, int32_t count, PassedItem* item)
{
    *item = {records, nzn_mark(records.unit)};
    ItemRecords passed = records;
    return read_whole_item(&passed, count, nullptr) && nzn_is_within_file(passed.unit);
}

// Reads the next values as they are stored. The unit is left where it stood.
static bool read_passed(PassedItem* item, int32_t count, void* values)
{
    const int32_t unit = item->records.unit;
    const RecordMark elsewhere = nzn_mark(unit);
    if (nzn_return(unit, item->mark) != NZN_OK) return false;
    if (!read_item_values(&item->records, count, values)) return false;
    item->mark = nzn_mark(unit);
    return nzn_return(unit, elsewhere) == NZN_OK;
}

// ---- integers ----

// Few enough for the processor's cache, enough to make calls of the system rare.
constexpr int32_t INT_WINDOW_VALUES = 64 * 1024;
constexpr int32_t REAL_WINDOW_VALUES = 32 * 1024;

bool open_int_window(int32_t unit, int32_t count, IntWindow* window)
{
    *window = {};
    window->capacity = std::min(count, INT_WINDOW_VALUES);
    if (count < 0 || !file_can_hold(unit, count, sizeof(int32_t))) return false;
    window->values = heap_array<int32_t>(window->capacity);
    if (!window->values) {
        print_no_memory_for_items(count);
        return false;
    }
    ItemRecords records{};
    return begin_int_array(unit, count, &records) && pass_item(records, count, &window->item);
}

const int32_t* refill_and_take(IntWindow* window, int32_t count)
{
    const int32_t kept = window->end - window->begin;
    memmove(window->values.get(), window->values.get() + window->begin,
            static_cast<size_t>(kept) * sizeof(int32_t));
    const int32_t more = std::min(window->capacity - kept, window->item.records.values_left);
    if (!read_passed(&window->item, more, window->values.get() + kept)) return nullptr;
    window->end = kept + more;
    if (count > window->end) return nullptr; // never: no caller takes more than the array has
    window->begin = count;
    return window->values.get();
}

bool pass_values(IntWindow* window, int32_t count)
{
    for (int32_t left = count; left > 0;) {
        const int32_t here = window->end - window->begin;
        const int32_t n = here > 0 ? std::min(here, left) : 1;
        if (!take_values(window, n)) return false;
        left -= n;
    }
    return true;
}

// ---- reals ----

bool open_real_window(const ItemRecords& records, int32_t count, RealWindow* window)
{
    if (!file_can_hold(records.unit, count, records.element_size)) return false;
    window->capacity = std::min(count, REAL_WINDOW_VALUES);
    window->values = heap_array<double>(window->capacity);
    if (!window->values) {
        print_no_memory_for_items(count);
        return false;
    }
    return pass_item(records, count, &window->item);
}

bool open_real_window(int32_t unit, int32_t count, RealWindow* window)
{
    ItemRecords records{};
    return begin_real_array(unit, count, &records) && open_real_window(records, count, window);
}

// Values stored in 4 bytes are widened.
static bool fill_with_singles(RealWindow* window, int32_t count)
{
    constexpr int32_t AT_A_TIME = 2048;
    float singles[AT_A_TIME];
    for (int32_t at = 0; at < count;) {
        const int32_t n = std::min(AT_A_TIME, count - at);
        if (!read_passed(&window->item, n, singles)) return false;
        map_unused(singles, n, dataset_state.unused_float);
        std::copy_n(singles, n, window->values.get() + at);
        at += n;
    }
    return true;
}

bool fill_real_window(RealWindow* window, int32_t count)
{
    if (window->item.records.element_size != 8) return fill_with_singles(window, count);
    if (!read_passed(&window->item, count, window->values.get())) return false;
    map_unused(window->values.get(), count, dataset_state.unused_double);
    return true;
}
