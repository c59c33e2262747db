// Windows on large arrays: an array item is passed over first, so that whatever is wrong with it
// shows, and its values are read later on, a few at a time. Fresh memory for all of them would cost
// more than reading them. Other items may be read before and between the reads of a window.
//
// Opening a window prints when there is no memory for it.
#pragma once

#include "readers/cradle/heap_array.h"
#include "readers/cradle/item_records.h"

#include <cstdint>

// An array that was passed over.
struct PassedItem {
    ItemRecords records;
    RecordMark mark; // where reading goes on
};

// Values of an array of int32, taken one after the other.
struct IntWindow {
    PassedItem item;
    HeapArray<int32_t> values;
    int32_t capacity;
    int32_t begin; // the part of the values that was not taken yet
    int32_t end;
};

// Starts on the next item, of `count` values.
[[nodiscard]] bool open_int_window(int32_t unit, int32_t count, IntWindow* window);

// The next `count` values, at most 64 of them, valid until the next take; null when the file does
// not hold them any more. The caller knows that so many are left.
[[nodiscard]] const int32_t* refill_and_take(IntWindow* window, int32_t count);

[[nodiscard]] inline const int32_t* take_values(IntWindow* window, int32_t count)
{
    if (count > window->end - window->begin) return refill_and_take(window, count);
    const int32_t* const values = window->values.get() + window->begin;
    window->begin += count;
    return values;
}

// Passes over values.
[[nodiscard]] bool pass_values(IntWindow* window, int32_t count);

// Values of an array of reals of either size, a part at a time.
struct RealWindow {
    PassedItem item;
    HeapArray<double> values;
    int32_t capacity;
};

// Starts on the next item, of `count` values; the second, on one whose descriptor was read.
[[nodiscard]] bool open_real_window(int32_t unit, int32_t count, RealWindow* window);
[[nodiscard]] bool open_real_window(const ItemRecords& records, int32_t count, RealWindow* window);

// Reads the next values into the window, at most its capacity and as many as are left; undefined
// ones become +infinity.
[[nodiscard]] bool fill_real_window(RealWindow* window, int32_t count);

// Prints that there is no memory for an array of values.
void print_no_memory_for_items(int32_t count);
