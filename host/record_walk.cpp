#include "record_walk.h"

#include "readable.h"
#include "reader_state.h"
#include "text.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <ui/util/nzn_io.h>
#include <ui/util/utf8wrap.h>

namespace fld_host
{

static constexpr int32_t UNIT = 1;
static constexpr int32_t NAME_LENGTH = 32;
static constexpr std::string_view MAGIC = "CRDL-FLD";
static constexpr int32_t VERSION = 4;

namespace
{

// Ends the walk: what is wrong at the place that it has come to.
struct Damage {
    std::string what;
};

// What should stand in a record.
struct Content {
    const char* what;
    int64_t bytes; // an upper limit
};

} // namespace

// ---- what is wrong ----

static std::string record_number(const WalkPlace& place)
{
    return "record " + grouped(place.record);
}

// Goes through the record that begins at `byte` once more. The typed reads tell the end of the file
// from everything else, which passing over the rest of a record does not.
static bool file_ends_inside(int64_t byte)
{
    std::array<char, 4096> bytes{};
    int32_t status = nzn_seek(UNIT, byte);
    if (status == NZN_OK) status = nzn_begin_record(UNIT);
    while (status == NZN_OK) {
        status = nzn_read_chars(UNIT, static_cast<int32_t>(bytes.size()), bytes.data());
    }
    // All data read: then only the tail marker can be missing.
    constexpr int64_t marker_bytes = 4;
    return status == NZN_END_OF_FILE || !nzn_can_hold(UNIT, marker_bytes);
}

static bool is_well_framed(int64_t byte)
{
    return nzn_seek(UNIT, byte) == NZN_OK && nzn_begin_record(UNIT) == NZN_OK &&
           nzn_tell(UNIT) >= 0;
}

// `there` bytes are left from the start of the record on.
static std::string damage_of_record(const WalkPlace& place, const Content& content, int64_t there)
{
    const std::string record = record_number(place);
    if (is_well_framed(place.byte)) return record + " is too short for " + content.what;
    if (!file_ends_inside(place.byte)) return "the length markers of " + record + " differ";
    // Even in sub-records of one byte each, the content would not take so much.
    if (there > 9 * content.bytes + 8) {
        return "the length marker of " + record + " is wrong: it asks for more than the " +
               grouped(there) + " bytes up to the end of the file";
    }
    return "the file ends inside " + record + ", of which " + grouped(there) + " bytes are there";
}

// The file ends where a record ends, but not where it should.
static std::string early_end(const WalkPlace& place)
{
    std::string what = "the file ends before " + record_number(place);
    if (place.grid == 0)
        what += ", in its header";
    else if (place.item == 0)
        what += ", without OverlapEnd: it may still be being written";
    else if (place.data_record == 0)
        what += ": section " + place.section + " has no end record";
    return what;
}

static std::string trimmed(std::string name)
{
    name.erase(name.find_last_not_of(std::string_view(" \t\n\v\f\r\0", 7)) + 1);
    return name.substr(0, name.find('\0'));
}

// The text that a record begins with, empty when it begins with something else.
static std::string text_at(int64_t byte)
{
    std::array<char, NAME_LENGTH> text{};
    if (nzn_seek(UNIT, byte) != NZN_OK || nzn_begin_record(UNIT) != NZN_OK) return "";
    if (nzn_read_chars(UNIT, NAME_LENGTH, text.data()) != NZN_OK) return "";
    const bool is_text =
        std::all_of(text.begin(), text.begin() + 4, [](char c) { return c >= ' ' && c <= '~'; });
    return is_text ? trimmed({text.data(), text.size()}) : "";
}

static std::string no_descriptor(const WalkPlace& place, const std::array<int32_t, 3>& values)
{
    const std::string owner = (place.grid == 0 ? "keyword " : "section ") + place.section;
    const std::string text = text_at(place.byte);
    if (!text.empty()) {
        return owner + " has no end record: " + record_number(place) + " is \"" + text + '"';
    }
    std::string what = record_number(place) + " is not the descriptor of an item, it holds";
    for (const int32_t value : values) what += ' ' + std::to_string(value);
    return what;
}

// ---- the walk ----

namespace
{

// Every step throws Damage.
class Walker
{
public:
    explicit Walker(FileWalk& walk) : walk_(walk), place_(walk.place) {}

