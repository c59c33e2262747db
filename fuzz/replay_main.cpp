// Runs a fuzz target once over every file of the given directories.
#include "fld_builder.h"

#include <cstdio>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv)
{
    int inputs = 0;
    if (!freopen("/dev/null", "w", stdout)) return 1;
    for (int i = 1; i < argc; ++i) {
        for (const auto& entry : std::filesystem::recursive_directory_iterator(argv[i])) {
            const std::string bytes = fld_test::file_content(entry.path());
            (void)LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()),
                                         bytes.size());
            ++inputs;
        }
    }
    (void)fprintf(stderr, "%d inputs\n", inputs);
    return inputs > 0 ? 0 : 1;
}
