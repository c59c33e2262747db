#include "fuzz_host.h"

#include "input.h"
#include "reader_library.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <unistd.h>

namespace fld_fuzz
{

using fld_host::Shape;

// ---- services ----

class CheckingServices : public fld_host::Services
{
public:
    int create_cell(Shape shape, const int32_t* face_flags, const int32_t* nodes) override
    {
        const auto row = static_cast<size_t>(shape);
        for (int face = 0; face < fld_host::shape_faces[row]; ++face) {
            require(face_flags[face] == 0 || face_flags[face] == fld_host::WALL_FACE, "face flag");
        }
        look_at(nodes, fld_host::shape_nodes[row]);
        return --until_refusal_ == 0 ? 0 : 1;
    }

    int create_boundary_face(int32_t boundary_type, int32_t vertex_count, const int32_t* nodes,
                             int32_t constant) override
    {
        require(boundary_type >= 1 && boundary_type <= boundary_count_, "boundary type");
        require(vertex_count == 3 || vertex_count == 4, "vertices of a face");
        require(constant == 1, "last argument of a face");
        look_at(nodes, vertex_count);
        return --until_refusal_ == 0 ? 1 : 0;
    }

    // The number of the cell or face that is refused, or 0; and how many boundaries there are.
    void expect(int32_t refused, int32_t boundary_count)
    {
        until_refusal_ = refused;
        boundary_count_ = boundary_count;
    }

private:
    // Node numbers may be anything, but they must be there.
    void look_at(const int32_t* nodes, int count)
    {
        for (int i = 0; i < count; ++i) node_sum_ = node_sum_ + static_cast<uint32_t>(nodes[i]);
    }

    int64_t until_refusal_ = 0;
    int32_t boundary_count_ = 0;
    volatile uint32_t node_sum_ = 0;
};

static CheckingServices services;

// Stays loaded to the end of the process, so that reports can name its functions.
static const fld_host::Registrations& reader()
{
    static const fld_host::ReaderLibrary* const library = [] {
        const auto* const loaded = new fld_host::ReaderLibrary(FLD_READER_PATH, services);
        loaded->start();
        return loaded;
    }();
    return library->registrations();
}

// Before the first input, so that the library's code counts from the start.
extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/)
{
    (void)reader();
    return 0;
}

// ---- callbacks ----

// Exactly as long as the library was told: the sanitizer guards both ends.
template <class T> static std::unique_ptr<T[]> buffer(int64_t count, unsigned char fill)
{
    const auto length = static_cast<size_t>(std::max<int64_t>(count, 0));
    auto data = std::make_unique_for_overwrite<T[]>(length);
    memset(data.get(), fill, length * sizeof(T));
    return data;
}

struct Opened {
    int32_t unit = 7;
    int32_t grid_count = -1;
    int32_t boundary_count = -1;
    int32_t variable_count = -1;
    std::unique_ptr<int32_t[]> node_counts;
};

static void check_rows(const char* rows, int32_t count, int32_t capacity)
{
    require(count >= 0, "count of names");
    for (int64_t row = 0; row < std::min(count, std::max(capacity, 0)); ++row) {
        const std::string bytes(rows + row * 80, 80);
        const std::string name = bytes.substr(0, bytes.find('\0'));
        require(bytes.find_first_not_of('\0', name.size()) == std::string::npos,
                "a name row is not padded");
    }
}

