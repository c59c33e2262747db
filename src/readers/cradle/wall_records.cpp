#include "readers/cradle/wall_records.h"

#include <algorithm>
#include <utility>

static bool is_before(const ElementWall& a, const ElementWall& b)
{
    return a.element < b.element;
}

// Solvers mostly list a region's faces in the order of their elements, so that the records are a
// few runs behind one another. False when they are more than the queue takes.
static bool find_runs(const ElementWall* walls, int32_t count, WallQueue* queue)
{
    const ElementWall* const end = walls + count;
    queue->run_count = 0;
    for (const ElementWall* run = walls; run != end; run = queue->runs[queue->run_count++].end) {
        if (queue->run_count == MOST_WALL_RUNS) return false;
        queue->runs[queue->run_count] = {run, std::is_sorted_until(run, end, is_before)};
    }
    return true;
}

// Restores the heap from this run on, when only the run may come behind those below it.
static void sift_down(WallQueue* queue, int32_t run)
{
    WallRun* const runs = queue->runs;
    for (;;) {
        int32_t child = 2 * run + 1;
        if (child >= queue->run_count) return;
        if (child + 1 < queue->run_count && is_before(*runs[child + 1].next, *runs[child].next)) {
            ++child;
        }
        if (!is_before(*runs[child].next, *runs[run].next)) return;
        std::swap(runs[run], runs[child]);
        run = child;
    }
}

static void note_next_element(WallQueue* queue)
{
    queue->next_element = queue->run_count > 0 ? queue->runs[0].next->element : INT32_MAX;
}

void fill_wall_queue(ElementWall* walls, int32_t count, WallQueue* queue)
{
    if (!find_runs(walls, count, queue)) {
        std::sort(walls, walls + count, is_before);
        queue->run_count = 1;
        queue->runs[0] = {walls, walls + count};
    }
    for (int32_t run = queue->run_count / 2 - 1; run >= 0; --run) sift_down(queue, run);
    note_next_element(queue);
}

const ElementWall* take_first_wall(WallQueue* queue)
{
    WallRun* const first = queue->runs;
    const ElementWall* const wall = first->next++;
    if (first->next == first->end) *first = queue->runs[--queue->run_count];
    sift_down(queue, 0);
    note_next_element(queue);
    return wall;
}
