// A series: names separated by '/', which no name can hold. The first one is a results file and is
// opened, by its bare name or, when the input begins with a '/', by its path; of the others every
// second one holds a grid.
#include "fuzz_host.h"
#include "input.h"
#include "test_system.h"

#include <algorithm>
#include <sstream>

constexpr size_t MAX_FILES = 12;

struct NamePlace {
    fld_test::TemporaryDirectory originals, directory;
    std::string files[2];
    std::filesystem::path home = std::filesystem::current_path();

    NamePlace()
    {
        const fld_test::FldFile grid{
            {{fld_test::coordinate_system(0), fld_test::nodes({{0, 0, 0}, {1, 0, 0}}),
              fld_test::materials({}), fld_test::elements({})}}};
        const fld_test::FldFile results{{{fld_test::scalar("T", "", {1, 2})}}};
        files[0] = originals.write("results", fld_test::build(results));
        files[1] = originals.write("grid", fld_test::build(grid));
    }
};

static std::vector<std::string> split_names(const std::string& text)
{
    std::vector<std::string> names;
    std::istringstream stream(text);
    for (std::string name; names.size() < MAX_FILES && std::getline(stream, name, '/');) {
        names.push_back(name.substr(0, name.find('\0')));
    }
    return names;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const NamePlace place;
    const bool by_path = size > 0 && data[0] == '/';
    const auto names = split_names({reinterpret_cast<const char*>(data) + by_path, size - by_path});
    if (names.empty()) return 0;
    if (!std::all_of(names.begin(), names.end(), fld_test::can_be_named)) {
        fld_fuzz::show("left out\n");
    }
    std::vector<std::string> made;
    std::filesystem::current_path(place.directory.path(""));
    for (size_t i = 0; i < names.size(); ++i) {
        if (fld_test::link_file(place.files[i % 2], names[i])) made.push_back(names[i]);
    }
    fld_fuzz::run_dataset(by_path ? place.directory.path(names[0]) : names[0], {});
    for (const std::string& name : made) fld_test::remove_file(name);
    std::filesystem::current_path(place.home);
    return 0;
}
