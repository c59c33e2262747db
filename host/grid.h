// Collecting the cells and boundary faces of a grid: whole, or only what a summary needs.
#pragma once

#include "reader_library.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <vector>

namespace fld_host
{

// Takes what the reader creates while it reads a grid. Everything that arrives here is checked:
// node numbers lie in 1..node count, boundary types in 1..boundary count.
class GridSink
{
public:
    virtual ~GridSink() = default;
    // Bit k of `walls` is set when face k of the cell lies on a wall.
    virtual void add_cell(Shape shape, uint32_t walls, const int32_t* nodes) = 0;
    // `vertex_count` is 3 or 4.
    virtual void add_boundary_face(int32_t boundary_type, int32_t vertex_count,
                                   const int32_t* nodes) = 0;
};

// ---- faces ----

// The node numbers of a face in ascending order; a triangle has a 0 in front. Two faces coincide
// when their keys are equal.
using FaceKey = std::array<int32_t, 4>;

FaceKey face_key(int32_t vertex_count, const int32_t* nodes);

// Face `face` (from 0) of a cell.
FaceKey cell_face_key(Shape shape, int face, const int32_t* nodes);

// A set of faces, built once.
class FaceSet
{
public:
    explicit FaceSet(const std::vector<FaceKey>& faces);
    [[nodiscard]] bool contains(const FaceKey& face) const;

private:
    // The slot of `face`, or the free one where it belongs.
    [[nodiscard]] size_t slot_of(const FaceKey& face) const;

    std::vector<FaceKey> slots_; // a power of two; a slot of zeros is free
};

// ---- the whole grid ----

struct CellArrays {
    std::vector<int32_t> nodes; // 1-based, in the host's order, cell after cell
    std::vector<uint8_t> walls; // one entry per cell, bit k for face k
};

struct BoundaryFace {
    int32_t boundary_type; // 1-based position among the boundary names
    int32_t vertex_count;
    std::array<int32_t, 4> nodes; // the fourth of a triangle is 0
};

class GridArrays : public GridSink
{
public:
    std::array<CellArrays, SHAPE_COUNT> cells; // by shape
    std::vector<BoundaryFace> boundary_faces;  // in the order in which they were created

    void add_cell(Shape shape, uint32_t walls, const int32_t* nodes) override;
    void add_boundary_face(int32_t boundary_type, int32_t vertex_count,
                           const int32_t* nodes) override;
};

// ---- the summary ----

struct RegionSummary {
    int64_t triangles = 0;
    int64_t quadrilaterals = 0;
    int64_t flagged = 0; // faces that coincide with a flagged face of a cell
};

// Counts the cells and keeps nothing of them but their flagged faces: a grid may have many more
// cells than a program that only describes it wants to hold.
class GridSummary : public GridSink
{
public:
    std::array<int64_t, SHAPE_COUNT> cells{}; // by shape

    void add_cell(Shape shape, uint32_t walls, const int32_t* nodes) override;
    void add_boundary_face(int32_t boundary_type, int32_t vertex_count,
                           const int32_t* nodes) override;

    [[nodiscard]] int64_t flagged_faces() const { return static_cast<int64_t>(flagged_.size()); }
    // One entry for each of the `boundary_count` boundary names.
    [[nodiscard]] std::vector<RegionSummary> regions(size_t boundary_count) const;

private:
    std::vector<FaceKey> flagged_; // faces of cells
    std::vector<FaceKey> boundary_faces_;
    std::vector<int32_t> boundary_types_; // of the boundary faces
};

// ---- values at the nodes ----

// Uninitialised floats, as large results want them; keeps its memory for the next grid.
class FloatBuffer
{
public:
    // At least `count` floats of no particular value. Throws std::bad_alloc.
    float* prepare(size_t count);
    [[nodiscard]] const float* data() const { return floats_.get(); }

private:
    struct Free {
        void operator()(float* floats) const { std::free(floats); }
    };
    std::unique_ptr<float[], Free> floats_;
    size_t capacity_ = 0;
};

// The range of the values that are defined. Undefined is +infinity, which is how a reader marks a
// value that it does not have, and whatever is not a number.
struct ValueRange {
    float minimum = 0; // meaningful only when a value is defined
    float maximum = 0;
    int64_t defined = 0;
    int64_t undefined = 0;
};

ValueRange value_range(const float* values, size_t count);

} // namespace fld_host
