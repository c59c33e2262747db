// What takes the cells and boundary faces of a grid while it is read.
#pragma once

#include "reader_library.h"

#include <cstdint>

namespace fld_host
{

// Up to some thousand cells in the order of their creation. Node numbers are 0-based and lie in the
// grid; those of a cell follow those of the one before it, as many as its shape has.
struct CellBlock {
    int64_t count;
    const Shape* shapes;
    const uint8_t* walls; // one entry a cell; bit k is set when its face k lies on a wall
    const int32_t* nodes;
};

// The same of boundary faces, which have 3 or 4 nodes.
struct FaceBlock {
    int64_t count;
    const int32_t* boundaries; // 0-based positions among the boundary names
    const uint8_t* node_counts;
    const int32_t* nodes;
};

// What a sink may give instead of taking blocks: a function for each shape and one for faces, each
// called once for every cell or face. A null function takes nothing.
struct DirectSink {
    void* context = nullptr;
    void (*cell[SHAPE_COUNT])(void* context, uint32_t walls, const int32_t* nodes) = {};
    void (*face)(void* context, int32_t boundary, int32_t node_count,
                 const int32_t* nodes) = nullptr;
};

// What a sink throws ends the read, and leaves it as it was thrown.
class GridSink
{
public:
    virtual ~GridSink() = default;
    virtual void take_cells(const CellBlock& /*cells*/) {}
    virtual void take_faces(const FaceBlock& /*faces*/) {}
    // Null: cells and faces come in blocks. Valid as long as the sink.
    virtual const DirectSink* direct() { return nullptr; }
    // Asked again and again; false cancels. `all` is 0 when it is not known.
    virtual bool go_on(int64_t /*bytes_done*/, int64_t /*bytes_in_all*/) { return true; }
};

} // namespace fld_host
