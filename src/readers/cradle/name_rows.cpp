#include "readers/cradle/name_rows.h"

#include "readers/cradle/diagnostics.h"

#include <algorithm>
#include <cstring>
#include <numeric>
#include <utility>

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

static const char* row_at(const RowSet& set, int32_t number)
{
    return set.rows + number * set.stride;
}

bool make_row_set(const char* rows, ptrdiff_t stride, int32_t capacity, RowSet* set)
{
    HeapArray<int32_t> memory = heap_array<int32_t>(int64_t{2} * capacity);
    int32_t* const numbers = memory.get();
    if (!numbers) return false;
    *set = {rows, stride, 0, std::move(memory), numbers, numbers + capacity};
    return true;
}

void enter_rows(int32_t end, RowSet* set)
{
    if (end <= set->count) return;
    const auto stands_before = [set](int32_t a, int32_t b) {
        const int order = memcmp(row_at(*set, a), row_at(*set, b), NAME_ROW_LENGTH);
        return order != 0 ? order < 0 : a < b;
    };
    int32_t* const known = set->order;
    int32_t* const added = known + set->count;
    std::iota(added, known + end, set->count);
    std::sort(added, known + end, stands_before);
    std::merge(known, added, added, known + end, set->spare, stands_before);
    std::swap(set->order, set->spare);
    set->count = end;
}

int32_t find_row(const RowSet& set, const char* row)
{
    const int32_t* const begin = set.order;
    const int32_t* const end = begin + set.count;
    const int32_t* const found =
        std::lower_bound(begin, end, row, [&set](int32_t number, const char* wanted) {
            return memcmp(row_at(set, number), wanted, NAME_ROW_LENGTH) < 0;
        });
    const bool is_there = found != end && memcmp(row_at(set, *found), row, NAME_ROW_LENGTH) == 0;
    return is_there ? *found : -1;
}

void print_no_memory_for_boundaries()
{
    print_diagnostic("Data reader error: not enough dynamic memory for boundaries.\n");
}
