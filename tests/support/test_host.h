// A strict host for the reader library: guarded buffers, captured output, and a trace of all that
// the library shows to its host, as text that can be compared and written by hand.
//
// Lines of a trace: "open", "peek", "read <grid>" and "close" begin a callback, "flag" ends it with
// its error flag; peeking ends with "time" and flag. Between them, in the order of the calls: "out"
// and "err" a line of the standard streams; "options"; "nodes" of every grid; "boundary" and
// "variable" names; "face" type | nodes; "tet", "pyramid", "prism" or "hex" with its face flags |
// nodes; the coordinates "x", "y", "z" and one "value" line per variable. Reals are printed so that
// different bit patterns differ.
#pragma once

#include "reader_library.h"
#include "trace_text.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace fld_test
{

struct Controls {
    int32_t unit = 7;
    int32_t grid_capacity = 4;
    int32_t boundary_capacity = 8;
    int32_t variable_capacity = 8;
    int32_t refuse_create = 0;   // of a grid, the number of the cell or face not to be created
    bool no_coordinates = false; // hand over null instead of a buffer
    bool no_values = false;
    std::string refuse_reader = {}; // the reader not to be registered
    size_t reader = 0;              // the registered reader to be used
    unsigned char fill = UNTOUCHED;
};

class TestHost : public fld_host::Services
{
public:
    // Loads the library afresh: no state is left of an earlier one. Only one host at a time.
    explicit TestHost(const std::string& library = {}); // empty: the library as it is delivered
    ~TestHost() override = default;

    // The usual start, with the registrations as the controls say.
    void start();

    // The callbacks. Each checks that no byte beyond a buffer was touched and no file stays open.
    void open(const std::string& path);
    void peek(const std::string& path);
    void read(int32_t grid); // from 1; of any other one 4 nodes are asked for
    void close();

    // Opens, peeks at, reads and closes, or stops after a failed open; gives the trace.
    // `meanwhile` happens before the grids are read.
    std::string visit(const std::string& path, const std::function<void()>& meanwhile = {});

    // Calls anything of the library's with its output going to the trace.
    void call(const std::function<void()>& function);

    // What was recorded since the last take.
    std::string take_trace();

    [[nodiscard]] const fld_host::ReaderLibrary& library() const { return *library_; }
    [[nodiscard]] int32_t error_flag() const { return error_flag_; }
    [[nodiscard]] int32_t grid_count() const { return grid_count_; }
    [[nodiscard]] int32_t variable_count() const { return variable_count_; }
    // Asks for another number of variables than the library reported.
    void set_variable_count(int32_t count) { variable_count_ = count; }
    void change_node_counts(int32_t change); // none below 0

    Controls controls;
    std::vector<float> coordinates, values;  // of the last grid that was read, row by row
    std::string hidden_prefix;               // cut out of the library's output: a directory
    std::function<void()> on_create = [] {}; // called with every cell and face

private:
    int register_reader(const char* name) override { return controls.refuse_reader == name; }
    int create_cell(fld_host::Shape shape, const int32_t* face_flags,
                    const int32_t* nodes) override;
    int create_boundary_face(int32_t boundary_type, int32_t vertex_count, const int32_t* nodes,
                             int32_t constant) override;
    void set_options(int first, int second, unsigned char third) override;

    bool refuses_this_create();
    void log(const std::string& line) { trace_ += line + "\n"; }
    void log_output();
    void log_names(const char* what, const std::vector<char>& rows, int32_t count);

    std::string trace_;
    int32_t created_ = 0;
    int32_t error_flag_ = -1;
    int32_t grid_count_ = 0;
    int32_t boundary_count_ = 0; // with a name that the host has room for
    int32_t variable_count_ = 0;
    std::vector<int32_t> node_counts_;
    std::unique_ptr<fld_host::ReaderLibrary> library_; // last: unloaded first
};

} // namespace fld_test
