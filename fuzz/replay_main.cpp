// Runs a fuzz target once over every file of a directory: replay DIRECTORY [TRACES]. What comes of
// each goes to the file TRACES.
#include "fld_builder.h"
#include "input.h"

#include <algorithm>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv)
{
    if (argc > 2) fld_fuzz::shown = fopen(argv[2], "wb");
    std::vector<std::string> inputs;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(argv[1])) {
        inputs.push_back(entry.path().string());
    }
    std::sort(inputs.begin(), inputs.end());
    for (const std::string& input : inputs) {
        const std::string bytes = fld_test::file_content(input);
        fld_fuzz::show("== " + std::filesystem::path(input).filename().string() + "\n");
        (void)LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    }
    (void)fprintf(stderr, "%zu inputs\n", inputs.size());
    return inputs.empty() ? 1 : 0;
}
