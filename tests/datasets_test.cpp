// Every dataset of the table, opened and read in any order.
#include "datasets.h"

#include <gtest/gtest.h>

namespace fld_test
{

class Datasets : public testing::TestWithParam<Dataset>
{
};

INSTANTIATE_TEST_SUITE_P(All, Datasets, testing::ValuesIn(datasets()), test_name);

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
