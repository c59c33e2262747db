// The host's services: the table that it fills by name, and calls to the nine that a reader needs.
#pragma once

#include <cstdint>

// Host services, each with its slot in the table of 86. A slot is null until the host sets it.
bool every_host_service_is_set();

// The callbacks that the host calls; every argument but a file name is passed by address.
using CloseCallback = void();
using PeekTimeCallback = void(void*, const char* name, void*, void*, float* time,
                              int32_t* error_flag);
using HeaderCallback = void(const char* name, void*, const int32_t* unit,
                            const int32_t* grid_capacity, const int32_t* boundary_capacity,
                            const int32_t* variable_capacity, int32_t* grid_count,
                            int32_t* node_counts, int32_t* boundary_count, char* boundary_names,
                            void*, int32_t* variable_count, char* variable_names,
                            int32_t* error_flag);
using DataCallback = void(const int32_t* unit, const int32_t* grid_number,
                          const int32_t* node_count, float* coords, const int32_t* variable_count,
                          float* values, int32_t* error_flag);

// True when the host took the reader.
[[nodiscard]] bool host_register_data_reader(const char* reader_name, HeaderCallback* read_header,
                                             DataCallback* read_data);
void host_register_callbacks(CloseCallback* close_file, PeekTimeCallback* peek_time);
void host_set_reader_options();

// Creates a cell of the grid that is being read. `face_flags`: 7 marks a wall face, 0 any other;
// `nodes`: 1-based, in the host's order. True when the host made the cell.
using HostCreateCell = bool(const int32_t* face_flags, const int32_t* nodes);
HostCreateCell host_create_tet, host_create_pyramid, host_create_prism, host_create_hex;

// Creates a boundary face: `boundary_type` is the 1-based position among the dataset's boundary
// names, `nodes` are 1-based. True when the host made the face.
[[nodiscard]] bool host_create_boundary_face(int32_t boundary_type, int32_t vertex_count,
                                             const int32_t* nodes);
