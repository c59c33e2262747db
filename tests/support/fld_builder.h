// Builds FLD files in memory, record by record, so that a test can write any file, right or wrong.
//
// Files are described once, as values (FldFile), and built in any framing (Format). All node and
// element numbers in a description count from 0; the file's number base is added while building.
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace fld_test
{

// What may differ between two files that hold the same dataset.
struct Format {
    bool big_endian = false;
    int32_t max_subrecord = 0;     // bytes of a record before it is continued; 0: never
    int32_t values_per_record = 0; // of an item; 0: all in one data record
    int32_t bias = 1;              // the number of the first node and of the first element
    int32_t precision = 4;         // bytes of a real number
};

// ---- records and items ----

class FldBuilder
{
public:
    explicit FldBuilder(const Format& format = {}) : format_(format) {}

    FldBuilder& raw(std::string_view bytes);   // outside of any record
    FldBuilder& record(std::string_view data); // markers around it, split as the format says
    FldBuilder& ints(const std::vector<int32_t>& values); // one record
    FldBuilder& name(std::string_view text);              // padded with blanks to 32 characters
    FldBuilder& end() { return ints({0, 0, 0}); }

    FldBuilder& int_item(int32_t value) { return ints({4, 1, 1}).ints({value}); }
    FldBuilder& array(int32_t element_size, const std::string& data);
    FldBuilder& int_array(const std::vector<int32_t>& values);
    FldBuilder& numbers(std::vector<int32_t> values); // the same, each shifted by the bias
    FldBuilder& real_array(const std::vector<double>& values, int32_t element_size = 0);
    FldBuilder& text_item(std::string text); // padded with blanks to full data records

    [[nodiscard]] std::string encoded(int64_t bits, int32_t size) const; // in the file's byte order
    [[nodiscard]] const Format& format() const { return format_; }
    [[nodiscard]] const std::string& bytes() const { return bytes_; }

private:
    Format format_;
    std::string bytes_;
};

std::string padded(std::string_view text, size_t length);

// ---- sections ----

// A data section or a keyword group of the header: its name, its items and, unless it is left
// open, an end record.
struct Section {
    std::string name;
    std::function<void(FldBuilder&)> body;
    bool closed = true;
};
using Sections = std::vector<Section>;

// A section as a list of items, for layouts that none of the functions below writes: each item
// calls the builder's function of its name.
using Item = std::function<void(FldBuilder&)>;
Section layout(const std::string& name, const std::vector<Item>& items);
Item record(const std::string& data);
Item ints(const std::vector<int32_t>& values);
Item int_item(int32_t value);
Item int_array(const std::vector<int32_t>& values);
Item real_array(const std::vector<double>& values, int32_t element_size = 0);
Item text_item(const std::string& text);

using Point = std::array<double, 3>;

enum ElementType {
    TRIANGLE = 23,
    QUADRILATERAL,
    TETRAHEDRON = 34,
    PYRAMID,
    PRISM,
    HEXAHEDRON = 38
};
enum FaceType { LINE_FACE = 122, TRIANGLE_FACE = 133, QUADRILATERAL_FACE };

struct Element {
    int32_t type;
    std::vector<int32_t> nodes;
};

struct Face {
    int32_t type;
    int32_t element;
    std::vector<int32_t> nodes;
};

struct Region {
    std::string name;
    std::vector<Face> faces;
};

struct RegionType {
    std::string type;
    std::string name;
};

// Keyword groups.
Section dimension(int32_t value);
Section bias();
Section cycle(int32_t number, double time);
Section unused(double marker);

// Data sections. A name length of -1 gives each name its own length.
Section coordinate_system(int32_t code);
Section nodes(const std::vector<Point>& positions);
Section materials(const std::vector<int32_t>& numbers);
Section elements(const std::vector<Element>& list);
Section region_types(const std::vector<RegionType>& regions, int32_t name_length = -1);
Section surfaces(const std::vector<Region>& regions, int32_t name_length = -1);
Section surface_array(const std::vector<Region>& regions, int32_t name_width = 8);
Section scalar(const std::string& key, const std::string& label, const std::vector<double>& values);
Section vector(const std::string& key, const std::string& label, const std::vector<Point>& values);

// ---- files ----

struct FldFile {
    std::vector<Sections> grids;
    Sections keywords = {dimension(3), bias(), cycle(12, 0.5)};
    std::string last_name = "OverlapEnd"; // empty: none
    int32_t version = 4;
    std::string magic = "CRDL-FLD";
    std::string first_name = "OverlapStart_0";
};

// The file with a section of the first grid replaced (or added, when it has none of the name),
// added or left out, or with other keyword groups.
FldFile replaced(FldFile file, const Section& section);
FldFile added(FldFile file, const Section& section);
FldFile without(FldFile file, const std::string& section_name);
FldFile with_keywords(FldFile file, const Sections& keywords);

std::string build(const FldFile& file, const Format& format = {});

// ---- files taken apart ----

int32_t int_at(std::string_view bytes, size_t at, bool big_endian);

struct Subrecord {
    size_t head, length, tail; // the places of its markers
    bool goes_on;
};

struct Record {
    size_t begin, end; // with its markers
    std::string data;
};

// Those that the file is well framed by, from its beginning on.
std::vector<Subrecord> subrecords_of(const std::string& bytes, bool big_endian);
std::vector<Record> records_of(const std::string& bytes, bool big_endian);

// ---- files on disk ----

std::string file_content(const std::string& path);

// A new directory that goes away with the object.
class TemporaryDirectory
{
public:
    TemporaryDirectory();
    ~TemporaryDirectory();
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    // Writes a file and gives its path.
    [[nodiscard]] std::string write(const std::string& name, const std::string& bytes) const;
    [[nodiscard]] std::string path(const std::string& name) const
    {
        constexpr auto SEPARATOR = static_cast<char>(std::filesystem::path::preferred_separator);
        return path_ + SEPARATOR + name;
    }

private:
    std::string path_;
};

} // namespace fld_test