static bool open(const std::string& path, const std::string& choices, Opened* opened)
{
    static constexpr int32_t capacities[][4] = {{4, 1, 0, -1}, {8, 1, 0, 64}, {10, 3, 0, 5}};
    const uint8_t bits = choice(choices, 0);
    const int32_t grids = capacities[0][bits & 3];
    const int32_t boundaries = capacities[1][bits >> 2 & 3];
    const int32_t variables = capacities[2][bits >> 4 & 3];
    const auto boundary_names = buffer<char>(int64_t{80} * boundaries, 0xA5);
    const auto variable_names = buffer<char>(int64_t{80} * variables, 0xA5);
    opened->node_counts = buffer<int32_t>(grids, 0xA5);
    int32_t flag = -1;
    reader().readers[bits >> 6 & 1].read_header(
        path.c_str(), nullptr, &opened->unit, &grids, &boundaries, &variables, &opened->grid_count,
        opened->node_counts.get(), &opened->boundary_count, boundary_names.get(), nullptr,
        &opened->variable_count, variable_names.get(), &flag);
    require(flag == 0 || flag == 1, "error flag of the header callback");
    if (flag != 0) return false;
    require(opened->grid_count >= 1 && opened->grid_count <= grids, "grid count");
    check_rows(boundary_names.get(), opened->boundary_count, boundaries);
    check_rows(variable_names.get(), opened->variable_count, variables);
    opened->boundary_count = std::min(opened->boundary_count, boundaries);
    return true;
}

struct Buffers {
    int64_t node_count;
    int64_t value_count;
    std::unique_ptr<float[]> coordinates, values;
};

static bool read(const Opened& opened, const std::string& choices, int32_t grid, unsigned char fill,
                 Buffers* buffers)
{
    const uint8_t wrong = choice(choices, 1);
    const bool known = grid >= 1 && grid <= opened.grid_count;
    const int32_t nodes =
        (known ? opened.node_counts[static_cast<size_t>(grid - 1)] : 3) + (wrong >> 2 & 1);
    const int32_t variables =
        std::max(0, opened.variable_count + (wrong >> 3 & 3) - (wrong >> 5 & 3));
    require(nodes >= 0, "node count");
    *buffers = {nodes, int64_t{variables} * nodes, buffer<float>(int64_t{3} * nodes, fill),
                buffer<float>(int64_t{variables} * nodes, fill)};
    int32_t flag = -1;
    reader().readers[0].read_data(&opened.unit, &grid, &nodes,
                                  wrong & 1 ? nullptr : buffers->coordinates.get(), &variables,
                                  wrong & 2 ? nullptr : buffers->values.get(), &flag);
    require(flag == 0 || flag == 1, "error flag of the data callback");
    require(known || flag == 1, "a grid that is not there was read");
    return flag == 0;
}

// Reads the grid twice, into differently filled buffers: what is delivered must not depend on them.
static void read_twice(const Opened& opened, const std::string& choices, int32_t grid)
{
    Buffers first{}, again{};
    services.expect(choice(choices, 2), opened.boundary_count);
    const bool was_read = read(opened, choices, grid, 0x00, &first);
    services.expect(choice(choices, 2), opened.boundary_count);
    require(was_read == read(opened, choices, grid, 0xA5, &again), "not the same twice");
    if (!was_read) return;
    const auto same = [](const auto& a, const auto& b, int64_t count) {
        return memcmp(a.get(), b.get(), static_cast<size_t>(count) * sizeof(float)) == 0;
    };
    require(same(first.coordinates, again.coordinates, 3 * first.node_count), "coordinates");
    require(same(first.values, again.values, first.value_count), "values");
}

// A file that stayed open takes the lowest free descriptor.
static int lowest_free_descriptor()
{
    const int probe = dup(0);
    ::close(probe);
    return probe;
}

void run_dataset(const std::string& path, const std::string& choices,
                 const std::function<void()>& before_reading)
{
    const fld_host::Registrations& callbacks = reader();
    const int descriptor = lowest_free_descriptor();
    Opened opened;
    if (open(path, choices, &opened)) {
        before_reading();
        for (int32_t grid = 1; grid <= opened.grid_count; ++grid) read_twice(opened, choices, grid);
        if (choice(choices, 1) & 0x80) {
            for (const int32_t grid : {0, opened.grid_count + 1, INT32_MIN, INT32_MAX}) {
                read_twice(opened, choices, grid);
            }
        }
    }
    float time = -1;
    int32_t flag = -1;
    callbacks.peek_time(nullptr, path.c_str(), nullptr, nullptr, &time, &flag);
    require(flag == 0 || flag == 1, "error flag of the peek-time callback");
    callbacks.close_file();
    require(lowest_free_descriptor() == descriptor, "a file stayed open");
}

} // namespace fld_fuzz
