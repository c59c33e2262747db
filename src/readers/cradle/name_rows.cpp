#include "readers/cradle/name_rows.h"

#include "readers/cradle/diagnostics.h"

#include <bit>
#include <cstring>

void append_name_row(const char* name, int32_t capacity, int32_t* count, char* rows)
{
    if (*count < capacity) {
        const size_t length = strnlen(name, NAME_ROW_LENGTH);
        char* const row = name_row(rows, *count);
        memcpy(row, name, length);
        memset(row + length, '\0', NAME_ROW_LENGTH - length);
    }
    if (*count < INT32_MAX) ++*count;
}

size_t trim_name_row(const char* row, size_t length, char (&text)[NAME_ROW_LENGTH + 1])
{
    while (length > 0 && (row[length - 1] == ' ' || row[length - 1] == '\0')) --length;
    memcpy(text, row, length);
    memset(text + length, '\0', sizeof text - length);
    return length;
}

// ---- sets of rows ----

static uint32_t hash_row(const char* row)
{
    uint64_t hash = 0;
    for (int32_t at = 0; at < NAME_ROW_LENGTH; at += 8) {
        uint64_t word = 0;
        memcpy(&word, row + at, sizeof word);
        hash = (hash ^ word) * 0x9E3779B97F4A7C15U;
        hash ^= hash >> 29;
    }
    return static_cast<uint32_t>(hash >> 32);
}

// The slot that holds an equal row, or the free slot where it belongs. There always is one: the
// table has at least twice as many slots as the list has rows.
static uint32_t find_slot(const RowSet& set, const char* row)
{
    uint32_t slot = hash_row(row) & set.slot_mask;
    while (set.slots[slot] != 0 &&
           memcmp(set.rows + (set.slots[slot] - 1) * set.stride, row, NAME_ROW_LENGTH) != 0) {
        slot = (slot + 1) & set.slot_mask;
    }
    return slot;
}

bool make_row_set(const char* rows, ptrdiff_t stride, int32_t capacity, RowSet* set)
{
    if (capacity > INT32_MAX / 4) return false;
    const uint32_t slot_count = std::bit_ceil(2 * static_cast<uint32_t>(capacity) + 1);
    *set = {rows, stride, 0, zeroed_heap_array<int32_t>(slot_count), slot_count - 1};
    return set->slots != nullptr;
}

void enter_rows(int32_t end, RowSet* set)
{
    for (; set->count < end; ++set->count) {
        const uint32_t slot = find_slot(*set, set->rows + set->count * set->stride);
        if (set->slots[slot] == 0) set->slots[slot] = set->count + 1;
    }
}

int32_t find_row(const RowSet& set, const char* row)
{
    return set.slots[find_slot(set, row)] - 1;
}

void print_no_memory_for_boundaries()
{
    print_diagnostic("Data reader error: not enough dynamic memory for boundaries.\n");
}
