#include "readers/cradle/ale.h"

#include "readers/cradle/diagnostics.h"
#include "readers/cradle/item_reads.h"

static bool skip_name(int32_t unit, int32_t name_length)
{
    HeapArray<char> name;
    return read_text_item(unit, name_length, &name);
}

static bool skip_reals(int32_t unit, int32_t items, int32_t values_per_item)
{
    for (int32_t i = 0; i < items; ++i) {
        if (!read_real_array_item(unit, values_per_item, nullptr)) return false;
    }
    return true;
}

// A name and its motion data, whose extent a code of 1, 2, 3 or 8 tells.
static bool skip_entry(int32_t unit, int32_t name_length)
{
    int32_t data_records = 0;
    if (!skip_name(unit, name_length) || !read_int_item(unit, &data_records)) return false;
    switch (data_records) {
    case 1:
    case 2:
    case 8: return skip_reals(unit, data_records, 3);
    case 3: return skip_reals(unit, 2, 3) && skip_reals(unit, 1, 1);
    default: break;
    }
    print_diagnostic("FLD file ALE error: number of data records = %d\n", data_records);
    return false;
}

// A count and as many parts, each passed over by `skip`.
static bool skip_counted(int32_t unit, int32_t name_length, bool (*skip)(int32_t, int32_t))
{
    int32_t count = 0;
    if (!read_int_item(unit, &count) || count < 0) return false;
    for (int32_t i = 0; i < count; ++i) {
        if (!skip(unit, name_length)) return false;
    }
    return true;
}

bool read_ale_section(int32_t unit)
{
    int32_t not_interpreted = 0;
    int32_t name_length = 0;
    int32_t group_count = 0;
    if (!read_int_item(unit, &not_interpreted) || !read_int_item(unit, &name_length) ||
        !read_int_item(unit, &not_interpreted) || !read_int_item(unit, &group_count)) {
        return false;
    }
    for (int32_t group = 0; group < group_count; ++group) {
        if (!skip_counted(unit, name_length, skip_name)) return false;
        if (!skip_counted(unit, name_length, skip_entry)) return false;
    }
    return true;
}
