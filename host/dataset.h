// Opening a dataset and reading its grids through a reader library.
//
// The callbacks between reader and host carry no context argument, neither way: the reader keeps
// its dataset in process-wide data, and what it creates arrives at process-wide services. So a
// process has one Host and holds one Dataset at a time, used from one thread. A second object of
// either class is refused with std::logic_error while the first one lives.
#pragma once

#include "grid.h"
#include "reader_library.h"

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace fld_host
{

// The services of a host while it reads grids: checks what the reader hands over before anything
// uses it. The first thing that is not right is refused, which makes the reader give up, and is
// kept in words.
class CheckedServices : public Services
{
public:
    // Between begin_grid and end_grid, cells and faces go to `sink`; at other times they are
    // refused.
    void begin_grid(GridSink& sink, int32_t node_count, int32_t boundary_count);
    // What was wrong with the cells and faces, empty when nothing was.
    std::string end_grid();

    // Files that the reader has scanned from end to end since the counter was set to 0: the reader
    // sets its options after each.
    int32_t scanned_files = 0;

    int create_cell(Shape shape, const int32_t* face_flags, const int32_t* nodes) override;
    int create_boundary_face(int32_t boundary_type, int32_t vertex_count, const int32_t* nodes,
                             int32_t constant) override;
    void set_options(int first, int second, unsigned char third) override;

private:
    [[nodiscard]] std::string cell_problem(Shape shape, const int32_t* nodes) const;
    [[nodiscard]] std::string face_problem(int32_t boundary_type, int32_t vertex_count,
                                           const int32_t* nodes) const;

    GridSink* sink_ = nullptr;
    uint32_t node_count_ = 0;
    int32_t boundary_count_ = 0;
    int64_t cells_ = 0; // created so far
    int64_t faces_ = 0;
    std::string problem_;
};

// Held by what a process has one of: the second holder is refused with std::logic_error.
class OnlyOne
{
public:
    OnlyOne(bool& taken, const char* what);
    ~OnlyOne();
    OnlyOne(const OnlyOne&) = delete;
    OnlyOne& operator=(const OnlyOne&) = delete;

private:
    bool& taken_;
};

// The one host of this process: a reader library that has its services and has registered its
// readers.
class Host
{
public:
    // Throws std::runtime_error when the library cannot be had or registers no reader.
    explicit Host(const std::string& library_path);

    // Never empty.
    [[nodiscard]] const std::vector<RegisteredReader>& readers() const;
    // Null when no reader has that name.
    [[nodiscard]] const RegisteredReader* find_reader(const std::string& name) const;

    // The time of a file. None when it cannot be had, or when no dataset was opened yet: readers
    // register what answers this when they open their first file.
    [[nodiscard]] std::optional<float> peek_time(const std::string& file) const;

private:
    friend class Dataset;
    OnlyOne one_;
    CheckedServices services_;
    ReaderLibrary library_;
};

// How much a host can take.
struct Capacities {
    int32_t grids = 1024;
    int32_t boundaries = 16384;
    int32_t variables = 8192;
};

// What could not be done, and why when the host knows it, in one line. Where the host does not, the
// reader may have said it in a message.
class DatasetError : public std::runtime_error
{
public:
    explicit DatasetError(const std::string& failure, const std::string& reason = "")
        : std::runtime_error(reason.empty() ? failure : failure + ": " + reason),
          has_reason_(!reason.empty())
    {
    }
    [[nodiscard]] bool has_reason() const { return has_reason_; }

    // Whether the reader nevertheless read the file from end to end when it was to open it.
    bool scanned = false;

private:
    bool has_reason_;
};

// What a grid has at its nodes: three planes of coordinates, one plane for each variable.
struct NodeData {
    FloatBuffer coords;
    FloatBuffer values;
};

// The one open dataset of this process; closed when it goes out of scope.
class Dataset
{
public:
    // Throws DatasetError when the reader does not open `file`.
    Dataset(Host& host, const RegisteredReader& reader, const std::string& file,
            const Capacities& capacities = {});
    ~Dataset();
    Dataset(const Dataset&) = delete;
    Dataset& operator=(const Dataset&) = delete;

    // The node count of each grid.
    [[nodiscard]] const std::vector<int32_t>& node_counts() const { return node_counts_; }
    // The names that the capacities had room for.
    [[nodiscard]] const std::vector<std::string>& boundary_names() const { return boundaries_; }
    [[nodiscard]] const std::vector<std::string>& variable_names() const { return variables_; }
    // The counts that the reader gave. More than names when the capacities were too small.
    [[nodiscard]] int32_t boundary_count() const { return boundary_count_; }
    [[nodiscard]] int32_t variable_count() const { return variable_count_; }
    // Whether the file has results only, and its first grid comes from an earlier file.
    [[nodiscard]] bool results_only() const { return results_only_; }

    // Reads grid `number` (from 1): cells and faces to `sink`, coordinates and as many variables
    // as variable_count() says to `data`. Throws DatasetError; what arrived before is then part of
    // a grid only.
    void read_grid(int32_t number, GridSink& sink, NodeData& data);

private:
    [[nodiscard]] bool call_header_callback(const std::string& file, const Capacities& capacities);
    void close();

    OnlyOne one_;
    Host& host_;
    const RegisteredReader& reader_;
    std::vector<int32_t> node_counts_;
    std::vector<std::string> boundaries_;
    std::vector<std::string> variables_;
    int32_t boundary_count_ = 0;
    int32_t variable_count_ = 0;
    bool results_only_ = false;
};

} // namespace fld_host
