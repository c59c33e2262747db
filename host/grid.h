// What a summary of a grid needs of its cells, boundary faces and values.
#pragma once

#include "grid_sink.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace fld_host
{

// ---- faces ----

// The node numbers of a face in ascending order, one more than they are; a triangle has a 0 in
// front. Two faces coincide when their keys are equal.
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
    GridSummary();
    GridSummary(const GridSummary&) = delete;
    GridSummary& operator=(const GridSummary&) = delete;

    std::array<int64_t, SHAPE_COUNT> cells{}; // by shape

    const DirectSink* direct() override { return &direct_; }

    [[nodiscard]] int64_t flagged_faces() const { return static_cast<int64_t>(flagged_.size()); }
    // One entry for each of the `boundary_count` boundary names.
    [[nodiscard]] std::vector<RegionSummary> regions(size_t boundary_count) const;

private:
    template <Shape shape>
    static void add_cell(void* summary, uint32_t walls, const int32_t* nodes);
    static void add_face(void* summary, int32_t boundary, int32_t node_count, const int32_t* nodes);

    DirectSink direct_;
    std::vector<FaceKey> flagged_; // faces of cells
    std::vector<FaceKey> boundary_faces_;
    std::vector<int32_t> boundaries_; // of the boundary faces
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
        void operator()(float* floats) const;
    };
    std::unique_ptr<float[], Free> floats_;
    size_t capacity_ = 0;
};

// What values are like. Undefined is +infinity, which is how a reader marks a value that it does
// not have.
struct ValueSummary {
    float minimum = 0; // of the finite values, as all that follows; 0 when there are none
    float maximum = 0;
    int64_t minimum_at = 0; // the first that has it, from 0
    int64_t maximum_at = 0;
    double mean = 0;
    int64_t finite = 0;
    int64_t undefined = 0;
    int64_t not_numbers = 0;
    int64_t infinite = 0; // negative
};

ValueSummary summary_of(const float* values, size_t count);

} // namespace fld_host
