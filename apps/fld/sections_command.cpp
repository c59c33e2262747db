// "fld sections": what stands where in a file, from its markers and descriptors alone.
#include "commands.h"

#include "check.h"
#include "output.h"

#include <algorithm>

namespace fld_host
{

// "3 of 4 bytes x 8,000,000", "4 bytes": what the items of one shape hold.
static std::string shape_text(const ItemShape& shape)
{
    const int64_t elements = int64_t{shape.per_record} * shape.records;
    std::string text = shape.items > 1 ? grouped(shape.items) + " of " : "";
    text += counted(shape.element_size, "byte");
    if (elements != 1) text += " x " + grouped(elements);
    if (shape.records > 1) text += " in " + grouped(shape.records) + " records";
    return text;
}

static std::string items_text(const WalkedSection& section)
{
    constexpr size_t SHOWN = 4;
    std::string text;
    for (size_t i = 0; i < std::min(section.shapes.size(), SHOWN); ++i) {
        text += (i == 0 ? "" : ", ") + shape_text(section.shapes[i]);
    }
    return section.shapes.size() > SHOWN ? text + ", ..." : text;
}

// The size of the longest items' elements: 4 for single, 8 for double precision.
static int32_t precision_of(const WalkedSection& section)
{
    int64_t most = 0;
    int32_t size = 0;
    for (const ItemShape& shape : section.shapes) {
        const int64_t elements = int64_t{shape.per_record} * shape.records;
        if (shape.element_size < 4 || elements <= std::max<int64_t>(most, 1)) continue;
        most = elements;
        size = shape.element_size;
    }
    return size;
}

static void print_text(const std::string& file, const FileWalk& walk, FILE* out)
{
    (void)fprintf(out, "%s\n  %s, %s, %s, %s\n\n", printable(file).c_str(),
                  walk.big_endian ? "big-endian" : "little-endian",
                  counted(walk.grids, "grid").c_str(), counted(walk.records, "record").c_str(),
                  counted(walk.bytes, "byte").c_str());
    Table table({"section", "grid", "byte", "bytes", "items", "they hold"}, true);
    for (const WalkedSection& section : walk.sections) {
        table.add({"  " + printable(section.name),
                   section.grid == 0 ? "header" : grouped(section.grid), grouped(section.byte),
                   grouped(section.bytes), grouped(section.items), items_text(section)});
    }
    table.print(out, "");
}

static nlohmann::json file_json(const std::string& file, const FileWalk& walk)
{
    nlohmann::json result = {{"bytes", walk.bytes},
                             {"byte_order", walk.big_endian ? "big" : "little"},
                             {"records", walk.records},
                             {"grids", walk.grids},
                             {"sections", nlohmann::json::array()}};
    put_file(result, "file", file);
    for (const WalkedSection& section : walk.sections) {
        nlohmann::json one = {{"name", section.name},
                              {"grid", section.grid},
                              {"byte", section.byte},
                              {"bytes", section.bytes},
                              {"items", section.items},
                              {"precision", precision_of(section)},
                              {"shapes", nlohmann::json::array()}};
        for (const ItemShape& shape : section.shapes) {
            one["shapes"].push_back({{"items", shape.items},
                                     {"element_size", shape.element_size},
                                     {"elements", int64_t{shape.per_record} * shape.records},
                                     {"records", shape.records}});
        }
        result["sections"].push_back(std::move(one));
    }
    return result;
}

int run_sections(const Request& request, const std::vector<std::string>& files)
{
    Report report(request);
    bool printed = false;
    for (const std::string& file : files) {
        Progress progress(file);
        (void)progress.show("walking its records");
        const FileWalk walk = walk_file(file);
        clear_progress();
        const bool is_fld = walk.records > 0 && walk.place.record + walk.grids > 0;
        if (is_fld && request.json) {
            report.add(file_json(file, walk));
        } else if (is_fld) {
            if (std::exchange(printed, true)) (void)fputc('\n', request.out);
            print_text(file, walk, request.out);
            (void)fflush(request.out);
        }
        if (!walk.damage.empty()) {
            (void)report.fail(Error(is_fld ? Error::Kind::damaged : Error::Kind::cannot_open, file,
                                    damage_text(walk)));
        }
    }
    report.finish();
    return report.failed() ? FAILURE : DONE;
}

} // namespace fld_host
