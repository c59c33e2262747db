#include "dataset.h"

#include "grid.h"
#include "reader_state.h"
#include "readers/cradle/linked_reader.h"
#include "ui/util/utf8wrap.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <new>
#include <utility>

namespace fld_host
{

// The unit under which the reader opens the files of a dataset.
static constexpr int32_t DATASET_UNIT = 20;

static constexpr size_t NAME_ROW = 80;

static std::string grid_name(int grid)
{
    return "grid " + std::to_string(grid + 1);
}

// ---- names ----

// The first `count` names of a list as the reader fills it: rows of 80 bytes, padded with NUL bytes
// or blanks. A name that fills its row has no NUL.
static std::vector<std::string> names_of(const std::vector<char>& rows, int32_t count)
{
    std::vector<std::string> names;
    for (int32_t row = 0; row < count; ++row) {
        const char* text = rows.data() + static_cast<size_t>(row) * NAME_ROW;
        std::string name(text, strnlen(text, NAME_ROW));
        name.erase(name.find_last_not_of(' ') + 1);
        names.push_back(std::move(name));
    }
    return names;
}

// Room for a list, which is kept for the next one: only what the reader wrote is looked at.
static char* room_for(int32_t capacity, std::vector<char>& rows)
{
    const size_t bytes = static_cast<size_t>(std::max(capacity, 0)) * NAME_ROW + 1;
    if (rows.size() < bytes) rows.resize(bytes);
    return rows.data();
}

static constexpr std::string_view X_COMPONENT = " (x-component)";

// Whether the rows from `row` on are the components of one vector, by their names.
static bool is_vector(const std::vector<std::string>& rows, size_t row)
{
    if (row + 3 > rows.size()) return false;
    const size_t at = rows[row].find(X_COMPONENT);
    if (at == std::string::npos) return false;
    const std::string start = rows[row].substr(0, at);
    return rows[row + 1].starts_with(start + " (y-component)") &&
           rows[row + 2].starts_with(start + " (z-component)");
}

// What stands in the parentheses that begin there.
static std::string in_parentheses(const std::string& text, size_t at)
{
    const size_t end = text.find(')', at);
    return end == std::string::npos ? text.substr(at + 1) : text.substr(at + 1, end - at - 1);
}

// "Velocity (x-component) (VEL); Velocity (VEL)" is one of the rows of "Velocity (VEL)".
static Variable vector_of(const std::string& row, const std::string& known_key)
{
    const size_t at = row.find(X_COMPONENT);
    const size_t behind = at + X_COMPONENT.size();
    std::string name = row.substr(0, at);
    const bool has_key = row.compare(behind, 2, " (") == 0;
    std::string key = known_key;
    if (key.empty()) key = has_key ? in_parentheses(row, behind + 1) : name;
    if (has_key) name += " (" + key + ")";
    return {name, key, 3, 0};
}

static Variable scalar_of(const std::string& row, const std::string& known_key)
{
    std::string key = known_key;
    const size_t open = row.rfind(" (");
    if (key.empty() && row.ends_with(')') && open != std::string::npos) {
        key = in_parentheses(row, open + 1);
    }
    return {row, key.empty() ? row : key, 1, 0};
}

// The key of the section that holds a row, as the linked reader tells it.
static std::string key_of_row(bool is_linked, size_t row)
{
    const std::string section = is_linked ? section_of_variable(static_cast<int32_t>(row)) : "";
    const size_t colon = section.find(':');
    return colon == std::string::npos ? "" : section.substr(colon + 1);
}

static std::vector<Variable> variables_of(const std::vector<std::string>& rows, bool is_linked)
{
    std::vector<Variable> variables;
    for (size_t row = 0; row < rows.size();) {
        const std::string key = key_of_row(is_linked, row);
        Variable variable =
            is_vector(rows, row) ? vector_of(rows[row], key) : scalar_of(rows[row], key);
        variable.first_row = static_cast<int>(row);
        row += static_cast<size_t>(variable.components);
        variables.push_back(std::move(variable));
    }
    return variables;
}

// ---- opening ----

static void check_room(const std::string& file, const char* what, int32_t count, int32_t names)
{
    if (count <= names) return;
    throw Error(Error::Kind::no_memory, file,
                "cannot be opened: " + std::to_string(count) + " " + what +
                    ", but there is room for " + std::to_string(names) + " only");
}

Contents Dataset::call_header_callback()
{
    ReaderState& state = *reader_->state_;
    const Listening listening(state);
    char* const boundaries = room_for(capacities_.boundaries, state.boundary_rows);
    char* const variables = room_for(capacities_.variables, state.variable_rows);
    Contents contents;
    contents.node_counts.assign(static_cast<size_t>(std::max(capacities_.grids, 1)), 0);
    int32_t grid_count = 0;
    int32_t boundary_count = 0;
    int32_t variable_count = 0;
    int32_t error_flag = 1;
    state.open_dataset = 0;
    state.services.scanned_files = 0;
    state.reader().read_header(file_.c_str(), nullptr, &DATASET_UNIT, &capacities_.grids,
                               &capacities_.boundaries, &capacities_.variables, &grid_count,
                               contents.node_counts.data(), &boundary_count, boundaries, nullptr,
                               &variable_count, variables, &error_flag);
    if (error_flag != 0) throw listening.failure(file_, "cannot be opened");
    const auto& counts = contents.node_counts;
    if (grid_count < 0 || grid_count > capacities_.grids || boundary_count < 0 ||
        variable_count < 0 ||
        std::any_of(counts.begin(), counts.begin() + grid_count, [](int32_t n) { return n < 0; })) {
        throw listening.failure(file_, "cannot be opened", "the reader gives impossible counts");
    }
    contents.node_counts.resize(static_cast<size_t>(grid_count));
    check_room(file_, "boundaries", boundary_count, std::max(capacities_.boundaries, 0));
    check_room(file_, "variables", variable_count, std::max(capacities_.variables, 0));
    contents.boundaries = names_of(state.boundary_rows, boundary_count);
    contents.rows = names_of(state.variable_rows, variable_count);
    contents.variables = variables_of(contents.rows, state.is_linked);
    row_count_ = variable_count;
    // A file without a grid of its own is opened together with the file that has it.
    contents.results_only = state.services.scanned_files > 1;
    state.services.scanned_files = 0;
    grid_files_.assign(static_cast<size_t>(grid_count), "");
    for (size_t grid = 0; state.is_linked && grid < grid_files_.size(); ++grid) {
        grid_files_[grid] = file_of_dataset_grid(static_cast<int32_t>(grid) + 1);
    }
    if (contents.results_only && grid_count > 0) contents.grid_file = grid_files_[0];
    state.open_dataset = id_;
    return contents;
}

static std::atomic<int64_t> last_id;

Dataset::Dataset(std::shared_ptr<Reader> reader, std::string file, const Capacities& capacities)
    : reader_(std::move(reader)), file_(std::move(file)), capacities_(capacities), id_(++last_id)
{
    const Turn turn(*reader_->state_);
    contents_ = call_header_callback();
}

Dataset::~Dataset()
{
    if (Turn::is_mine()) return; // inside a sink: the next file that is opened takes its place
    const Turn turn(*reader_->state_);
    ReaderState& state = *reader_->state_;
    if (state.open_dataset != id_) return;
    state.open_dataset = 0;
    const CloseCallback close_file = state.library->registrations().close_file;
    if (close_file) close_file();
}

static bool is_equal(const Contents& a, const Contents& b)
{
    return a.node_counts == b.node_counts && a.boundaries == b.boundaries &&
           a.results_only == b.results_only && a.rows == b.rows;
}

// Opens the file again when the reader holds another.
void Dataset::ensure_open()
{
    if (reader_->state_->open_dataset == id_) return;
    if (is_equal(call_header_callback(), contents_)) return;
    reader_->state_->open_dataset = 0;
    throw Error(Error::Kind::changed, file_, "holds something else than when it was opened");
}

// ---- what is known before a read ----

Wanted Dataset::everything() const
{
    Wanted wanted;
    for (size_t i = 0; i < contents_.boundaries.size(); ++i) {
        wanted.boundaries.push_back(static_cast<int>(i));
    }
    for (size_t i = 0; i < contents_.variables.size(); ++i) {
        wanted.variables.push_back(static_cast<int>(i));
    }
    return wanted;
}

std::optional<GridSize> Dataset::size(int grid)
{
    ReaderState& state = *reader_->state_;
    const Turn turn(state);
    (void)contents_.node_counts.at(static_cast<size_t>(grid));
    if (!state.is_linked) return std::nullopt;
    ensure_open();
    const Listening listening(state);
    GridSize size;
    size.triangles.assign(contents_.boundaries.size(), 0);
    size.quadrilaterals.assign(contents_.boundaries.size(), 0);
    GridCounts counts{{}, size.triangles.data(), size.quadrilaterals.data()};
    if (!count_grid_of_dataset(grid + 1, &counts)) {
        throw listening.failure(file_, grid_name(grid) + " cannot be read");
    }
    std::copy(std::begin(counts.cells), std::end(counts.cells), size.cells.begin());
    return size;
}

std::optional<MeshIdentity> Dataset::mesh_identity(int grid)
{
    const std::string& file = grid_files_.at(static_cast<size_t>(grid));
    utf8wrap::FileStatus status{};
    if (file.empty() || utf8wrap::_stat64(file.c_str(), &status) != 0) return std::nullopt;
    return MeshIdentity{status.device,       status.file_number, status.size,
                        status.modified,     status.changed,     grid,
                        contents_.boundaries};
}

// ---- reading ----

// A read in hand.
struct Dataset::Reading {
    ReaderState& state;
    GridSink& sink;
    Listening listening;
    int32_t node_count;
    std::vector<bool> boundaries; // which are wanted
    bool all_boundaries;
};

void Dataset::read_linked(int grid, const Wanted& wanted, const Buffers& buffers, Reading& reading)
{
    std::vector<float*> rows(static_cast<size_t>(row_count_) + 1, nullptr);
    for (size_t k = 0; k < wanted.variables.size(); ++k) {
        const Variable& variable = contents_.variables[static_cast<size_t>(wanted.variables[k])];
        rows[static_cast<size_t>(variable.first_row)] = buffers.variables[k];
    }
    const std::unique_ptr<bool[]> chosen(new bool[reading.boundaries.size() + 1]);
    std::copy(reading.boundaries.begin(), reading.boundaries.end(), chosen.get());
    const ReadRequest request{.nodes = wanted.nodes,
                              .cells = wanted.cells,
                              .wall_flags = wanted.wall_flags,
                              .faces = !wanted.boundaries.empty(),
                              .boundaries = reading.all_boundaries ? nullptr : chosen.get(),
                              .rows = rows.data(),
                              .row_count = row_count_};
    reading.listening.ask_about(bytes_to_read(grid + 1, request));
    const bool done =
        read_grid_of_dataset(grid + 1, reading.node_count, buffers.nodes, row_count_, request);
    const std::string problem = reading.state.services.end_grid();
    if (!done || !problem.empty()) {
        throw reading.listening.failure(file_, grid_name(grid) + " cannot be read", problem);
    }
}

// Everything is read, and what is not wanted dropped.
void Dataset::read_loaded(int grid, const Wanted& wanted, const Buffers& buffers, Reading& reading)
{
    const auto nodes = static_cast<size_t>(reading.node_count);
    FloatBuffer own_coords;
    FloatBuffer values;
    float* const coords = wanted.nodes ? buffers.nodes : own_coords.prepare(3 * nodes);
    float* const all_values = values.prepare(static_cast<size_t>(row_count_) * nodes);
    const int32_t number = grid + 1;
    int32_t error_flag = 1;
    reading.state.reader().read_data(&DATASET_UNIT, &number, &reading.node_count, coords,
                                     &row_count_, all_values, &error_flag);
    const std::string problem = reading.state.services.end_grid();
    if (!problem.empty() || error_flag != 0) {
        throw reading.listening.failure(file_, grid_name(grid) + " cannot be read", problem);
    }
    for (size_t k = 0; k < wanted.variables.size(); ++k) {
        const Variable& variable = contents_.variables[static_cast<size_t>(wanted.variables[k])];
        std::copy_n(all_values + static_cast<size_t>(variable.first_row) * nodes,
                    static_cast<size_t>(variable.components) * nodes, buffers.variables[k]);
    }
}

void Dataset::read(int grid, const Wanted& wanted, const Buffers& buffers, GridSink& sink)
{
    ReaderState& state = *reader_->state_;
    const Turn turn(state);
    const int32_t node_count = contents_.node_counts.at(static_cast<size_t>(grid));
    if ((wanted.nodes && !buffers.nodes && node_count > 0) ||
        buffers.variables.size() < wanted.variables.size()) {
        throw std::invalid_argument("a read has no buffer for what it is to deliver");
    }
    std::vector<bool> is_taken(contents_.variables.size(), false);
    for (const int variable : wanted.variables) {
        auto taken = is_taken.at(static_cast<size_t>(variable));
        if (taken) throw std::invalid_argument("a read is to deliver a variable twice");
        taken = true;
    }
    ensure_open();
    Reading reading{state,
                    sink,
                    Listening(state),
                    node_count,
                    std::vector<bool>(contents_.boundaries.size(), false),
                    true};
    for (const int boundary : wanted.boundaries) {
        reading.boundaries.at(static_cast<size_t>(boundary)) = true;
    }
    reading.all_boundaries = std::all_of(reading.boundaries.begin(), reading.boundaries.end(),
                                         [](bool is_wanted) { return is_wanted; });
    state.services.begin_grid(sink, {wanted.cells, wanted.wall_flags, &reading.boundaries},
                              node_count, static_cast<int32_t>(contents_.boundaries.size()));
    try {
        state.is_linked ? read_linked(grid, wanted, buffers, reading)
                        : read_loaded(grid, wanted, buffers, reading);
    } catch (const std::bad_alloc&) {
        (void)state.services.end_grid();
        throw Error(Error::Kind::no_memory, file_,
                    grid_name(grid) + " cannot be read: not enough memory for " +
                        std::to_string(node_count) + " nodes");
    }
}

} // namespace fld_host
