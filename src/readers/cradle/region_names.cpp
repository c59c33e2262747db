#include "readers/cradle/region_names.h"

#include "readers/cradle/diagnostics.h"
#include "readers/cradle/item_reads.h"

#include <cstring>

constexpr int32_t TYPE_LENGTH = 32;

bool region_name_is_empty(const char* name)
{
    if (name[0] != '\0') return false;
    print_diagnostic("Data reader warning: skipping surface region with empty name.\n");
    return true;
}

static bool begins_with(const char* text, const char* prefix)
{
    return strncmp(text, prefix, strlen(prefix)) == 0;
}

static bool is_wall_type(const char* type)
{
    return strcmp(type, "Wall_Boundary") == 0 || strcmp(type, "Solid_Boundary") == 0 ||
           begins_with(type, "WALL(") || begins_with(type, "THERM(");
}

static bool store_wall_name(const char* name, int32_t count, HeapArray<char>* wall_names,
                            int32_t capacity)
{
    if (!wall_names) { // never: without memory for the list the section is not read
        print_diagnostic("Data reader error: not enough dynamic memory for wall region names.\n");
        return false;
    }
    // The room is what the scan counted; the file may have changed since.
    if (count >= capacity) {
        print_diagnostic("Data reader error: more wall regions than the %d counted when the "
                         "dataset was opened\n",
                         capacity);
        return false;
    }
    const size_t size = strlen(name) + 1;
    wall_names[count] = heap_array<char>(static_cast<int64_t>(size));
    if (!wall_names[count]) {
        print_diagnostic("Data reader error: not enough dynamic memory for wall region name.\n");
        return false;
    }
    memcpy(wall_names[count].get(), name, size);
    return true;
}

bool read_fld_region_names(int32_t unit, bool scan_only, int32_t* wall_region_count,
                           HeapArray<char>* wall_names, int32_t wall_name_capacity)
{
    int32_t region_count = 0;
    int32_t name_length = 0;
    if (!read_region_counts(unit, &region_count, &name_length)) return false;
    for (int32_t region = 0; region < region_count; ++region) {
        HeapArray<char> type;
        HeapArray<char> name;
        if (!read_text_item(unit, TYPE_LENGTH, &type)) return false;
        if (!read_region_name(unit, name_length, &name)) return false;
        if (region_name_is_empty(name.get()) || !is_wall_type(type.get())) continue;
        if (!scan_only &&
            !store_wall_name(name.get(), *wall_region_count, wall_names, wall_name_capacity)) {
            return false;
        }
        ++*wall_region_count;
    }
    return true;
}
