// Datasets: FLD files that are open, as many as one likes.
//
// A reader holds one dataset. It opens another one's file again when its turn comes, and checks
// that the file holds what it held.
#pragma once

#include "grid_sink.h"
#include "reader.h"

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace fld_host
{

// A scalar, or a vector, which the reader hands over as three.
struct Variable {
    std::string name; // of a vector without the component
    std::string key;  // of the section that holds it, without its kind
    int components;   // 1 or 3
    int first_row;    // among the reader's variables, from 0
};

struct Contents {
    std::vector<int32_t> node_counts; // one entry a grid
    std::vector<std::string> boundaries;
    std::vector<Variable> variables;
    std::vector<std::string> rows; // the names of the variables as the reader gives them
    bool results_only = false;     // the first grid comes from another file
    std::string grid_file;         // which is this one; empty when the reader does not tell
};

// How many names and grids a dataset may have; more are an Error.
struct Capacities {
    int32_t grids = 1024;
    int32_t boundaries = 16384;
    int32_t variables = 8192;
};

// What a read is to deliver.
struct Wanted {
    bool nodes = true;
    bool cells = true;
    bool wall_flags = true;      // on the cells
    std::vector<int> boundaries; // whose faces, from 0
    std::vector<int> variables;  // from 0
};

// Where it goes, all of it the caller's.
struct Buffers {
    float* nodes = nullptr;        // three planes: all x, all y, all z
    std::vector<float*> variables; // for each that is wanted its planes, one or three; undefined
                                   // values are +infinity
};

// Buffers for all variables: their planes of `nodes` values follow one another from `values` on, as
// the reader has its rows.
Buffers buffers_of(const Contents& contents, float* coords, float* values, size_t nodes);

// What a grid has, known before anything of it is read.
struct GridSize {
    std::array<int64_t, SHAPE_COUNT> cells{}; // by shape
    std::vector<int64_t> triangles;           // of each boundary
    std::vector<int64_t> quadrilaterals;
};

// What a mesh is known by: as long as this is equal, so are the nodes, cells and faces. (On Windows
// what a program writes may not show before it has closed the file.)
struct MeshIdentity {
    uint64_t device = 0;
    uint64_t file_number = 0;
    int64_t size = 0;
    int64_t modified = 0; // nanoseconds since 1970
    int64_t changed = 0;
    int32_t grid = 0;
    std::vector<std::string> boundaries;
    bool operator==(const MeshIdentity&) const = default;
};

class Dataset
{
public:
    // Throws Error.
    Dataset(std::shared_ptr<Reader> reader, std::string file, const Capacities& capacities = {});
    ~Dataset();
    Dataset(const Dataset&) = delete;
    Dataset& operator=(const Dataset&) = delete;

    [[nodiscard]] const Contents& contents() const { return contents_; }
    [[nodiscard]] const std::string& file() const { return file_; }

    // Everything of a grid.
    [[nodiscard]] Wanted everything() const;

    // Of a grid (from 0): none when the reader does not tell. Throws Error.
    [[nodiscard]] std::optional<GridSize> size(int grid);

    // Reads what is wanted of a grid (from 0). Throws Error, and what the sink throws; what arrived
    // before is then part of it only.
    void read(int grid, const Wanted& wanted, const Buffers& buffers, GridSink& sink);

    // Of a grid (from 0). None when the reader does not tell the file, or it is gone.
    [[nodiscard]] std::optional<MeshIdentity> mesh_identity(int grid);

private:
    struct Reading;
    void ensure_open();
    [[nodiscard]] std::pair<Contents, std::vector<std::string>> call_header_callback();
    void read_linked(int grid, const Wanted& wanted, const Buffers& buffers, Reading& reading);
    void read_loaded(int grid, const Wanted& wanted, const Buffers& buffers, Reading& reading);

    std::shared_ptr<Reader> reader_;
    std::string file_;
    Capacities capacities_;
    Contents contents_;
    int64_t id_ = 0;                      // of this object, in the reader's state
    std::vector<std::string> grid_files_; // of each grid; empty when not known, as all of a loaded
                                          // reader's
};

} // namespace fld_host
