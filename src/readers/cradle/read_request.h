// What of a grid is to be read. The data callback wants all of it; who links the reader may want
// less.
#pragma once

#include <cstdint>

// Cells by shape, in the order tetrahedra, pyramids, prisms, hexahedra.
constexpr int32_t SHAPES = 4;

// What a grid has of each: known before anything is created.
struct GridCounts {
    int64_t cells[SHAPES];
    // One entry for each boundary name.
    int64_t* triangles;
    int64_t* quadrilaterals;
};

struct ReadRequest {
    bool nodes = true;
    bool cells = true;
    bool wall_flags = true;           // of the cells' faces
    bool faces = true;                // those of boundaries
    const bool* boundaries = nullptr; // the boundaries whose faces are wanted; null: all of them
    // Where the values of each variable go, null for one that is not wanted, as those behind the
    // last row are not; a vector's first row takes three planes, its others are not used. Without
    // rows all values go one behind another.
    float* const* rows = nullptr;
    int32_t row_count = 0;
    GridCounts* counts = nullptr; // nothing is created, only counted
};

[[nodiscard]] inline bool wants_variable(const ReadRequest& request, int32_t variable)
{
    return !request.rows || (variable < request.row_count && request.rows[variable]);
}
