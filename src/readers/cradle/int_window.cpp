#include "readers/cradle/int_window.h"

#include "readers/cradle/item_reads.h"

#include <algorithm>
#include <cstring>

// Small enough for the processor's cache, large enough to make calls of the system rare.
constexpr int32_t WINDOW_VALUES = 64 * 1024;

bool open_int_window(int32_t unit, int32_t count, IntWindow* window)
{
    *window = {};
    window->unit = unit;
    window->unread = count;
    window->capacity = std::min(count, WINDOW_VALUES);
    if (count < 0 || !file_can_hold(unit, count, sizeof(int32_t))) return false;
    window->values = heap_array<int32_t>(window->capacity);
    if (!window->values) {
        print_no_memory_for_items(count);
        return false;
    }
    return pass_int_array_item(unit, count, &window->per_record, &window->mark) &&
           nzn_is_within_file(unit);
}

// Reads into the window, on from where it left off; false when the file does not go on as it did.
static bool fill(IntWindow* window)
{
    while (window->unread > 0 && window->end < window->capacity) {
        int32_t* const to = window->values.get() + window->end;
        const int32_t room = std::min(window->capacity - window->end, window->unread);
        int32_t taken = 0;
        if (window->record_left == 0) {
            taken = static_cast<int32_t>(nzn_take_records(window->unit, sizeof(int32_t),
                                                          window->per_record,
                                                          room / window->per_record, to)) *
                    window->per_record;
        }
        if (taken == 0) {
            if (window->record_left == 0) {
                if (nzn_begin_record(window->unit) != NZN_OK) return false;
                window->record_left = std::min(window->per_record, window->unread);
            }
            taken = std::min(room, window->record_left);
            if (nzn_read_int32(window->unit, taken, to) != NZN_OK) return false;
            window->record_left -= taken;
        }
        window->end += taken;
        window->unread -= taken;
    }
    return true;
}

// The same, and leaves the unit where it stood.
static bool read_on(IntWindow* window)
{
    const RecordMark elsewhere = nzn_mark(window->unit);
    if (nzn_return(window->unit, window->mark) != NZN_OK || !fill(window)) return false;
    window->mark = nzn_mark(window->unit);
    return nzn_return(window->unit, elsewhere) == NZN_OK;
}

const int32_t* refill_and_take(IntWindow* window, int32_t count)
{
    const int32_t kept = window->end - window->begin;
    memmove(window->values.get(), window->values.get() + window->begin,
            static_cast<size_t>(kept) * sizeof(int32_t));
    window->begin = 0;
    window->end = kept;
    if (!read_on(window) || count > window->end) return nullptr;
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