    void walk_header()
    {
        std::string magic(MAGIC.size(), ' ');
        take_record({"the mark of an FLD file", static_cast<int64_t>(MAGIC.size())}, [&] {
            return nzn_read_chars(UNIT, static_cast<int32_t>(magic.size()), magic.data());
        });
        if (magic != MAGIC) refuse("it is no FLD file: record 1 is not \"CRDL-FLD\"");
        int32_t version = 0;
        take_record({"the version of the format", sizeof version},
                    [&] { return nzn_read_int32(UNIT, 1, &version); });
        if (version != VERSION) {
            refuse("only version 4 of FLD is known, this is version " + std::to_string(version));
        }
        for (;;) {
            const std::string keyword = take_name();
            if (keyword == "HeaderDataEnd") return;
            walk_items(keyword);
        }
    }

    void walk_grids()
    {
        const std::string first = take_name();
        if (first != "OverlapStart_0") {
            throw Damage{"the first grid should begin with \"OverlapStart_0\", but " +
                         record_number(place_) + " is \"" + first + '"'};
        }
        place_.grid = walk_.grids = 1;
        for (;;) {
            // A grid of no sections is nothing to keep.
            const bool has_sections =
                !walk_.sections.empty() && walk_.sections.back().grid == walk_.grids;
            if (walk_.grids == 1 || has_sections) walk_.intact_bytes = next_byte_;
            const std::string name = take_name();
            if (name == "OverlapEnd") break;
            if (name.starts_with("OverlapStart_"))
                place_.grid = ++walk_.grids;
            else
                walk_items(name);
        }
        walk_.bytes_after_end = walk_.bytes - next_byte_;
    }

private:
    // A file of another kind has no place where it is damaged.
    [[noreturn]] void refuse(const std::string& why)
    {
        place_ = {};
        throw Damage{why};
    }

    // Takes the next record, of which read() reads the content that counts, and finishes it.
    template <class Read> void take_record(const Content& content, Read read)
    {
        ++place_.record;
        place_.byte = next_byte_;
        if (!nzn_can_hold(UNIT, 1)) throw Damage{early_end(place_)};
        if (nzn_begin_record(UNIT) == NZN_OK && read() == NZN_OK) {
            next_byte_ = nzn_tell(UNIT);
            if (next_byte_ >= 0) {
                ++walk_.records;
                return;
            }
        }
        throw Damage{damage_of_record(place_, content, walk_.bytes - place_.byte)};
    }

    std::string take_name()
    {
        std::string name(NAME_LENGTH, ' ');
        take_record({"a name of 32 characters", NAME_LENGTH},
                    [&] { return nzn_read_chars(UNIT, NAME_LENGTH, name.data()); });
        return trimmed(name);
    }

    // Element size, elements per record and number of records; three zeros are the end record.
    std::array<int32_t, 3> take_descriptor()
    {
        std::array<int32_t, 3> values{};
        take_record({"the descriptor of an item", sizeof values},
                    [&] { return nzn_read_int32(UNIT, 3, values.data()); });
        // In an item of no elements their size means nothing.
        const std::array sizes = {0, 1, 4, 8};
        const bool size_fits =
            values[1] == 0 || std::find(sizes.begin(), sizes.end(), values[0]) != sizes.end();
        if (!size_fits || values[1] < 0 || values[2] < 0) {
            throw Damage{no_descriptor(place_, values)};
        }
        return values;
    }

