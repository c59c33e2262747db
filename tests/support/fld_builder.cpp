#include "fld_builder.h"

#include "test_system.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <fstream>
#include <stdexcept>

namespace fld_test
{

// ---- records and items ----

std::string FldBuilder::encoded(int64_t bits, int32_t size) const
{
    std::string text;
    for (int32_t i = 0; i < size; ++i) {
        const int32_t shift = 8 * (format_.big_endian ? size - 1 - i : i);
        text += static_cast<char>(bits >> shift & 0xFF);
    }
    return text;
}

FldBuilder& FldBuilder::raw(std::string_view bytes)
{
    bytes_ += bytes;
    return *this;
}

FldBuilder& FldBuilder::record(std::string_view data)
{
    const size_t limit = format_.max_subrecord > 0 ? static_cast<size_t>(format_.max_subrecord)
                                                   : std::max<size_t>(data.size(), 1);
    bool first = true;
    do {
        const std::string_view piece = data.substr(0, limit);
        data.remove_prefix(piece.size());
        const auto length = static_cast<int32_t>(piece.size());
        raw(encoded(data.empty() ? length : -length, 4)).raw(piece);
        raw(encoded(first ? length : -length, 4));
        first = false;
    } while (!data.empty());
    return *this;
}

FldBuilder& FldBuilder::ints(const std::vector<int32_t>& values)
{
    std::string data;
    for (const int32_t value : values) data += encoded(value, 4);
    return record(data);
}

std::string padded(std::string_view text, size_t length)
{
    std::string result(text);
    result.resize(length, ' ');
    return result;
}

FldBuilder& FldBuilder::name(std::string_view text)
{
    return record(padded(text, 32));
}

// An item without elements still has one, empty, data record.
FldBuilder& FldBuilder::array(int32_t element_size, const std::string& data)
{
    const auto size = static_cast<size_t>(element_size);
    const size_t count = data.size() / size;
    const size_t wanted = static_cast<size_t>(format_.values_per_record);
    const size_t per_record = wanted > 0 ? std::min(wanted, count) : count;
    const size_t records = count > 0 ? (count + per_record - 1) / per_record : 1;
    ints({element_size, static_cast<int32_t>(per_record), static_cast<int32_t>(records)});
    for (size_t i = 0; i < records; ++i) {
        record(std::string_view(data).substr(i * per_record * size, per_record * size));
    }
    return *this;
}

FldBuilder& FldBuilder::int_array(const std::vector<int32_t>& values)
{
    std::string data;
    for (const int32_t value : values) data += encoded(value, 4);
    return array(4, data);
}

FldBuilder& FldBuilder::numbers(std::vector<int32_t> values)
{
    for (int32_t& value : values) value += format_.bias;
    return int_array(values);
}

FldBuilder& FldBuilder::real_array(const std::vector<double>& values, int32_t element_size)
{
    const int32_t size = element_size > 0 ? element_size : format_.precision;
    std::string data;
    for (const double value : values) {
        const auto single = std::bit_cast<int32_t>(static_cast<float>(value));
        data += encoded(size == 8 ? std::bit_cast<int64_t>(value) : single, size);
    }
    return array(size, data);
}

FldBuilder& FldBuilder::text_item(std::string text)
{
    const auto per_record = static_cast<size_t>(format_.values_per_record);
    while (per_record > 0 && text.size() % per_record != 0) text += ' ';
    return array(1, text);
}

// ---- sections as lists of items ----

Section layout(const std::string& name, const std::vector<Item>& items)
{
    return {name, [=](FldBuilder& b) {
                for (const Item& item : items) item(b);
            }};
}

Item record(const std::string& data)
{
    return [=](FldBuilder& b) { b.record(data); };
}

Item ints(const std::vector<int32_t>& values)
{
    return [=](FldBuilder& b) { b.ints(values); };
}

Item int_item(int32_t value)
{
    return [=](FldBuilder& b) { b.int_item(value); };
}

Item int_array(const std::vector<int32_t>& values)
{
    return [=](FldBuilder& b) { b.int_array(values); };
}

Item real_array(const std::vector<double>& values, int32_t element_size)
{
    return [=](FldBuilder& b) { b.real_array(values, element_size); };
}

Item text_item(const std::string& text)
{
    return [=](FldBuilder& b) { b.text_item(text); };
}

// ---- keyword groups ----

Section dimension(int32_t value)
{
    return layout("Dimension", {int_item(value)});
}

Section bias()
{
    return {"Bias", [](FldBuilder& b) { b.int_item(b.format().bias); }};
}

Section cycle(int32_t number, double time)
{
    return layout("Cycle", {int_item(number), real_array({time})});
}

// The double marker may be left out: it is then the single one, widened.
Section unused(double marker)
{
    return layout("Unused", {real_array({marker}, 4)});
}

// ---- data sections ----

// Integers whose meaning no reader needs; never 0 or 1, so that a reader that takes them for a
// count or a code is found out.
constexpr int32_t ANY = 77;

Section coordinate_system(int32_t code)
{
    return layout("LS_CoordinateSystem", {int_item(ANY), int_item(code)});
}

static void write_points(FldBuilder& b, const std::vector<Point>& points)
{
    b.int_item(static_cast<int32_t>(points.size()));
    for (size_t axis = 0; axis < 3; ++axis) {
        std::vector<double> values;
        for (const Point& point : points) values.push_back(point[axis]);
        b.real_array(values);
    }
}

Section nodes(const std::vector<Point>& positions)
{
    return {"LS_Nodes", [=](FldBuilder& b) { write_points(b.int_item(ANY), positions); }};
}

Section materials(const std::vector<int32_t>& numbers)
{
    const auto count = static_cast<int32_t>(numbers.size());
    return layout("LS_MatOfElements", {int_item(ANY), int_item(count), int_array(numbers)});
}

Section elements(const std::vector<Element>& list)
{
    std::vector<int32_t> types, lists;
    for (const Element& element : list) {
        types.push_back(element.type);
        lists.insert(lists.end(), element.nodes.begin(), element.nodes.end());
    }
    return {"LS_Elements", [=](FldBuilder& b) {
                b.int_item(ANY).int_item(static_cast<int32_t>(types.size())).int_array(types);
                b.int_item(static_cast<int32_t>(lists.size())).numbers(lists);
            }};
}

static void write_name(FldBuilder& b, const std::string& name, int32_t name_length)
{
    b.text_item(name_length < 0 ? name : padded(name, static_cast<size_t>(name_length)));
}

Section region_types(const std::vector<RegionType>& regions, int32_t name_length)
{
    return {"LS_RegionName&Type", [=](FldBuilder& b) {
                b.int_item(ANY).int_item(static_cast<int32_t>(regions.size()));
                b.int_item(name_length);
                for (const RegionType& region : regions) {
                    b.text_item(region.type);
                    write_name(b, region.name, name_length);
                }
            }};
}

// The faces of one or more regions as the file stores them: type codes, element numbers and the
// concatenated node lists.
struct FaceLists {
    std::vector<int32_t> types, elements, nodes;

