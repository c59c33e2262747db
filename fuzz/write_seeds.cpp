// Writes the datasets of the tests, in several framings, as the first inputs of the fuzz targets.
// Further arguments are FLD files that become inputs too.
#include "datasets.h"
#include "input.h"

#include <filesystem>
#include <fstream>
#include <iterator>

namespace fs = std::filesystem;
using fld_fuzz::joined;
using fld_test::FldFile;

static void write_seed(const fs::path& path, const std::string& bytes)
{
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << bytes;
}

// Calls of every kind.
static void write_record_seed(const fs::path& directory, const std::string& name,
                              const std::string& file)
{
    static constexpr char calls[] =
        "\x00\x04\x00\x02\x3c\x3d\x3c\x00\x34\x0f\x01\x8f\x00\x04\x0b\xf6";
    write_seed(directory / "records" / name, joined({file, "", {calls, sizeof calls}}));
}

static void write_dataset_seeds(const fs::path& directory, const std::string& name,
                                const fld_test::Dataset& dataset, const fld_test::Format& format)
{
    const FldFile& opened = dataset.files.back().file;
    const std::string first = build(dataset.files.front().file, format);
    write_record_seed(directory, name, build(opened, format));
    write_seed(directory / "dataset" / name, joined({build(opened, format), "", ""}));
    write_seed(directory / "results" / name, joined({build(opened, format), first, ""}));
    // The results of every grid, in either coordinate system.
    for (const int32_t code : {0, 1}) {
        FldFile results = replaced(opened, fld_test::coordinate_system(code));
        std::erase_if(results.grids[0], [](const auto& s) { return s.name == "LS_Nodes"; });
        write_seed(directory / "results" / (name + "_system" + std::to_string(code)),
                   joined({build(results, format), first, ""}));
    }
}

// Files that have more or fewer walls when they are read than they had when they were opened.
static void write_changed_seeds(const fs::path& directory)
{
    using namespace fld_test;
    const Region wall{"wall", {{TRIANGLE_FACE, 0, {3, 1, 2}}, {LINE_FACE, 0, {0, 1}}}};
    const auto with_types = [](const std::string& of_wall, const std::string& of_inlet) {
        return region_types({{padded(of_wall, 13), "wall"}, {padded(of_inlet, 13), "inlet"}});
    };
    FldFile more = replaced(tetrahedron_file(), with_types("Wall_Boundary", "Wall_Boundary"));
    FldFile fewer = replaced(tetrahedron_file(), with_types("Wall_Boundary", "Inlet"));
    write_seed(directory / "dataset/more_regions", joined({build(fewer), build(more), ""}));
    write_seed(directory / "dataset/fewer_regions", joined({build(more), build(fewer), ""}));
    fewer = replaced(tetrahedron_file(), surfaces({wall}));
    more = replaced(tetrahedron_file(), surfaces({wall, wall}));
    write_seed(directory / "dataset/more_faces", joined({build(fewer), build(more), ""}));
}

static void write_series_seeds(const fs::path& directory)
{
    static constexpr const char* series[] = {
        "flow_0002.fld/flow_0001.fld",
        "/flow_0003.fld/flow_0001.fld/flow_0002.fld/flow_0000.fld/flow.fld/flow_1.fld",
        "/case.0005/case.0001/case.0005.bak/case.0004",
        "flow12/flow11/FLOW10",
        "/a(b1.fld/a1.fld",
        "a.*3.b.c/a2.b.c/ab1.b.c/2147483648.b.c"};
    for (size_t i = 0; i < std::size(series); ++i) {
        write_seed(directory / "series" / std::to_string(i), series[i]);
    }
}

int main(int argc, char** argv)
{
    if (argc < 2) return 2;
    const fs::path directory = argv[1];
    const fld_test::Format formats[] = {
        {}, {true, 0, 0, 0, 8}, {false, 5, 2, 1, 8}, {true, 37, 3, 7, 4}};
    for (const fld_test::Dataset& dataset : fld_test::datasets()) {
        for (size_t i = 0; i < std::size(formats); ++i) {
            write_dataset_seeds(directory, dataset.name + std::to_string(i), dataset, formats[i]);
        }
    }
    write_changed_seeds(directory);
    write_series_seeds(directory);
    for (int i = 2; i < argc; ++i) {
        std::ifstream stream(argv[i], std::ios::binary);
        const std::string bytes{std::istreambuf_iterator<char>(stream), {}};
        const std::string name = "file" + std::to_string(i);
        write_record_seed(directory, name, bytes);
        write_seed(directory / "dataset" / name, joined({bytes, "", ""}));
    }
    return 0;
}
