#include "reader_library.h"

#include "platform.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <stdexcept>
#include <utility>

namespace fld_host
{

// ---- the services ----

static constexpr const char* names[] = {"ftn_zn_register_data_reader",
                                        "zn_register_data_reader",
                                        "ftn_register_two_file_reader",
                                        "register_two_file_reader",
                                        "ftn_register_single_file_reader",
                                        "register_single_file_reader",
                                        "ftn_reg_double_unstruct_reader",
                                        "reg_double_unstruct_reader",
                                        "ftn_reg_single_unstruct_reader",
                                        "reg_single_unstruct_reader",
                                        "ftn_register_scalar_function",
                                        "register_scalar_function",
                                        "ftn_register_vector_function",
                                        "register_vector_function",
                                        "ftn_register_unstruct_scalar",
                                        "register_unstruct_scalar",
                                        "ftn_register_unstruct_vector",
                                        "register_unstruct_vector",
                                        "ftn_fetch_element",
                                        "fetch_element",
                                        "ftn_fetch_element_ex",
                                        "fetch_element_ex",
                                        "ftn_create_hex",
                                        "create_hex",
                                        "ftn_create_tet",
                                        "create_tet",
                                        "ftn_create_pyramid",
                                        "create_pyramid",
                                        "ftn_create_prism",
                                        "create_prism",
                                        "ftn_create_tet_ele",
                                        "create_tet_ele",
                                        "ftn_create_pyra_ele",
                                        "create_pyra_ele",
                                        "ftn_create_prism_ele",
                                        "create_prism_ele",
                                        "ftn_create_hex_ele",
                                        "create_hex_ele",
                                        "ftn_create_arb_poly_ele",
                                        "create_arb_poly_ele",
                                        "ftn_create_tri_face",
                                        "create_tri_face",
                                        "ftn_create_quad_face",
                                        "create_quad_face",
                                        "ftn_create_bndry_face",
                                        "create_bndry_face",
                                        "init_bndry_results",
                                        "ftn_init_bndry_results",
                                        "store_bndry_result",
                                        "ftn_store_bndry_result",
                                        "open_binary",
                                        "read_binary",
                                        "time_step_get_value",
                                        "ftn_tstep_get_value",
                                        "ftn_rdr_set_options",
                                        "ReaderSetOptions",
                                        "ReaderSetMovingGrid",
                                        "open_tmp_znreg",
                                        "ftn_open_tmp_znreg",
                                        "write_tmp_znreg",
                                        "ftn_write_tmp_znreg",
                                        "get_tmp_znreg",
                                        "set_q_constants",
                                        "ftn_set_q_constants",
                                        "set_wind_constants",
                                        "ftn_set_wind_constants",
                                        "cfl_set_zone_constants",
                                        "create_boundary_face",
                                        "ftn_create_boundary_face",
                                        "create_arb_boundary_face",
                                        "ftn_create_arb_boundary_face",
                                        "iftn_getenv",
                                        "register_user_close_file",
                                        "ftn_reg_user_close_file",
                                        "register_user_peek_time",
                                        "ftn_reg_user_peek_time",
                                        "register_user_clean_up_func",
                                        "ftn_reg_user_clean_up_func",
                                        "reader_get_current_dataset",
                                        "ftn_reader_get_current_dataset",
                                        "allow_timestep_per_file",
                                        "ftn_allow_timestep_per_file",
                                        "get_overflow_constants",
                                        "ftn_get_overflow_constants",
                                        "set_cartesian_grid_flag",
                                        "ftn_set_cartesian_grid_flag"};
static constexpr size_t SERVICE_COUNT = std::size(names);

// Whose reader is called. Without one the services refuse.
static Services* current_services;
static Registrations* current_registrations;

static int zn_register_data_reader(const char* name, int /*unused*/, int /*unused*/,
                                   HeaderCallback read_header, DataCallback read_data,
                                   void* /*unused*/, void* /*unused*/, void* /*unused*/,
                                   void* /*unused*/)
{
    try {
        if (!current_services || !name || !read_header || !read_data) return 1;
        const int refused = current_services->register_reader(name);
        if (refused == 0) current_registrations->readers.push_back({name, read_header, read_data});
        return refused;
    } catch (const std::bad_alloc&) { // nothing may be thrown through the library
        return 1;
    }
}

static void register_user_close_file(CloseCallback close_file)
{
    if (current_registrations) current_registrations->close_file = close_file;
}

static void register_user_peek_time(PeekTimeCallback peek_time)
{
    if (current_registrations) current_registrations->peek_time = peek_time;
}

static void reader_set_options(int first, int second, unsigned char third)
{
    if (current_services) current_services->set_options(first, second, third);
}

template <Shape shape> static int create_cell(const int32_t* face_flags, const int32_t* nodes)
{
    return current_services ? current_services->create_cell(shape, face_flags, nodes) : 0;
}

static int create_boundary_face(int32_t boundary_type, int32_t vertex_count, const int32_t* nodes,
                                int32_t constant)
{
    if (!current_services) return 1;
    return current_services->create_boundary_face(boundary_type, vertex_count, nodes, constant);
}

// A reader has no business calling any other service.
template <size_t row> [[noreturn]] static void unexpected_service()
{
    (void)fprintf(stderr, "fld: the reader called the service \"%s\", which no reader needs\n",
                  names[row]);
    std::abort();
}

template <size_t... rows>
static std::array<void*, SERVICE_COUNT> unexpected_services(std::index_sequence<rows...> /*rows*/)
{
    return {reinterpret_cast<void*>(&unexpected_service<rows>)...};
}

// Entry points in the order of the names.
static std::array<void*, SERVICE_COUNT> service_entry_points()
{
    const std::pair<const char*, void*> working[] = {
        {"zn_register_data_reader", reinterpret_cast<void*>(&zn_register_data_reader)},
        {"register_user_close_file", reinterpret_cast<void*>(&register_user_close_file)},
        {"register_user_peek_time", reinterpret_cast<void*>(&register_user_peek_time)},
        {"ReaderSetOptions", reinterpret_cast<void*>(&reader_set_options)},
        {"create_tet_ele", reinterpret_cast<void*>(&create_cell<Shape::tetrahedron>)},
        {"create_pyra_ele", reinterpret_cast<void*>(&create_cell<Shape::pyramid>)},
        {"create_prism_ele", reinterpret_cast<void*>(&create_cell<Shape::prism>)},
        {"create_hex_ele", reinterpret_cast<void*>(&create_cell<Shape::hexahedron>)},
        {"create_boundary_face", reinterpret_cast<void*>(&create_boundary_face)},
    };
    auto entry_points = unexpected_services(std::make_index_sequence<SERVICE_COUNT>());
    for (const auto& [name, entry_point] : working) {
        for (size_t row = 0; row < SERVICE_COUNT; ++row) {
            if (strcmp(names[row], name) == 0) entry_points[row] = entry_point;
        }
    }
    return entry_points;
}

const std::vector<const char*>& service_names()
{
    static const std::vector<const char*> list(std::begin(names), std::end(names));
    return list;
}

// ---- the library ----

ReaderLibrary::ReaderLibrary(const ReaderExports& exports, Services& services)
    : exports_(exports), services_(services)
{
    make_current();
}

ReaderLibrary::ReaderLibrary(const std::string& path, Services& services) : services_(services)
{
    std::string why;
    handle_ = load_library(path, &why);
    if (!handle_) throw std::runtime_error("cannot load the reader: " + why);
    exports_ = {
        reinterpret_cast<decltype(exports_.set_func)>(find_function(handle_, "reader_set_func")),
        reinterpret_cast<decltype(exports_.get_func)>(find_function(handle_, "reader_get_func"))};
    if (!exports_.set_func || !exports_.get_func) {
        unload_library(handle_);
        throw std::runtime_error(path + " is not a reader: it lacks reader_set_func or "
                                        "reader_get_func");
    }
    make_current();
}

ReaderLibrary::~ReaderLibrary()
{
    if (current_registrations == &registrations_) make_none_current();
    if (handle_) unload_library(handle_);
}

void ReaderLibrary::make_current()
{
    current_services = &services_;
    current_registrations = &registrations_;
}

void ReaderLibrary::make_none_current()
{
    current_services = nullptr;
    current_registrations = nullptr;
}

int ReaderLibrary::set_func(void* entry_point, const char* service_name) const
{
    return exports_.set_func(entry_point, service_name);
}

int ReaderLibrary::get_func(void** slot, const char* function_name) const
{
    return exports_.get_func(slot, function_name);
}

int ReaderLibrary::hand_over_services(const char* left_out) const
{
    const auto entry_points = service_entry_points();
    int taken = 0;
    for (size_t row = 0; row < SERVICE_COUNT; ++row) {
        if (left_out && strcmp(names[row], left_out) == 0) continue;
        taken += set_func(entry_points[row], names[row]);
    }
    return taken;
}

void ReaderLibrary::start() const
{
    hand_over_services();
    void* entry_point = nullptr;
    if (get_func(&entry_point, "register_data_readers") != 1) {
        throw std::runtime_error("the reader does not work with this host");
    }
    reinterpret_cast<void (*)()>(entry_point)();
}

const Registrations& ReaderLibrary::registrations() const
{
    return registrations_;
}

} // namespace fld_host
