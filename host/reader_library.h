// The host's side of the plug-in boundary: loading a reader library, handing it the 86 services
// and taking its registrations.
//
// Service callbacks carry no context argument: whoever calls a reader says before whose services
// its calls are for. So one thread at a time calls readers, all readers of a process together.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace fld_host
{

enum class Shape { tetrahedron, pyramid, prism, hexahedron };
constexpr int SHAPE_COUNT = 4;

// Nodes and faces of a cell, by shape.
constexpr int shape_nodes[SHAPE_COUNT] = {4, 5, 6, 8};
constexpr int shape_faces[SHAPE_COUNT] = {4, 5, 5, 6};

// The value of a face flag that marks a wall; an ordinary face has 0.
constexpr int32_t WALL_FACE = 7;

// The callbacks that a reader registers; every argument but a file name is passed by address.
using CloseCallback = void (*)();
using PeekTimeCallback = void (*)(void*, const char* name, void*, void*, float* time,
                                  int32_t* error_flag);
using HeaderCallback = void (*)(const char* name, void*, const int32_t* unit,
                                const int32_t* grid_capacity, const int32_t* boundary_capacity,
                                const int32_t* variable_capacity, int32_t* grid_count,
                                int32_t* node_counts, int32_t* boundary_count, char* boundary_names,
                                void*, int32_t* variable_count, char* variable_names,
                                int32_t* error_flag);
using DataCallback = void (*)(const int32_t* unit, const int32_t* grid_number,
                              const int32_t* node_count, float* coords,
                              const int32_t* variable_count, float* values, int32_t* error_flag);

// What a reader asks of its host while it works. The defaults take everything and keep nothing.
class Services
{
public:
    virtual ~Services() = default;
    // 0 registers the reader, anything else refuses it.
    virtual int register_reader(const char* /*name*/) { return 0; }
    // 1 when the cell was created. `face_flags` has a flag for each face, `nodes` 1-based numbers.
    virtual int create_cell(Shape /*shape*/, const int32_t* /*face_flags*/,
                            const int32_t* /*nodes*/)
    {
        return 1;
    }
    // 0 when the face was created. `boundary_type` is a 1-based position among the boundary names.
    virtual int create_boundary_face(int32_t /*boundary_type*/, int32_t /*vertex_count*/,
                                     const int32_t* /*nodes*/, int32_t /*constant*/)
    {
        return 0;
    }
    virtual void set_options(int /*first*/, int /*second*/, unsigned char /*third*/) {}
};

struct RegisteredReader {
    std::string name;
    HeaderCallback read_header;
    DataCallback read_data;
};

// What the library has registered with the host so far.
struct Registrations {
    std::vector<RegisteredReader> readers;
    CloseCallback close_file = nullptr;
    PeekTimeCallback peek_time = nullptr;
};

// The names of the 86 services, in the order in which they are handed over.
const std::vector<const char*>& service_names();

// The two exports of a reader.
struct ReaderExports {
    int (*set_func)(void* entry_point, const char* service_name);
    int (*get_func)(void** slot, const char* function_name);
};

// A reader library, unloaded when it goes out of scope.
class ReaderLibrary
{
public:
    // One that is linked in, and its services, which must outlive the object.
    ReaderLibrary(const ReaderExports& exports, Services& services);
    // Throws std::runtime_error, with one clear line, when the library or one of its two exports
    // cannot be had. `services` must outlive the object.
    ReaderLibrary(const std::string& path, Services& services);
    ~ReaderLibrary();
    ReaderLibrary(const ReaderLibrary&) = delete;
    ReaderLibrary& operator=(const ReaderLibrary&) = delete;

    // From now on what readers call goes to the services of this one. So it is when the object is
    // made; calls that come when the services' library is gone are refused.
    void make_current();
    // Calls that come while nobody calls a reader are refused.
    static void make_none_current();

    // The two exports, called as they are.
    int set_func(void* entry_point, const char* service_name) const;
    int get_func(void** slot, const char* function_name) const;

    // Hands over all services but the one named; the number that the library took.
    int hand_over_services(const char* left_out = nullptr) const;

    // The usual start: all services, then "register_data_readers". Throws std::runtime_error when
    // the library refuses.
    void start() const;

    [[nodiscard]] const Registrations& registrations() const;

private:
    void* handle_ = nullptr; // of a loaded one
    ReaderExports exports_{};
    Services& services_;
    Registrations registrations_;
};

} // namespace fld_host
