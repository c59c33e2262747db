#include "readers/cradle/host_services.h"

#include "readers/cradle/exports.h"

#include <algorithm>
#include <cstring>
#include <iterator>

// ---- the table ----

struct HostService {
    const char* name;
    void* entry_point; // null until the host sets it
};

// The rows that a reader calls. The others are held, since a host that lacks one is another
// version, and never used.
static HostService HostServiceTable[] = {
    {"ftn_zn_register_data_reader", nullptr},
    {"zn_register_data_reader", nullptr},
    {"ftn_register_two_file_reader", nullptr},
    {"register_two_file_reader", nullptr},
    {"ftn_register_single_file_reader", nullptr},
    {"register_single_file_reader", nullptr},
    {"ftn_reg_double_unstruct_reader", nullptr},
    {"reg_double_unstruct_reader", nullptr},
    {"ftn_reg_single_unstruct_reader", nullptr},
    {"reg_single_unstruct_reader", nullptr},
    {"ftn_register_scalar_function", nullptr},
    {"register_scalar_function", nullptr},
    {"ftn_register_vector_function", nullptr},
    {"register_vector_function", nullptr},
    {"ftn_register_unstruct_scalar", nullptr},
    {"register_unstruct_scalar", nullptr},
    {"ftn_register_unstruct_vector", nullptr},
    {"register_unstruct_vector", nullptr},
    {"ftn_fetch_element", nullptr},
    {"fetch_element", nullptr},
    {"ftn_fetch_element_ex", nullptr},
    {"fetch_element_ex", nullptr},
    {"ftn_create_hex", nullptr},
    {"create_hex", nullptr},
    {"ftn_create_tet", nullptr},
    {"create_tet", nullptr},
    {"ftn_create_pyramid", nullptr},
    {"create_pyramid", nullptr},
    {"ftn_create_prism", nullptr},
    {"create_prism", nullptr},
    {"ftn_create_tet_ele", nullptr},
    {"create_tet_ele", nullptr},
    {"ftn_create_pyra_ele", nullptr},
    {"create_pyra_ele", nullptr},
    {"ftn_create_prism_ele", nullptr},
    {"create_prism_ele", nullptr},
    {"ftn_create_hex_ele", nullptr},
    {"create_hex_ele", nullptr},
    {"ftn_create_arb_poly_ele", nullptr},
    {"create_arb_poly_ele", nullptr},
    {"ftn_create_tri_face", nullptr},
    {"create_tri_face", nullptr},
    {"ftn_create_quad_face", nullptr},
    {"create_quad_face", nullptr},
    {"ftn_create_bndry_face", nullptr},
    {"create_bndry_face", nullptr},
    {"init_bndry_results", nullptr},
    {"ftn_init_bndry_results", nullptr},
    {"store_bndry_result", nullptr},
    {"ftn_store_bndry_result", nullptr},
    {"open_binary", nullptr},
    {"read_binary", nullptr},
    {"time_step_get_value", nullptr},
    {"ftn_tstep_get_value", nullptr},
    {"ftn_rdr_set_options", nullptr},
    {"ReaderSetOptions", nullptr},
    {"ReaderSetMovingGrid", nullptr},
    {"open_tmp_znreg", nullptr},
    {"ftn_open_tmp_znreg", nullptr},
    {"write_tmp_znreg", nullptr},
    {"ftn_write_tmp_znreg", nullptr},
    {"get_tmp_znreg", nullptr},
    {"set_q_constants", nullptr},
    {"ftn_set_q_constants", nullptr},
    {"set_wind_constants", nullptr},
    {"ftn_set_wind_constants", nullptr},
    {"cfl_set_zone_constants", nullptr},
    {"create_boundary_face", nullptr},
    {"ftn_create_boundary_face", nullptr},
    {"create_arb_boundary_face", nullptr},
    {"ftn_create_arb_boundary_face", nullptr},
    {"iftn_getenv", nullptr},
    {"register_user_close_file", nullptr},
    {"ftn_reg_user_close_file", nullptr},
    {"register_user_peek_time", nullptr},
    {"ftn_reg_user_peek_time", nullptr},
    {"register_user_clean_up_func", nullptr},
    {"ftn_reg_user_clean_up_func", nullptr},
    {"reader_get_current_dataset", nullptr},
    {"ftn_reader_get_current_dataset", nullptr},
    {"allow_timestep_per_file", nullptr},
    {"ftn_allow_timestep_per_file", nullptr},
    {"get_overflow_constants", nullptr},
    {"ftn_get_overflow_constants", nullptr},
    {"set_cartesian_grid_flag", nullptr},
    {"ftn_set_cartesian_grid_flag", nullptr},
};

