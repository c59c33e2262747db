// The wall faces of a grid: boundary faces are recorded as they are read, and handed out in the
// order of the elements, whose cells they flag.
#pragma once

#include <cstdint>

// One boundary face of a wall region.
struct ElementWall {
    int32_t element;  // 0-based, in "LS_Elements" order
    int32_t nodes[4]; // 1-based; the fourth is -1 for a triangle
};

// Records in ascending order of their elements, one behind another.
struct WallRun {
    const ElementWall* next;
    const ElementWall* end;
};

constexpr int32_t MOST_WALL_RUNS = 256;

// Runs that are taken as one: a heap, in which a run comes before the two behind it.
struct WallQueue {
    int32_t next_element; // of the first run; INT32_MAX, which no element has, when there is none
    int32_t run_count;
    WallRun runs[MOST_WALL_RUNS];
};

// The records stay where they are; they may be sorted. The queue refers to them.
void fill_wall_queue(ElementWall* walls, int32_t count, WallQueue* queue);

// Takes the first record out.
const ElementWall* take_first_wall(WallQueue* queue);

// The next record of this element, null when there is none; records of lower elements are passed
// over. Elements must be asked for in ascending order.
[[nodiscard]] inline const ElementWall* take_wall(WallQueue* queue, int32_t element)
{
    while (queue->next_element <= element) {
        const ElementWall* const wall = take_first_wall(queue);
        if (wall->element == element) return wall;
    }
    return nullptr;
}
