#include "readers/cradle/variables.h"

#include "readers/cradle/array_windows.h"
#include "readers/cradle/dataset_state.h"
#include "readers/cradle/diagnostics.h"
#include "readers/cradle/item_reads.h"
#include "readers/cradle/name_rows.h"
#include "readers/cradle/nodes.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

constexpr int32_t LABEL_LENGTH = 32;
constexpr size_t COMPOSED_LENGTH = 256; // more than two labels, two keys and the words between

// ---- names ----

bool is_vector_section(const char* name)
{
    return strncmp(name, "LS_Vector:", strlen("LS_Vector:")) == 0;
}

// A label that says more than the key goes before it; the key then stands in parentheses.
static bool says_more(const char* label, const char* key)
{
    return label[0] != '\0' && strcmp(label, key) != 0;
}

static void append_scalar_name(const char* label, const char* key, int32_t capacity, int32_t* count,
                               char* names)
{
    char name[COMPOSED_LENGTH];
    if (says_more(label, key)) {
        (void)snprintf(name, sizeof name, "%s (%s)", label, key);
    } else {
        (void)snprintf(name, sizeof name, "%s", key);
    }
    append_name_row(name, capacity, count, names);
}

// Three names, or none of them; the x name also carries the name of the vector itself.
static void append_vector_names(const char* label, const char* key, int32_t capacity,
                                int32_t* count, char* names)
{
    if (int64_t{*count} + 3 > capacity) {
        *count += *count <= INT32_MAX - 3 ? 3 : 0;
        return;
    }
    for (const char axis : {'x', 'y', 'z'}) {
        char name[COMPOSED_LENGTH];
        char vector[COMPOSED_LENGTH] = "";
        if (says_more(label, key)) {
            if (axis == 'x') (void)snprintf(vector, sizeof vector, "; %s (%s)", label, key);
            (void)snprintf(name, sizeof name, "%s (%c-component) (%s)%.100s", label, axis, key,
                           vector);
        } else {
            if (axis == 'x') (void)snprintf(vector, sizeof vector, "; %s", key);
            (void)snprintf(name, sizeof name, "%s (%c-component)%.100s", key, axis, vector);
        }
        append_name_row(name, capacity, count, names);
    }
}

bool value_buffer_is_there(bool is_vector, int32_t node_count, const float* values)
{
    if (node_count < 1 || values) return true;
    print_diagnostic(is_vector ? "Error: NULL array for vector values.\n"
                               : "Error: NULL array for scalar values.\n");
    return false;
}

// ---- scalars ----

bool read_scalar_section(int32_t unit, bool scan_only, const char* key, int32_t name_capacity,
                         int32_t node_count, int32_t* name_count, char* names, float* values)
{
    if (!scan_only && !value_buffer_is_there(false, node_count, values)) return false;
    int32_t not_interpreted = 0;
    int32_t value_count = 0;
    HeapArray<char> label;
    if (!read_int_item(unit, &not_interpreted) || !read_text_item(unit, LABEL_LENGTH, &label))
        return false;
    if (scan_only) append_scalar_name(label.get(), key, name_capacity, name_count, names);
    if (!read_int_item(unit, &value_count)) return false;
    if (!scan_only && value_count != node_count) {
        print_diagnostic("Data reader error: scalar count %d does not match node count %d\n",
                         value_count, node_count);
        return false;
    }
    return read_real_array_item(unit, value_count, scan_only ? nullptr : values);
}

// ---- vectors ----

// The radial component and the angular rate of every node become x and y components. The rate
// times the radius is the tangential component.
static bool read_cylindrical_components(int32_t unit, int32_t node_count, const float* node_coords,
                                        float* values)
{
    RealWindow radial{};
    RealWindow rate{};
    if (!open_real_window(unit, node_count, &radial)) return false;
    if (!open_real_window(unit, node_count, &rate)) return false;
    const float* const radius_plane = node_coords;
    const float* const angle_plane = node_coords + node_count;
    float* const x = values;
    float* const y = values + node_count;
    for (int32_t at = 0; at < node_count;) {
        const int32_t n = std::min(radial.capacity, node_count - at);
        if (!fill_real_window(&radial, n) || !fill_real_window(&rate, n)) return false;
        for (int32_t i = 0; i < n; ++i, ++at) {
            const double radius = radius_plane[at];
            const double cosine = std::cos(static_cast<double>(angle_plane[at]));
            const double sine = std::sin(static_cast<double>(angle_plane[at]));
            x[at] = static_cast<float>(cosine * radial.values[i] - sine * radius * rate.values[i]);
            y[at] = static_cast<float>(cosine * radius * rate.values[i] + sine * radial.values[i]);
        }
    }
    return read_real_array_item(unit, node_count, values + int64_t{2} * node_count);
}

static bool read_components(int32_t unit, int32_t count, float* values)
{
    for (int64_t component = 0; component < 3; ++component) {
        if (!read_real_array_item(unit, count, values ? values + component * count : nullptr)) {
            return false;
        }
    }
    return true;
}

bool read_vector_section(int32_t unit, bool scan_only, const char* key, int32_t name_capacity,
                         int32_t node_count, const float* node_coords, int32_t* name_count,
                         char* names, float* values)
{
    if (!scan_only && !value_buffer_is_there(true, node_count, values)) return false;
    // Always valid: the grid or its results were refused before otherwise.
    if (!scan_only && !check_coordinate_system(dataset_state.coordinate_system)) return false;
    int32_t not_interpreted = 0;
    int32_t value_count = 0;
    HeapArray<char> label;
    if (!read_int_item(unit, &not_interpreted) || !read_int_item(unit, &not_interpreted) ||
        !read_text_item(unit, LABEL_LENGTH, &label)) {
        return false;
    }
    if (scan_only) append_vector_names(label.get(), key, name_capacity, name_count, names);
    if (!read_int_item(unit, &value_count)) return false;
    if (scan_only) return read_components(unit, value_count, nullptr);
    if (value_count != node_count) {
        print_diagnostic("Data reader error: vector count %d does not match node count %d\n",
                         value_count, node_count);
        return false;
    }
    if (node_count < 1 || dataset_state.coordinate_system == CARTESIAN) {
        return read_components(unit, node_count, values);
    }
    return read_cylindrical_components(unit, node_count, node_coords, values);
}
