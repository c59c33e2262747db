#include "fuzz_host.h"

#include "input.h"
#include "test_host.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace fld_fuzz
{

static int creates_left; // before the host closes the dataset; below 1 it does not

// Stays loaded to the end of the process, so that reports can name the library's functions. What
// the host finds wrong is thrown, not caught, and ends the process in a way that libFuzzer notices.
static fld_test::TestHost& host()
{
    static fld_test::TestHost* const started = [] {
        GTEST_FLAG_SET(throw_on_failure, true);
        auto* const loaded = new fld_test::TestHost;
        loaded->start();
        loaded->on_create = [loaded] {
            if (--creates_left == 0) loaded->library().registrations().close_file();
        };
        return loaded;
    }();
    return *started;
}

// Before the first input, so that the library's code counts from the start.
extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/)
{
    (void)host();
    return 0;
}

// What the last callback showed. Names of files and variables are part of it, so that no text in it
// means anything by itself.
static std::string checked_trace()
{
    EXPECT_TRUE(host().error_flag() == 0 || host().error_flag() == 1) << host().error_flag();
    std::string trace = host().take_trace();
    show(trace);
    return trace;
}

// Reads the grid twice, into differently filled buffers: what is delivered must not depend on them,
// unless the host closed the dataset meanwhile.
static void read_twice(int32_t grid)
{
    const bool may_close = creates_left > 0;
    host().controls.fill = 0;
    host().read(grid);
    const std::string first = checked_trace();
    host().controls.fill = fld_test::UNTOUCHED;
    host().read(grid);
    const std::string second = checked_trace();
    EXPECT_EQ(may_close && creates_left < 1 ? first : second, first);
}

static void read_all(const std::string& choices)
{
    const uint8_t wrong = choice(choices, 1);
    host().change_node_counts(wrong >> 2 & 1);
    host().set_variable_count(
        std::max(0, host().variable_count() + (wrong >> 3 & 3) - (wrong >> 5 & 3)));
    for (int32_t grid = 1; grid <= host().grid_count(); ++grid) read_twice(grid);
    if ((wrong & 0x80) == 0) return;
    for (const int32_t grid : {0, host().grid_count() + 1, INT32_MIN, INT32_MAX}) read_twice(grid);
}

void run_dataset(const std::string& path, const std::string& choices,
                 const std::function<void()>& before_reading)
{
    static constexpr int32_t capacities[][4] = {{4, 1, 0, -1}, {8, 1, 0, 64}, {10, 3, 0, 5}};
    const uint8_t bits = choice(choices, 0), wrong = choice(choices, 1);
    host().controls = {.grid_capacity = capacities[0][bits & 3],
                       .boundary_capacity = capacities[1][bits >> 2 & 3],
                       .variable_capacity = capacities[2][bits >> 4 & 3],
                       .refuse_create = choice(choices, 2),
                       .no_coordinates = (wrong & 1) != 0,
                       .no_values = (wrong & 2) != 0,
                       .reader = bits >> 6 & 1U};
    host().hidden_prefix = path.substr(0, path.find_last_of("/\\") + 1);
    creates_left = choice(choices, 4);
    host().open(path);
    (void)checked_trace();
    if (host().error_flag() == 0) {
        before_reading();
        read_all(choices);
    }
    host().peek(path);
    host().close();
    (void)checked_trace();
}

} // namespace fld_fuzz
