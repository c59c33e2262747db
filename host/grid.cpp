#include "grid.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <limits>
#include <new>
#include <sys/mman.h>

namespace fld_host
{

// ---- faces ----

// The faces of each shape in the order of their flags: bit k stands for node k of the cell.
static constexpr uint32_t face_masks[SHAPE_COUNT][6] = {
    {7, 14, 13, 11},             // tetrahedron
    {15, 22, 28, 25, 19},        // pyramid
    {15, 51, 60, 41, 22},        // prism
    {85, 170, 15, 240, 51, 204}, // hexahedron
};

FaceKey face_key(int32_t vertex_count, const int32_t* nodes)
{
    FaceKey key{nodes[0] + 1, nodes[1] + 1, nodes[2] + 1, vertex_count == 4 ? nodes[3] + 1 : 0};
    std::sort(key.begin(), key.end());
    return key;
}

FaceKey cell_face_key(Shape shape, int face, const int32_t* nodes)
{
    int32_t of_face[4] = {};
    int32_t count = 0;
    for (uint32_t mask = face_masks[static_cast<int>(shape)][face]; mask != 0; mask &= mask - 1) {
        of_face[count++] = nodes[std::countr_zero(mask)];
    }
    return face_key(count, of_face);
}

static uint64_t face_hash(const FaceKey& face)
{
    uint64_t halves[2];
    memcpy(halves, face.data(), sizeof halves);
    uint64_t hash = halves[0] * 0x9E3779B97F4A7C15U ^ std::rotl(halves[1], 31);
    hash *= 0xD6E8FEB86659FD93U;
    return hash ^ hash >> 32;
}

FaceSet::FaceSet(const std::vector<FaceKey>& faces) : slots_(std::bit_ceil(2 * faces.size() + 1))
{
    for (const FaceKey& face : faces) slots_[slot_of(face)] = face;
}

size_t FaceSet::slot_of(const FaceKey& face) const
{
    size_t slot = face_hash(face) & (slots_.size() - 1);
    while (slots_[slot] != face && slots_[slot] != FaceKey{}) {
        slot = (slot + 1) & (slots_.size() - 1);
    }
    return slot;
}

bool FaceSet::contains(const FaceKey& face) const
{
    return slots_[slot_of(face)] == face;
}

// ---- the summary ----

template <Shape shape>
void GridSummary::add_cell(void* summary, uint32_t walls, const int32_t* nodes)
{
    auto* const self = static_cast<GridSummary*>(summary);
    ++self->cells[static_cast<size_t>(shape)];
    for (; walls != 0; walls &= walls - 1) {
        self->flagged_.push_back(cell_face_key(shape, std::countr_zero(walls), nodes));
    }
}

void GridSummary::add_face(void* summary, int32_t boundary, int32_t node_count,
                           const int32_t* nodes)
{
    auto* const self = static_cast<GridSummary*>(summary);
    self->boundary_faces_.push_back(face_key(node_count, nodes));
    self->boundaries_.push_back(boundary);
}

GridSummary::GridSummary()
    : direct_{this,
              {add_cell<Shape::tetrahedron>, add_cell<Shape::pyramid>, add_cell<Shape::prism>,
               add_cell<Shape::hexahedron>},
              add_face}
{
}

std::vector<RegionSummary> GridSummary::regions(size_t boundary_count) const
{
    std::vector<RegionSummary> regions(boundary_count);
    const FaceSet flagged(flagged_);
    for (size_t face = 0; face < boundary_faces_.size(); ++face) {
        RegionSummary& region = regions.at(static_cast<size_t>(boundaries_[face]));
        const FaceKey& key = boundary_faces_[face];
        ++(key[0] == 0 ? region.triangles : region.quadrilaterals);
        if (flagged.contains(key)) ++region.flagged;
    }
    return regions;
}

// ---- values at the nodes ----

float* FloatBuffer::prepare(size_t count)
{
    if (count <= capacity_ && floats_) return floats_.get();
    floats_.reset();
    capacity_ = 0;
    constexpr size_t HUGE_PAGE = size_t{2} << 20;
    if (count > SIZE_MAX / sizeof(float)) throw std::bad_alloc();
    const size_t bytes = std::max<size_t>(count * sizeof(float), sizeof(float));
    void* memory = nullptr;
    const bool large = bytes >= 2 * HUGE_PAGE;
    if (posix_memalign(&memory, large ? HUGE_PAGE : alignof(std::max_align_t), bytes) != 0) {
        throw std::bad_alloc();
    }
    // Touching fresh memory page by page would cost more than reading the file; this is advice
    // only, so a refusal does not matter.
    if (large) (void)madvise(memory, bytes, MADV_HUGEPAGE);
    floats_.reset(static_cast<float*>(memory));
    capacity_ = count;
    return floats_.get();
}

static constexpr float UNDEFINED = std::numeric_limits<float>::infinity();

// Ranges of values that are worked on side by side, which a compiler may vectorise.
struct RangeLanes {
    static constexpr size_t COUNT = 16;
    float minimum[COUNT];
    float maximum[COUNT];
    uint32_t defined[COUNT];
};

// Takes `used` values, one per lane. The comparisons are false for whatever is not a number.
static void take(RangeLanes& lanes, const float* values, size_t used)
{
    for (size_t k = 0; k < used; ++k) {
        const float value = values[k];
        const bool is_defined = value < UNDEFINED;
        const float low = is_defined ? value : UNDEFINED;
        const float high = is_defined ? value : -UNDEFINED;
        lanes.minimum[k] = low < lanes.minimum[k] ? low : lanes.minimum[k];
        lanes.maximum[k] = high > lanes.maximum[k] ? high : lanes.maximum[k];
        lanes.defined[k] += is_defined;
    }
}

ValueRange value_range(const float* values, size_t count)
{
    RangeLanes lanes;
    std::fill(std::begin(lanes.minimum), std::end(lanes.minimum), UNDEFINED);
    std::fill(std::begin(lanes.maximum), std::end(lanes.maximum), -UNDEFINED);
    std::fill(std::begin(lanes.defined), std::end(lanes.defined), 0U);
    size_t done = 0;
    for (; count - done >= RangeLanes::COUNT; done += RangeLanes::COUNT) {
        take(lanes, values + done, RangeLanes::COUNT);
    }
    take(lanes, values + done, count - done);

    ValueRange range;
    for (const uint32_t defined : lanes.defined) range.defined += defined;
    range.undefined = static_cast<int64_t>(count) - range.defined;
    if (range.defined == 0) return range;
    // Adding 0 makes a negative zero, which would only puzzle, a plain one.
    range.minimum = *std::min_element(std::begin(lanes.minimum), std::end(lanes.minimum)) + 0.0F;
    range.maximum = *std::max_element(std::begin(lanes.maximum), std::end(lanes.maximum)) + 0.0F;
    return range;
}

} // namespace fld_host