static HostService* find_host_service(const char* name)
{
    return std::find_if(std::begin(HostServiceTable), std::end(HostServiceTable),
                        [name](const HostService& row) { return strcmp(row.name, name) == 0; });
}

int reader_set_func(void* entry_point, const char* service_name)
{
    HostService* const row = find_host_service(service_name);
    if (row == std::end(HostServiceTable)) return 0;
    row->entry_point = entry_point;
    return 1;
}

bool every_host_service_is_set()
{
    return std::all_of(std::begin(HostServiceTable), std::end(HostServiceTable),
                       [](const HostService& row) { return row.entry_point != nullptr; });
}

// ---- calls ----

// The nine rows that a reader calls; every slot is set by the time that one is called.
static const HostService& register_data_reader = *find_host_service("zn_register_data_reader");
static const HostService& register_close_file = *find_host_service("register_user_close_file");
static const HostService& register_peek_time = *find_host_service("register_user_peek_time");
static const HostService& reader_set_options = *find_host_service("ReaderSetOptions");
static const HostService& create_tet = *find_host_service("create_tet_ele");
static const HostService& create_pyramid = *find_host_service("create_pyra_ele");
static const HostService& create_prism = *find_host_service("create_prism_ele");
static const HostService& create_hex = *find_host_service("create_hex_ele");
static const HostService& create_boundary_face = *find_host_service("create_boundary_face");

// Calls a service; the host's function has this result and takes these arguments.
template <class Result, class... Arguments>
static Result call(const HostService& service, Arguments... arguments)
{
    return reinterpret_cast<Result (*)(Arguments...)>(service.entry_point)(arguments...);
}

bool host_register_data_reader(const char* reader_name, HeaderCallback* read_header,
                               DataCallback* read_data)
{
    void* const nothing = nullptr;
    return call<int>(register_data_reader, reader_name, 2, 0, read_header, read_data, nothing,
                     nothing, nothing, nothing) == 0;
}

void host_register_callbacks(CloseCallback* close_file, PeekTimeCallback* peek_time)
{
    call<void>(register_close_file, close_file);
    call<void>(register_peek_time, peek_time);
}

void host_set_reader_options()
{
    call<void>(reader_set_options, 0, 0, static_cast<unsigned char>(1));
}

bool host_create_tet(const int32_t* face_flags, const int32_t* nodes)
{
    return call<int>(create_tet, face_flags, nodes) == 1;
}

bool host_create_pyramid(const int32_t* face_flags, const int32_t* nodes)
{
    return call<int>(create_pyramid, face_flags, nodes) == 1;
}

bool host_create_prism(const int32_t* face_flags, const int32_t* nodes)
{
    return call<int>(create_prism, face_flags, nodes) == 1;
}

bool host_create_hex(const int32_t* face_flags, const int32_t* nodes)
{
    return call<int>(create_hex, face_flags, nodes) == 1;
}

// Only the low byte of this result is set.
bool host_create_boundary_face(int32_t boundary_type, int32_t vertex_count, const int32_t* nodes)
{
    return (call<int>(create_boundary_face, boundary_type, vertex_count, nodes, int32_t{1}) &
            0xFF) == 0;
}
