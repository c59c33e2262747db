// An int array item whose values are taken one after the other, through a small window.
#pragma once

#include "readers/cradle/heap_array.h"
#include "readers/cradle/item_reads.h"

#include <cstdint>

struct IntWindow {
    PassedItem item;
    HeapArray<int32_t> values;
    int32_t capacity;
    int32_t begin; // the part of the values that was not taken yet
    int32_t end;
};

// Starts on the next item, of `count` values, and passes over it: whatever is wrong with it shows
// here, as when it is read whole. Other items may be read before and between the takes. Prints when
// there is no memory for the window.
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
