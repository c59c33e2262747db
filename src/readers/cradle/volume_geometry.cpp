#include "readers/cradle/volume_geometry.h"

#include "readers/cradle/item_reads.h"

// The count is followed by as many integers, which nobody asks for.
static bool skip_region(int32_t unit, int32_t name_length)
{
    HeapArray<char> name;
    int32_t value_count = 0;
    return read_region_name(unit, name_length, &name) && read_int_item(unit, &value_count) &&
           read_int_array_item(unit, value_count, nullptr);
}

bool read_volume_geometry_section(int32_t unit)
{
    int32_t region_count = 0;
    int32_t name_length = 0;
    if (!read_region_counts(unit, &region_count, &name_length)) return false;
    for (int32_t i = 0; i < region_count; ++i) {
        if (!skip_region(unit, name_length)) return false;
    }
    return true;
}

bool read_volume_geometry_array_section(int32_t unit)
{
    int32_t region_count = 0;
    int32_t name_length = 0;
    FixedString names;
    HeapArray<int32_t> value_counts;
    if (!read_region_counts(unit, &region_count, &name_length)) return false;
    const int64_t name_total = static_cast<int64_t>(name_length) * region_count;
    if (name_total < INT32_MIN || name_total > INT32_MAX) return false;
    if (!read_fixed_string_item(unit, static_cast<int32_t>(name_total), &names)) return false;
    if (region_count < 0) return false;
    if (!read_new_int_array_item(unit, region_count, &value_counts)) return false;
    // These counts may be negative, and their sum wraps; only a negative sum is a fault.
    uint32_t value_total = 0;
    for (int32_t i = 0; i < region_count; ++i)
        value_total += static_cast<uint32_t>(value_counts[i]);
    return read_int_array_item(unit, static_cast<int32_t>(value_total), nullptr);
}
