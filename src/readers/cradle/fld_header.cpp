#include "readers/cradle/fld_header.h"

#include "readers/cradle/diagnostics.h"
#include "readers/cradle/item_reads.h"
#include "readers/cradle/item_records.h"
#include "ui/util/nzn_io.h"

#include <cstring>
#include <limits>

constexpr char MAGIC[] = "CRDL-FLD";
constexpr int32_t MAGIC_LENGTH = 8;
constexpr int32_t FLD_VERSION = 4;

static bool read_magic(int32_t unit)
{
    char magic[MAGIC_LENGTH];
    if (nzn_begin_record(unit) != NZN_OK) return false;
    if (nzn_read_chars(unit, MAGIC_LENGTH, magic) != NZN_OK) return false;
    if (memcmp(magic, MAGIC, MAGIC_LENGTH) == 0) return true;
    print_diagnostic("File does not have a valid Cradle FLD file header.\n");
    return false;
}

static bool read_version(int32_t unit)
{
    int32_t version = 0;
    if (nzn_begin_record(unit) != NZN_OK) return false;
    if (nzn_read_int32(unit, 1, &version) != NZN_OK) return false;
    if (version < FLD_VERSION) {
        print_diagnostic("FLD file version is too old.  Version = %d\n", version);
    } else if (version > FLD_VERSION) {
        print_diagnostic("FLD file version is too new.  Version = %d\n", version);
    }
    return version == FLD_VERSION;
}

static bool read_dimension(int32_t unit)
{
    int32_t dimension = 0;
    if (!read_int_item(unit, &dimension)) return false;
    if (dimension == 3) return true;
    print_diagnostic("Only 3-dimensional data is supported.\nData dimension = %d\n", dimension);
    return false;
}

// The cycle number, which is not used, and the time in either precision.
static bool read_cycle(int32_t unit, float* time)
{
    int32_t cycle = 0;
    ItemDescriptor item{};
    if (!read_int_item(unit, &cycle) || !read_item_descriptor(unit, &item)) return false;
    if (item.per_record != 1 || item.record_count != 1) return false;
    if (nzn_begin_record(unit) != NZN_OK) return false;
    if (item.element_size == 4) return nzn_read_float32(unit, 1, time) == NZN_OK;
    double wide_time = 0;
    if (item.element_size != 8 || nzn_read_float64(unit, 1, &wide_time) != NZN_OK) return false;
    *time = static_cast<float>(wide_time);
    return true;
}

static bool is_single(const ItemDescriptor& item, int32_t element_size)
{
    return item.element_size == element_size && item.per_record == 1 && item.record_count == 1;
}

// The float32 marker and, when it is there, the float64 marker. The group ends with its end
// record, which a group without the second marker has in that marker's place.
static bool read_unused(int32_t unit, float* unused_float, double* unused_double)
{
    ItemDescriptor item{};
    if (!read_item_descriptor(unit, &item) || !is_single(item, 4)) return false;
    if (nzn_begin_record(unit) != NZN_OK) return false;
    if (nzn_read_float32(unit, 1, unused_float) != NZN_OK) return false;

    if (!read_item_descriptor(unit, &item)) return false;
    if (is_end_record(item)) {
        *unused_double = static_cast<double>(*unused_float);
        return true;
    }
    if (!is_single(item, 8)) return false;
    if (nzn_begin_record(unit) != NZN_OK) return false;
    return nzn_read_float64(unit, 1, unused_double) == NZN_OK && read_item_end(unit);
}

bool read_fld_header(int32_t unit, int32_t* bias, float* time, float* unused_float,
                     double* unused_double)
{
    *bias = BIAS_MISSING;
    *unused_float = std::numeric_limits<float>::infinity();
    *unused_double = std::numeric_limits<double>::infinity();
    if (!read_magic(unit) || !read_version(unit)) return false;

    // A header that stops at a keyword record is complete: "HeaderDataEnd" may be missing.
    char keyword[33];
    while (read_name_record(unit, keyword)) {
        bool group_read = false;
        if (strcmp(keyword, "HeaderDataEnd") == 0) return true;
        if (strcmp(keyword, "Dimension") == 0) {
            group_read = read_dimension(unit) && read_item_end(unit);
        } else if (strcmp(keyword, "Bias") == 0) {
            group_read = read_int_item(unit, bias) && read_item_end(unit);
        } else if (strcmp(keyword, "Cycle") == 0) {
            group_read = read_cycle(unit, time) && read_item_end(unit);
        } else if (strcmp(keyword, "Unused") == 0) {
            group_read = read_unused(unit, unused_float, unused_double);
        } else {
            group_read = skip_item_list(unit);
        }
        if (!group_read) return false;
    }
    return true;
}
