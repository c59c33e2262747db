// What a program that has the reader's objects linked in may ask beyond the callbacks. Everything
// here is as process-wide as the callbacks, and used by one thread at a time. Nothing of it leaves
// fld_reader.so.
#pragma once

#include "readers/cradle/read_request.h"

#include <cstdint>

// What the program wants to hear of while the reader works; null members: the reader does what it
// does in a library, that is, it prints its messages and ends the process when the search for a
// series has no memory for a path.
struct ReaderHooks {
    void* context = nullptr;
    void (*message)(void* context, const char* text) = nullptr;
    // Whether to go on; asked at least once in every 4 MB. After a "no" the callback fails.
    bool (*go_on)(void* context, int64_t bytes) = nullptr;
    // Every file of a dataset when it is opened: when a callback fails, the last one is the cause.
    void (*opened)(void* context, const char* path) = nullptr;
    // Becomes true when the search had no memory.
    bool* no_memory = nullptr;
};
void set_reader_hooks(const ReaderHooks& hooks);

// Reads what is wanted of a grid (from 1) of the open dataset. `coords`: three planes of
// `node_count` floats, used only when the nodes are wanted. `request.rows` has a place for each of
// the `variable_count` variables. Cells and faces go to the services. True when all was read.
[[nodiscard]] bool read_grid_of_dataset(int32_t grid_number, int32_t node_count, float* coords,
                                        int32_t variable_count, const ReadRequest& request);

// Counts cells and boundary faces without creating any.
[[nodiscard]] bool count_grid_of_dataset(int32_t grid_number, GridCounts* counts);

// About how many bytes of the files such a read takes in: those of the sections that it looks into.
[[nodiscard]] int64_t bytes_to_read(int32_t grid_number, const ReadRequest& request);

// Whether a file holds a grid of its own, whatever dataset is open; false when it cannot be told.
[[nodiscard]] bool look_for_grid(const char* path, bool* holds_grid);

// The name of the section that holds a variable of the open dataset; empty for a vector's second
// and third row, and for what no section holds.
[[nodiscard]] const char* section_of_variable(int32_t row);

// The file that holds the nodes, cells and faces of a grid of the open dataset.
[[nodiscard]] const char* file_of_dataset_grid(int32_t grid_number);