    // From the first item of a section or keyword to the end record. Every record takes at least
    // its markers from the file, so that no count makes this long.
    void walk_items(const std::string& name)
    {
        WalkedSection section{place_.grid, name, place_.byte, 0, 0, {}};
        place_.section = name;
        for (;;) {
            ++place_.item;
            const auto [size, per_record, records] = take_descriptor();
            if (size == 0 && per_record == 0 && records == 0) break;
            note_item(section, {size, per_record, records, 1});
            const Content content{"its data", int64_t{size} * per_record};
            place_.data_records = records;
            while (place_.data_record < records) {
                ++place_.data_record;
                take_record(content, [] { return NZN_OK; });
            }
            place_.data_record = 0;
        }
        place_.section.clear();
        place_.item = 0;
        section.bytes = next_byte_ - section.byte;
        walk_.sections.push_back(std::move(section));
    }

    static void note_item(WalkedSection& section, const ItemShape& item)
    {
        constexpr size_t MOST_SHAPES = 48;
        ++section.items;
        std::vector<ItemShape>& shapes = section.shapes;
        if (!shapes.empty() && shapes.back().element_size == item.element_size &&
            shapes.back().per_record == item.per_record && shapes.back().records == item.records) {
            ++shapes.back().items;
        } else if (shapes.size() < MOST_SHAPES) {
            shapes.push_back(item);
        }
    }

    FileWalk& walk_;
    WalkPlace& place_;
    int64_t next_byte_ = 0; // where the next record begins
};

} // namespace

// The same four bytes as a number and as characters tell the byte order.
static bool is_big_endian()
{
    int32_t number = 0;
    std::array<char, sizeof number> characters{};
    if (nzn_begin_record(UNIT) != NZN_OK || nzn_read_int32(UNIT, 1, &number) != NZN_OK ||
        nzn_seek(UNIT, 0) != NZN_OK || nzn_begin_record(UNIT) != NZN_OK ||
        nzn_read_chars(UNIT, sizeof number, characters.data()) != NZN_OK) {
        return false;
    }
    return memcmp(characters.data(), &number, sizeof number) != 0;
}

// ---- the file ----

static std::string not_unformatted(const std::string& path)
{
    std::array<char, 4 + MAGIC.size()> start{};
    bool failed = false;
    if (const File file = open_to_read(path)) {
        (void)utf8wrap::read_at(file.get(), 0, std::ssize(start), start.data(), &failed);
    }
    if (std::string_view(start.data(), start.size()).substr(4) == MAGIC) {
        return "it begins as an FLD file, but is cut or damaged within its first ten records";
    }
    return "it is no FLD file: its start is no sequence of Fortran records";
}

// Opens the file on the unit; gives what is wrong otherwise.
static std::string open_file(const std::string& path, int64_t* bytes)
{
    if (std::string why = why_not_readable(path); !why.empty()) return why;
    utf8wrap::FileStatus status{};
    *bytes = utf8wrap::_stat64(path.c_str(), &status) == 0 ? status.size : -1;
    switch (nzn_open_unit(UNIT, path.c_str())) {
    case NZN_OK: return "";
    case NZN_NOT_UNFORMATTED: return not_unformatted(path);
    default: return "the system does not open it";
    }
}

namespace
{

struct OpenUnit {
    OpenUnit() = default;
    ~OpenUnit() { nzn_close_unit(UNIT); }
    OpenUnit(const OpenUnit&) = delete;
    OpenUnit& operator=(const OpenUnit&) = delete;
};

} // namespace

FileWalk walk_file(const std::string& path)
{
    const Turn turn;
    const OpenUnit closed_in_the_end;
    FileWalk walk;
    walk.damage = open_file(path, &walk.bytes);
    if (!walk.damage.empty()) return walk;
    try {
        walk.big_endian = is_big_endian();
        if (nzn_seek(UNIT, 0) != NZN_OK) throw Damage{"the file cannot be read"};
        Walker walker(walk);
        walker.walk_header();
        walker.walk_grids();
    } catch (const Damage& damage) {
        walk.damage = damage.what;
    }
    return walk;
}

std::string name_record(const std::string& name, bool big_endian)
{
    std::string marker = {NAME_LENGTH, 0, 0, 0};
    if (big_endian) std::reverse(marker.begin(), marker.end());
    std::string text = name;
    text.resize(NAME_LENGTH, ' ');
    return marker + text + marker;
}

} // namespace fld_host
