// The services of a host while it reads grids: checks what the reader hands over before anything
// uses it. The first thing that is not right is refused, which makes the reader give up, and is
// kept in words.
#pragma once

#include "grid_sink.h"
#include "reader_library.h"

#include <cstdint>
#include <exception>
#include <string>
#include <vector>

namespace fld_host
{

class CheckedServices : public Services
{
public:
    // What of a grid goes to the sink; null members: everything.
    struct Filter {
        bool cells = true;
        bool wall_flags = true;
        const std::vector<bool>* boundaries = nullptr;
    };

    // Between begin_grid and end_grid, cells and faces go to `sink`; at other times they are
    // refused.
    void begin_grid(GridSink& sink, const Filter& filter, int32_t node_count,
                    int32_t boundary_count);
    // Hands over what is left. Throws what the sink threw. Gives what was wrong with the cells and
    // faces, empty when nothing was.
    std::string end_grid();

    // Asks the sink, which must not be asked before begin_grid; false also when it threw.
    bool go_on(int64_t bytes_done, int64_t bytes_in_all);
    [[nodiscard]] bool is_cancelled() const { return cancelled_; }
    [[nodiscard]] bool sink_threw() const { return sink_threw_; }
    // Before a call of the reader: what came of the last one no longer counts.
    void begin_call();

    int create_cell(Shape shape, const int32_t* face_flags, const int32_t* nodes) override;
    int create_boundary_face(int32_t boundary_type, int32_t vertex_count, const int32_t* nodes,
                             int32_t constant) override;

private:
    [[nodiscard]] std::string cell_problem(Shape shape, const int32_t* nodes) const;
    [[nodiscard]] std::string face_problem(int32_t boundary_type, int32_t vertex_count,
                                           const int32_t* nodes) const;
    template <class Work> bool guarded(Work work);
    int refuse_cell(Shape shape, const int32_t* nodes);
    template <Shape shape> int take_cell(const int32_t* face_flags, const int32_t* nodes);
    template <Shape shape> void add_cell(uint32_t walls, const int32_t* nodes);
    void add_face(int32_t boundary, int32_t vertex_count, const int32_t* nodes);
    void hand_over_cells();
    void hand_over_faces();

    GridSink* sink_ = nullptr;
    const DirectSink* direct_ = nullptr;
    Filter filter_;
    uint32_t node_count_ = 0;
    int32_t boundary_count_ = 0;
    int64_t cells_ = 0; // created so far
    int64_t faces_ = 0;
    std::string problem_;
    std::exception_ptr thrown_;
    bool cancelled_ = false;
    bool sink_threw_ = false;

    // Blocks that fill up: room for a whole one from the first on.
    std::vector<Shape> cell_shapes_;
    std::vector<uint8_t> cell_walls_;
    std::vector<int32_t> cell_nodes_;
    size_t block_cells_ = 0;
    size_t block_nodes_ = 0;
    std::vector<int32_t> face_boundaries_;
    std::vector<uint8_t> face_sizes_;
    std::vector<int32_t> face_nodes_;
};

} // namespace fld_host
