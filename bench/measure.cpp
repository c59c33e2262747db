#include "measure.h"

#include "reader_library.h"
#include "timing.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <vector>

extern "C" int64_t read_every_record(const char* path, int64_t path_length, int64_t big_endian);

namespace
{

// ---- the host ----

// Copies every cell and face into memory that it already has, and takes the time at the first and
// last of them.
class CopyingServices : public fld_host::Services
{
public:
    explicit CopyingServices(const FileFacts& facts)
        : cell_total_(facts.grid_cells), face_total_(facts.faces),
          nodes_(static_cast<size_t>(facts.grid_cells) * 8),
          flags_(static_cast<size_t>(facts.grid_cells) * 6),
          faces_(static_cast<size_t>(facts.faces) * 4)
    {
    }

    int create_cell(fld_host::Shape shape, const int32_t* face_flags, const int32_t* nodes) override
    {
        if (shape != fld_host::Shape::hexahedron || cells == cell_total_) return 0;
        memcpy(nodes_.data() + cells * 8, nodes, 8 * sizeof(int32_t));
        memcpy(flags_.data() + cells * 6, face_flags, 6 * sizeof(int32_t));
        if (++cells == cell_total_) last_cell = Clock::now();
        return 1;
    }

    int create_boundary_face(int32_t /*boundary_type*/, int32_t vertex_count, const int32_t* nodes,
                             int32_t /*constant*/) override
    {
        if (vertex_count != 4 || faces == face_total_) return 1;
        if (faces == 0) first_face = Clock::now();
        memcpy(faces_.data() + faces * 4, nodes, 4 * sizeof(int32_t));
        if (++faces == face_total_) last_face = Clock::now();
        return 0;
    }

    void begin()
    {
        cells = 0;
        faces = 0;
    }

    int64_t cells = 0;
    int64_t faces = 0;
    Clock::time_point first_face, last_face, last_cell;

private:
    int64_t cell_total_;
    int64_t face_total_;
    // Filled when they are made, and so touched.
    std::vector<int32_t> nodes_;
    std::vector<int32_t> flags_;
    std::vector<int32_t> faces_;
};

constexpr int32_t UNIT = 20;
constexpr int32_t GRID_CAPACITY = 1024;
constexpr int32_t NAME_CAPACITY = 1024;
constexpr int32_t MOST_VARIABLES = 6;
constexpr size_t NAME_ROW = 80;

// One file in a host that has all its memory before anything is measured.
class MeasuredFile
{
public:
    MeasuredFile(const std::string& library, std::string path, const FileFacts& facts)
        : path_(std::move(path)), facts_(facts), services_(facts), library_(library, services_),
          coords_(static_cast<size_t>(facts.grid_nodes) * 3),
          values_(static_cast<size_t>(facts.grid_nodes) * MOST_VARIABLES),
          node_counts_(GRID_CAPACITY), boundary_names_(NAME_ROW * NAME_CAPACITY),
          variable_names_(NAME_ROW * NAME_CAPACITY)
    {
        library_.start();
    }
    ~MeasuredFile()
    {
        const auto close_file = library_.registrations().close_file;
        if (close_file) close_file();
    }
    MeasuredFile(const MeasuredFile&) = delete;
    MeasuredFile& operator=(const MeasuredFile&) = delete;

    void open()
    {
        int32_t boundary_count = 0;
        int32_t error_flag = 1;
        library_.registrations().readers.at(0).read_header(
            path_.c_str(), nullptr, &UNIT, &GRID_CAPACITY, &NAME_CAPACITY, &NAME_CAPACITY,
            &grid_count_, node_counts_.data(), &boundary_count, boundary_names_.data(), nullptr,
            &variable_count_, variable_names_.data(), &error_flag);
        if (error_flag != 0 || variable_count_ > MOST_VARIABLES) fail("open");
    }