    void append(const Region& region)
    {
        for (const Face& face : region.faces) {
            types.push_back(face.type);
            elements.push_back(face.element);
            nodes.insert(nodes.end(), face.nodes.begin(), face.nodes.end());
        }
    }
};

Section surfaces(const std::vector<Region>& regions, int32_t name_length)
{
    return {"LS_SurfaceGeometry", [=](FldBuilder& b) {
                b.int_item(ANY).int_item(static_cast<int32_t>(regions.size()));
                b.int_item(name_length);
                for (const Region& region : regions) {
                    FaceLists lists;
                    lists.append(region);
                    write_name(b, region.name, name_length);
                    b.int_item(static_cast<int32_t>(lists.types.size()));
                    b.int_array(lists.types).numbers(lists.elements);
                    b.int_item(static_cast<int32_t>(lists.nodes.size())).numbers(lists.nodes);
                }
            }};
}

Section surface_array(const std::vector<Region>& regions, int32_t name_width)
{
    FaceLists lists;
    std::string names;
    std::vector<int32_t> face_counts, node_list_lengths;
    for (const Region& region : regions) {
        const size_t nodes_before = lists.nodes.size();
        lists.append(region);
        names += padded(region.name, static_cast<size_t>(name_width));
        face_counts.push_back(static_cast<int32_t>(region.faces.size()));
        node_list_lengths.push_back(static_cast<int32_t>(lists.nodes.size() - nodes_before));
    }
    return {"LS_SurfaceGeometryArray", [=](FldBuilder& b) {
                b.int_item(ANY).int_item(static_cast<int32_t>(face_counts.size()));
                b.int_item(name_width).text_item(names).int_array(face_counts);
                b.int_array(lists.types).numbers(lists.elements);
                b.int_array(node_list_lengths).numbers(lists.nodes);
            }};
}

Section scalar(const std::string& key, const std::string& label, const std::vector<double>& values)
{
    const auto count = static_cast<int32_t>(values.size());
    return layout("LS_Scalar:" + key,
                  {int_item(ANY), text_item(label), int_item(count), real_array(values)});
}

Section vector(const std::string& key, const std::string& label, const std::vector<Point>& values)
{
    return {"LS_Vector:" + key, [=](FldBuilder& b) {
                write_points(b.int_item(ANY).int_item(ANY).text_item(label), values);
            }};
}

// ---- files ----

FldFile replaced(FldFile file, const Section& section)
{
    Sections& grid = file.grids.at(0);
    const auto found = std::ranges::find(grid, section.name, &Section::name);
    if (found == grid.end()) return added(file, section);
    *found = section;
    return file;
}

FldFile added(FldFile file, const Section& section)
{
    file.grids.at(0).push_back(section);
    return file;
}

FldFile without(FldFile file, const std::string& section_name)
{
    std::erase_if(file.grids.at(0), [&](const Section& s) { return s.name == section_name; });
    return file;
}

FldFile with_keywords(FldFile file, const Sections& keywords)
{
    file.keywords = keywords;
    return file;
}

static void write_sections(FldBuilder& b, const Sections& sections)
{
    for (const Section& section : sections) {
        b.name(section.name);
        section.body(b);
        if (section.closed) b.end();
    }
}

std::string build(const FldFile& file, const Format& format)
{
    FldBuilder b(format);
    b.record(file.magic).ints({file.version});
    write_sections(b, file.keywords);
    b.name("HeaderDataEnd");
    for (size_t grid = 0; grid < file.grids.size(); ++grid) {
        b.name(grid == 0 ? file.first_name : "OverlapStart_" + std::to_string(grid));
        write_sections(b, file.grids[grid]);
    }
    if (!file.last_name.empty()) b.name(file.last_name);
    return b.bytes();
}

// ---- files taken apart ----

int32_t int_at(std::string_view bytes, size_t at, bool big_endian)
{
    uint32_t word = 0;
    for (size_t i = 0; i < 4; ++i) {
        word = word << 8 | static_cast<unsigned char>(bytes[at + (big_endian ? i : 3 - i)]);
    }
    return static_cast<int32_t>(word);
}

std::vector<Subrecord> subrecords_of(const std::string& bytes, bool big_endian)
{
    std::vector<Subrecord> list;
    bool continues = false; // the sub-record before announced this one
    for (size_t at = 0; at + 8 <= bytes.size(); at = list.back().tail + 4) {
        const int64_t head = int_at(bytes, at, big_endian);
        const auto length = static_cast<size_t>(std::abs(head));
        if (length > bytes.size() - at - 8) break;
        const int64_t tail = int_at(bytes, at + 4 + length, big_endian);
        if (std::abs(tail) != std::abs(head) || (length > 0 && (tail < 0) != continues)) break;
        continues = head < 0;
        list.push_back({at, length, at + 4 + length, continues});
    }
    return list;
}

std::vector<Record> records_of(const std::string& bytes, bool big_endian)
{
    std::vector<Record> list;
    Record record{};
    for (const Subrecord& part : subrecords_of(bytes, big_endian)) {
        record.data.append(bytes, part.head + 4, part.length);
        record.end = part.tail + 4;
        if (part.goes_on) continue;
        list.push_back(record);
        record = {record.end, 0, ""};
    }
    return list;
}

// ---- files on disk ----

std::string file_content(const std::string& path)
{
    std::ifstream stream(system_path(path), std::ios::binary);
    if (!stream) throw std::runtime_error("cannot read " + path);
    return {std::istreambuf_iterator<char>(stream), {}};
}

TemporaryDirectory::TemporaryDirectory() : path_(make_directory()) {}

TemporaryDirectory::~TemporaryDirectory()
{
    std::error_code ignored;
    std::filesystem::remove_all(system_path(path_), ignored);
}

std::string TemporaryDirectory::write(const std::string& name, const std::string& bytes) const
{
    // Some file systems write a file out at once when it is emptied and filled again.
    remove_file(path(name));
    std::ofstream stream(system_path(path(name)), std::ios::binary);
    stream << bytes;
    if (!stream.flush()) throw std::runtime_error("cannot write " + name);
    return path(name);
}

} // namespace fld_test
