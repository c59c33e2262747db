#include "grid.h"

#include "platform.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <new>
#include <numeric>

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

void FloatBuffer::Free::operator()(float* floats) const
{
    release_memory(floats);
}

float* FloatBuffer::prepare(size_t count)
{
    if (count <= capacity_ && floats_) return floats_.get();
    floats_.reset();
    capacity_ = 0;
    if (count > SIZE_MAX / sizeof(float)) throw std::bad_alloc();
    floats_.reset(static_cast<float*>(allocate_memory(std::max<size_t>(count, 1) * sizeof(float))));
    if (!floats_) throw std::bad_alloc();
    capacity_ = count;
    return floats_.get();
}

static constexpr float UNDEFINED = std::numeric_limits<float>::infinity();

// Values that are worked on side by side, which a compiler may vectorise.
struct ValueLanes {
    static constexpr size_t COUNT = 16;
    float minimum[COUNT];
    float maximum[COUNT];
    double sum[COUNT];
    int32_t finite[COUNT];
};

// Takes `used` values, one per lane. The comparisons are false for whatever is not a number.
static void take(ValueLanes& lanes, const float* values, size_t used)
{
    for (size_t k = 0; k < used; ++k) {
        const float value = values[k];
        const bool is_finite = std::fabs(value) < UNDEFINED;
        const float low = is_finite ? value : UNDEFINED;
        const float high = is_finite ? value : -UNDEFINED;
        lanes.minimum[k] = low < lanes.minimum[k] ? low : lanes.minimum[k];
        lanes.maximum[k] = high > lanes.maximum[k] ? high : lanes.maximum[k];
        lanes.sum[k] += static_cast<double>(is_finite ? value : 0.0F);
        lanes.finite[k] += is_finite;
    }
}

static int64_t position_of(float value, const float* values, size_t count)
{
    return std::find(values, values + count, value) - values;
}

static void add_others(const float* values, size_t count, ValueSummary& summary)
{
    for (size_t i = 0; i < count; ++i) {
        summary.undefined += values[i] == UNDEFINED;
        summary.infinite += values[i] == -UNDEFINED;
        summary.not_numbers += values[i] != values[i];
    }
}

// A few values at a time, so that what is looked at twice is still in the cache. `sum`: of all the
// finite ones.
static void add_block(const float* values, int64_t begin, size_t count, ValueSummary& summary,
                      double& sum)
{
    ValueLanes lanes{};
    std::fill(std::begin(lanes.minimum), std::end(lanes.minimum), UNDEFINED);
    std::fill(std::begin(lanes.maximum), std::end(lanes.maximum), -UNDEFINED);
    const float* const block = values + begin;
    size_t done = 0;
    for (; count - done >= ValueLanes::COUNT; done += ValueLanes::COUNT) {
        take(lanes, block + done, ValueLanes::COUNT);
    }
    take(lanes, block + done, count - done);

    const int64_t finite =
        std::accumulate(std::begin(lanes.finite), std::end(lanes.finite), int64_t{0});
    if (finite < static_cast<int64_t>(count)) add_others(block, count, summary);
    if (finite == 0) return;
    const float minimum = *std::min_element(std::begin(lanes.minimum), std::end(lanes.minimum));
    const float maximum = *std::max_element(std::begin(lanes.maximum), std::end(lanes.maximum));
    if (summary.finite == 0 || minimum < summary.minimum) {
        summary.minimum = minimum;
        summary.minimum_at = begin + position_of(minimum, block, count);
    }
    if (summary.finite == 0 || maximum > summary.maximum) {
        summary.maximum = maximum;
        summary.maximum_at = begin + position_of(maximum, block, count);
    }
    sum = std::accumulate(std::begin(lanes.sum), std::end(lanes.sum), sum);
    summary.finite += finite;
}

ValueSummary summary_of(const float* values, size_t count)
{
    constexpr size_t BLOCK = 4096;
    ValueSummary summary;
    double sum = 0;
    for (size_t begin = 0; begin < count; begin += BLOCK) {
        add_block(values, static_cast<int64_t>(begin), std::min(BLOCK, count - begin), summary,
                  sum);
    }
    if (summary.finite == 0) return summary;
    summary.mean = sum / static_cast<double>(summary.finite);
    // Adding 0 makes a negative zero, which would only puzzle, a plain one.
    summary.minimum += 0.0F;
    summary.maximum += 0.0F;
    return summary;
}

} // namespace fld_host
