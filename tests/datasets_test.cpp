// Every dataset of the table against its trace, in every way that a file can be written.
#include "datasets.h"

#include <gtest/gtest.h>

namespace fld_test
{

class Datasets : public testing::TestWithParam<Dataset>
{
};

INSTANTIATE_TEST_SUITE_P(All, Datasets, testing::ValuesIn(datasets()), test_name);

// Sub-records of 1, 3 and 7 bytes divide every number; a bias of 0 or below must not be taken for
// "no bias".
constexpr Format formats[] = {
    {},
    {.big_endian = true},
    {.max_subrecord = 1},
    {.big_endian = true, .max_subrecord = 3, .bias = 0},
    {.max_subrecord = 7, .values_per_record = 1},
    {.big_endian = true, .max_subrecord = 16, .values_per_record = 3, .bias = -1000},
    {.values_per_record = 2, .bias = 2000000000, .precision = 8},
    {.big_endian = true, .max_subrecord = 5, .precision = 8},
};

TEST_P(Datasets, have_their_trace_in_every_format)
{
    TestHost host;
    host.start();
    for (const Format& format : formats) {
        EXPECT_EQ(run(host, GetParam(), format), GetParam().trace)
            << (format.big_endian ? "big-endian" : "little-endian") << ", sub-records of "
            << format.max_subrecord << ", values per record " << format.values_per_record
            << ", bias " << format.bias << ", precision " << format.precision;
    }
}

TEST_P(Datasets, open_and_read_again_in_any_order)
{
    TestHost host;
    host.start();
    const TemporaryDirectory directory;
    std::string path;
    for (const NamedFile& file : GetParam().files) {
        path = directory.write(file.name, build(file.file));
    }
    host.open(path);
    host.take_trace();
    std::string first;
    for (int32_t grid = 1; grid <= host.grid_count(); ++grid) {
        host.read(grid);
        first.insert(0, host.take_trace()); // latest grid first
    }
    host.close();
    host.close(); // nothing is held any more
    host.open(path);
    host.open(path); // without a close
    host.take_trace();
    for (int32_t grid = host.grid_count(); grid >= 1; --grid) host.read(grid);
    EXPECT_EQ(host.take_trace(), first);
    host.close();
}

// Many files that follow each other under one host: nothing of one shows in the next.
TEST(AllDatasets, one_after_the_other)
{
    TestHost host;
    host.start();
    for (const Dataset& dataset : datasets()) EXPECT_EQ(run(host, dataset), dataset.trace);
}

} // namespace fld_test
