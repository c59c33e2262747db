// A results file, and the file before it in its series. The fourth choice lets either take the
// place of the other between the header callback and the data callbacks.
#include "fuzz_host.h"
#include "input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const fld_test::TemporaryDirectory directory;
    const fld_fuzz::Input input = fld_fuzz::split_input(data, size);
    (void)directory.write("r_0001.fld", input.second_file);
    fld_fuzz::run_dataset(directory.write("r_0002.fld", input.file), input.choices, [&] {
        const uint8_t changes = fld_fuzz::choice(input.choices, 3);
        if (changes & 1) (void)directory.write("r_0002.fld", input.second_file);
        if (changes & 2) (void)directory.write("r_0001.fld", input.file);
    });
    return 0;
}
