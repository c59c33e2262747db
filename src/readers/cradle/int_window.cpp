#include "readers/cradle/int_window.h"

#include <algorithm>
#include <cstring>

// Small enough for the processor's cache, large enough to make calls of the system rare.
constexpr int32_t WINDOW_VALUES = 64 * 1024;

bool open_int_window(int32_t unit, int32_t count, IntWindow* window)
{
    *window = {};
    window->capacity = std::min(count, WINDOW_VALUES);
    if (count < 0 || !file_can_hold(unit, count, sizeof(int32_t))) return false;
    window->values = heap_array<int32_t>(window->capacity);
    if (!window->values) {
        print_no_memory_for_items(count);
        return false;
    }
    return pass_int_array_item(unit, count, &window->item);
}

const int32_t* refill_and_take(IntWindow* window, int32_t count)
{
    const int32_t kept = window->end - window->begin;
    memmove(window->values.get(), window->values.get() + window->begin,
            static_cast<size_t>(kept) * sizeof(int32_t));
    const int32_t more = std::min(window->capacity - kept, window->item.unread);
    if (!read_passed(&window->item, more, window->values.get() + kept)) return nullptr;
    window->end = kept + more;
    if (count > window->end) return nullptr;
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
