#include "readers/cradle/plugin_functions.h"

#include "readers/cradle/dataset_open.h"
#include "readers/cradle/diagnostics.h"
#include "readers/cradle/exports.h"
#include "readers/cradle/grid_read.h"
#include "readers/cradle/host_services.h"

#include <cstdio>
#include <cstring>
#include <initializer_list>

// ---- units of the host's own ----

struct RawUnit {
    int32_t unit;
    FILE* file;
};

// Files that were opened as they are, apart from the readers' units. Nothing in this library opens
// one, so that the host finds none to close.
constexpr int32_t MAX_RAW_UNITS = 100;
static RawUnit RawUnitTable[MAX_RAW_UNITS];
static int32_t last_raw_unit = -1;

void zn_close_unit(int32_t unit)
{
    for (int32_t i = 0; i <= last_raw_unit; ++i) {
        if (RawUnitTable[i].unit != unit) continue;
        (void)fclose(RawUnitTable[i].file);
        RawUnitTable[i] = RawUnitTable[last_raw_unit--];
        return;
    }
}

// ---- registration ----

// Both readers share their callbacks: the files say themselves what they hold.
void register_data_readers()
{
    for (const char* name : {"scSTREAM [Direct Reader]", "SC/Tetra [Direct Reader]"}) {
        if (!host_register_data_reader(name, fld_read_header, fld_read_data)) {
            print_diagnostic("Error registering: %s\n", name);
        }
    }
}

static void do_nothing() {}

// ---- the table ----

struct PluginFunction {
    const char* name;
    void* entry_point;
};

static const PluginFunction PluginFunctionTable[] = {
    {"register_data_readers", reinterpret_cast<void*>(&register_data_readers)},
    {"ftn_register_data_readers", reinterpret_cast<void*>(&do_nothing)},
    {"register_functions", reinterpret_cast<void*>(&do_nothing)},
    {"ftn_register_functions", reinterpret_cast<void*>(&do_nothing)},
    {"zn_close_unit", reinterpret_cast<void*>(&zn_close_unit)},
};

static bool check_is_pending = true;
static bool is_disabled = false;

int reader_get_func(void** slot, const char* function_name)
{
    if (check_is_pending) {
        check_is_pending = false;
        is_disabled = !every_host_service_is_set();
        if (is_disabled) print_diagnostic("version mismatch detected: plugin disabled\n");
    }
    if (is_disabled) return 0;
    for (const PluginFunction& row : PluginFunctionTable) {
        if (strcmp(row.name, function_name) != 0) continue;
        *slot = row.entry_point;
        return 1;
    }
    *slot = nullptr;
    print_diagnostic("Reader_get_func did not find %s\n", function_name);
    return 0;
}