    void read_grids()
    {
        services_.begin();
        int64_t cells = 0;
        for (int32_t grid = 1; grid <= grid_count_; ++grid) {
            services_.cells = 0;
            int32_t error_flag = 1;
            const auto node_count = static_cast<int32_t>(facts_.grid_nodes);
            library_.registrations().readers.at(0).read_data(&UNIT, &grid, &node_count,
                                                             coords_.data(), &variable_count_,
                                                             values_.data(), &error_flag);
            if (error_flag != 0) fail("read");
            cells += services_.cells;
        }
        const int64_t grids = facts_.nodes / facts_.grid_nodes;
        if (grid_count_ != grids || cells != facts_.grid_cells * grids ||
            services_.faces != facts_.faces) {
            fail("read whole");
        }
    }

    void time_grids(Seconds* seconds)
    {
        const auto begin = Clock::now();
        read_grids();
        const auto end = Clock::now();
        seconds->data = seconds_between(begin, end);
        if (grid_count_ != 1 || services_.faces == 0 || services_.cells == 0) return;
        seconds->nodes = seconds_between(begin, services_.first_face);
        seconds->surfaces = seconds_between(services_.first_face, services_.last_face);
        seconds->elements = seconds_between(services_.last_face, services_.last_cell);
        seconds->variables = seconds_between(services_.last_cell, end);
    }

private:
    [[noreturn]] void fail(const char* what) const
    {
        throw std::runtime_error(std::string("the library does not ") + what + " " + path_);
    }

    std::string path_;
    FileFacts facts_;
    CopyingServices services_;
    fld_host::ReaderLibrary library_;
    std::vector<float> coords_;
    std::vector<float> values_;
    std::vector<int32_t> node_counts_;
    std::vector<char> boundary_names_;
    std::vector<char> variable_names_;
    int32_t grid_count_ = 0;
    int32_t variable_count_ = 0;
};

// ---- plain reads ----

void read_plainly(const std::string& path, char* memory, size_t bytes)
{
    FILE* const file = fopen(path.c_str(), "rb");
    const size_t got = file ? fread(memory, 1, bytes, file) : 0;
    if (file) fclose(file);
    if (got != bytes) throw std::runtime_error("cannot read " + path);
}

double time_plain_read(const std::string& path, int64_t bytes)
{
    std::vector<char> memory(static_cast<size_t>(bytes), 1);
    return seconds_of([&] { read_plainly(path, memory.data(), memory.size()); });
}

double time_fortran(const std::string& path, const FileFacts& facts, bool big_endian)
{
    int64_t records = 0;
    const double seconds = seconds_of([&] {
        records = read_every_record(path.data(), static_cast<int64_t>(path.size()), big_endian);
    });
    if (records != facts.records) throw std::runtime_error("Fortran finds other records");
    return seconds;
}

// ---- memory ----

// A number of /proc/self/status, in bytes.
int64_t memory_status(const std::string& key)
{
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        int64_t kilobytes = 0;
        if (word == key + ":" && status >> kilobytes) return kilobytes * 1024;
    }
    throw std::runtime_error("the system does not tell " + key);
}

} // namespace

Seconds measure_file(const std::string& library, const std::string& path, const FileFacts& facts,
                     bool with_fortran, bool big_endian)
{
    Seconds seconds;
    seconds.plain_read = time_plain_read(path, facts.bytes);
    {
        MeasuredFile file(library, path, facts);
        seconds.open = median_seconds_of([&] { file.open(); });
        file.time_grids(&seconds);
    }
    if (with_fortran) seconds.fortran = time_fortran(path, facts, big_endian);
    return seconds;
}

// The peak of the process while it opens and reads, less what it held before: the host takes
// nothing meanwhile. The system counts the peak anew after a 5 is written to clear_refs.
int64_t measure_peak(const std::string& library, const std::string& path, const FileFacts& facts)
{
    MeasuredFile file(library, path, facts);
    std::ofstream("/proc/self/clear_refs") << 5 << std::flush;
    const int64_t before = memory_status("VmRSS");
    file.open();
    file.read_grids();
    return memory_status("VmHWM") - before;
}

void read_into_fresh_memory(const std::string& path)
{
    std::ifstream file(path, std::ios::ate | std::ios::binary);
    const auto bytes = static_cast<size_t>(file.tellg());
    const std::unique_ptr<char, void (*)(void*)> memory(static_cast<char*>(malloc(bytes)), free);
    if (!memory) throw std::runtime_error("no memory");
    read_plainly(path, memory.get(), bytes);
}
