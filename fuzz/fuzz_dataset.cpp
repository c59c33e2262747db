// A whole dataset: open, every grid, close. A second file takes the place of the first one between
// the header callback and the data callbacks.
#include "fuzz_host.h"
#include "input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const fld_test::TemporaryDirectory directory;
    const fld_fuzz::Input input = fld_fuzz::split_input(data, size);
    fld_fuzz::run_dataset(directory.write("a.fld", input.file), input.choices, [&] {
        if (!input.second_file.empty()) (void)directory.write("a.fld", input.second_file);
    });
    return 0;
}
