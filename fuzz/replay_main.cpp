// Runs a fuzz target once over every file of the given directories.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv)
{
    int inputs = 0;
    if (!freopen("/dev/null", "w", stdout)) return 1;
    for (int i = 1; i < argc; ++i) {
        for (const auto& entry : std::filesystem::recursive_directory_iterator(argv[i])) {
            std::ifstream stream(entry.path(), std::ios::binary);
            const std::vector<char> bytes{std::istreambuf_iterator<char>(stream), {}};
            (void)LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()),
                                         bytes.size());
            ++inputs;
        }
    }
    (void)fprintf(stderr, "%d inputs\n", inputs);
    return inputs > 0 ? 0 : 1;
}
