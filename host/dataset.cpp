#include "dataset.h"

#include "grid.h"
#include "reader_state.h"
#include "readers/cradle/linked_reader.h"
#include "ui/util/utf8wrap.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <new>
#include <tuple>
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

// Where the three rows from `row` on name the components of one vector, npos when they do not:
// "Velocity (x-component) (VEL)" and so on.
static size_t component_position(const std::vector<std::string>& rows, size_t row)
{
    static constexpr std::string_view marks[] = {" (x-component)", " (y-component)",
                                                 " (z-component)"};
    if (row + 3 > rows.size()) return std::string::npos;
    size_t at = rows[row].find(marks[0]);
    const auto is_mark = [&](size_t component) {
        const std::string& other = rows[row + component];
        return other.compare(0, at, rows[row], 0, at) == 0 &&
               other.compare(at, marks[component].size(), marks[component]) == 0;
    };
    while (at != std::string::npos && !(is_mark(1) && is_mark(2))) {
        at = rows[row].find(marks[0], at + 1);
    }
    return at;
}

// What stands in the parentheses that begin there.
static std::string in_parentheses(const std::string& text, size_t at)
{
    const size_t end = text.find(')', at);
    return end == std::string::npos ? text.substr(at + 1) : text.substr(at + 1, end - at - 1);
}

// `at`: where its rows name their components; npos when they are too long for it.
static Variable vector_of(const std::string& row, size_t at, const std::string& known_key)
{
    constexpr size_t MARK = std::string_view(" (x-component)").size();
    if (at == std::string::npos) return {row, known_key, 3, 0};
    std::string name = row.substr(0, at);
    const bool has_key = row.compare(at + MARK, 2, " (") == 0;
    std::string key = known_key;
    if (key.empty()) key = has_key ? in_parentheses(row, at + MARK + 1) : name;
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

// The section that holds a row, as the linked reader tells it: it decides how many rows the reader
// fills. Names tell only of rows that no section holds, and of a loaded reader's.
static Variable variable_at(const std::vector<std::string>& rows, size_t row, bool is_linked)
{
    const auto section_of = [&](size_t i) {
        return std::string(is_linked ? section_of_variable(static_cast<int32_t>(i)) : "");
    };
    const std::string section = section_of(row);
    const std::string key = section.substr(section.find(':') + 1);
    const size_t at = component_position(rows, row);
    const bool is_named_so = section.empty() && at != std::string::npos &&
                             section_of(row + 1).empty() && section_of(row + 2).empty();
    if (section.starts_with("LS_Vector") || is_named_so) return vector_of(rows[row], at, key);
    return scalar_of(rows[row], key);
}

static std::vector<Variable> variables_of(const std::vector<std::string>& rows, bool is_linked)
{
    std::vector<Variable> variables;
    for (size_t row = 0; row < rows.size();) {
        Variable variable = variable_at(rows, row, is_linked);
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

// Opens the file. Gives what it holds, and the file of each grid, empty when it is not known.
std::pair<Contents, std::vector<std::string>> Dataset::call_header_callback()
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
    const Variable* const last = contents.variables.empty() ? nullptr : &contents.variables.back();
    if (last && last->first_row + last->components > variable_count) {
        throw listening.failure(file_, "cannot be opened", "the reader gives half a vector");
    }
    std::vector<std::string> grid_files(static_cast<size_t>(grid_count));
    for (size_t grid = 0; state.is_linked && grid < grid_files.size(); ++grid) {
        grid_files[grid] = file_of_dataset_grid(static_cast<int32_t>(grid) + 1);
    }
    // A file without a grid of its own is opened together with the file that has it.
    contents.results_only = state.is_linked ? grid_count > 0 && grid_files[0] != file_
                                            : look_for_grid_quietly(file_) == false;
    if (contents.results_only && grid_count > 0) contents.grid_file = grid_files[0];
    state.open_dataset = id_;
    return {std::move(contents), std::move(grid_files)};
}

static std::atomic<int64_t> last_id;

Dataset::Dataset(std::shared_ptr<Reader> reader, std::string file, const Capacities& capacities)
    : reader_(std::move(reader)), file_(std::move(file)), capacities_(capacities), id_(++last_id)
{
    const Turn turn(*reader_->state_);
    std::tie(contents_, grid_files_) = call_header_callback();
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
    const auto [contents, grid_files] = call_header_callback();
    if (is_equal(contents, contents_) && grid_files == grid_files_) return;
    reader_->state_->open_dataset = 0;
    throw Error(Error::Kind::changed, file_, "holds something else than when it was opened");
}

// ---- what is known before a read ----

Buffers buffers_of(const Contents& contents, float* coords, float* values, size_t nodes)
{
    Buffers buffers{coords, {}};
    for (const Variable& variable : contents.variables) {
        buffers.variables.push_back(values + static_cast<size_t>(variable.first_row) * nodes);
    }
    return buffers;
}

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
    const auto row_count = static_cast<int32_t>(contents_.rows.size());
    std::vector<float*> rows(contents_.rows.size() + 1, nullptr);
    for (size_t k = 0; k < wanted.variables.size(); ++k) {
        const Variable& variable = contents_.variables[static_cast<size_t>(wanted.variables[k])];
        for (int component = 0; component < variable.components; ++component) {
            rows[static_cast<size_t>(variable.first_row) + static_cast<size_t>(component)] =
                buffers.variables[k] + static_cast<int64_t>(component) * reading.node_count;
        }
    }
    const std::unique_ptr<bool[]> chosen(new bool[reading.boundaries.size() + 1]);
    std::copy(reading.boundaries.begin(), reading.boundaries.end(), chosen.get());
    const ReadRequest request{.nodes = wanted.nodes,
                              .cells = wanted.cells,
                              .wall_flags = wanted.wall_flags,
                              .faces = !wanted.boundaries.empty(),
                              .boundaries = reading.all_boundaries ? nullptr : chosen.get(),
                              .rows = rows.data(),
                              .row_count = row_count};
    reading.listening.ask_about(bytes_to_read(grid + 1, request));
    const bool done =
        read_grid_of_dataset(grid + 1, reading.node_count, buffers.nodes, row_count, request);
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
    float* const all_values = values.prepare(contents_.rows.size() * nodes);
    const auto row_count = static_cast<int32_t>(contents_.rows.size());
    const int32_t number = grid + 1;
    int32_t error_flag = 1;
    reading.state.reader().read_data(&DATASET_UNIT, &number, &reading.node_count, coords,
                                     &row_count, all_values, &error_flag);
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
    const auto lacks = [&](const float* buffer) { return !buffer && node_count > 0; };
    if ((wanted.nodes && lacks(buffers.nodes)) ||
        buffers.variables.size() < wanted.variables.size() ||
        std::any_of(buffers.variables.begin(),
                    buffers.variables.begin() + std::ssize(wanted.variables), lacks)) {
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
        if (state.services.sink_threw()) throw;
        (void)state.services.end_grid();
        throw Error(Error::Kind::no_memory, file_,
                    grid_name(grid) + " cannot be read: not enough memory for " +
                        std::to_string(node_count) + " nodes");
    }
}

} // namespace fld_host
