#include "readers/cradle/name_lists.h"

#include "readers/cradle/diagnostics.h"
#include "readers/cradle/variables.h"

#include <algorithm>
#include <cstring>

void print_no_memory_for_variables()
{
    print_diagnostic("Data reader error: not enough dynamic memory for variables.\n");
}

// ---- lists of our own ----

// Rows are written as names come: a host with room for thousands pays for those that it gets.
static HeapArray<char> empty_rows(int32_t capacity)
{
    return heap_array<char>(int64_t{capacity} * NAME_ROW_LENGTH);
}

bool make_boundary_list(const NameLists& host, LocalNames* local)
{
    local->boundary_names = empty_rows(host.boundaries.capacity);
    return local->boundary_names != nullptr;
}

bool make_variable_list(const NameLists& host, LocalNames* local)
{
    local->variable_names = empty_rows(host.variables.capacity);
    local->variable_sections = zeroed_heap_array<VariableSection>(host.variables.capacity);
    if (local->variable_names && local->variable_sections) return true;
    print_no_memory_for_variables();
    return false;
}

NameLists lists_of(const NameLists& host, LocalNames* local)
{
    return {
        {host.boundaries.capacity, &local->boundary_count, local->boundary_names.get(), nullptr},
        {host.variables.capacity, &local->variable_count, local->variable_names.get(), nullptr},
        local->variable_sections.get()};
}

// ---- merging ----

static int32_t rows_written(const NameList& list)
{
    return std::min(*list.count, list.capacity);
}

// Finds the names that a list has; false when there is no memory for that.
static bool index_names(const NameList& list)
{
    if (!list.index->memory && !make_row_set(list.rows, NAME_ROW_LENGTH, list.capacity, list.index))
        return false;
    enter_rows(rows_written(list), list.index);
    return true;
}

// Appends a name, unless it was indexed or there is no room; true when it was appended. The names
// of one merge are not looked for among each other.
static bool append_new_name(const char* name, const NameList& host)
{
    if (*host.count >= host.capacity || find_row(*host.index, name) >= 0) return false;
    memcpy(name_row(host.rows, (*host.count)++), name, NAME_ROW_LENGTH);
    return true;
}

static bool merge_boundaries(const NameList& local, const NameList& host)
{
    if (*local.count < 1) return true;
    if (!index_names(host)) {
        print_no_memory_for_boundaries();
        return false;
    }
    for (int32_t i = 0; i < rows_written(local); ++i) {
        (void)append_new_name(name_row(local.rows, i), host);
    }
    return true;
}

// Appends the names of one variable, and its section when all of them were new.
static void merge_variable(const char* names, int32_t name_count, const VariableSection& section,
                           MergedSections sections, const NameLists& host)
{
    const int32_t first = *host.variables.count;
    for (int32_t k = 0; k < name_count; ++k) {
        const int32_t row = *host.variables.count;
        if (append_new_name(names + int64_t{k} * NAME_ROW_LENGTH, host.variables))
            host.variable_sections[row].name[0] = '\0';
    }
    const bool is_whole = *host.variables.count - first == name_count;
    if (is_whole && sections == MergedSections::kept) host.variable_sections[first] = section;
}

static bool merge_variables(const NameLists& local, const NameLists& host, MergedSections sections)
{
    if (*local.variables.count < 1) return true;
    if (!index_names(host.variables)) {
        print_no_memory_for_variables();
        return false;
    }
    int32_t names = 1;
    for (int32_t i = 0; i < rows_written(local.variables); i += names) {
        const VariableSection& section = local.variable_sections[i];
        // A vector that found no three free rows left them unwritten; nothing follows it.
        if (section.name[0] == '\0') return true;
        names = is_vector_section(section.name) ? 3 : 1;
        merge_variable(name_row(local.variables.rows, i), names, section, sections, host);
    }
    return true;
}

bool merge_names(const NameLists& local, const NameLists& host, MergedSections sections)
{
    return merge_boundaries(local.boundaries, host.boundaries) &&
           merge_variables(local, host, sections);
}
