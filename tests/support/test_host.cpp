#include "test_host.h"

#include "test_system.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <gtest/gtest.h>
#include <span>

namespace fld_test
{

using fld_host::Shape;

// ---- guarded buffers ----

// Behind each of them memory ends: not even a read goes past it. Kept for arrays to come.
static std::vector<std::span<unsigned char>> spare_mappings;

static std::span<unsigned char> take_mapping(size_t size)
{
    if (!spare_mappings.empty() && spare_mappings.back().size() >= size) {
        const std::span<unsigned char> spare = spare_mappings.back();
        spare_mappings.pop_back();
        return spare;
    }
    size = std::max((size + PAGE - 1) / PAGE, size_t{16}) * PAGE;
    return {map_guarded(size), size};
}

// An array at the end of a mapping, and a guard before it. Both are filled until they are written.
template <class T> class GuardedArray
{
public:
    GuardedArray(int64_t count, unsigned char fill)
        : fill_(fill), size_(static_cast<size_t>(std::max<int64_t>(count, 0)) * sizeof(T)),
          mapping_(take_mapping(GUARD + size_))
    {
        memset(mapping_.last(GUARD + size_).data(), fill, GUARD + size_);
    }
    // Reports a guard that was written to: one byte is not like the one before it.
    ~GuardedArray()
    {
        const unsigned char* const guard = mapping_.last(GUARD + size_).data();
        EXPECT_TRUE(guard[0] == fill_ && memcmp(guard, guard + 1, GUARD - 1) == 0)
            << "written before a buffer";
        spare_mappings.push_back(mapping_);
    }
    GuardedArray(const GuardedArray&) = delete;
    GuardedArray& operator=(const GuardedArray&) = delete;

    T* data() { return reinterpret_cast<T*>(mapping_.last(size_).data()); }
    std::vector<T> copy() { return {data(), data() + size_ / sizeof(T)}; }

private:
    static constexpr size_t GUARD = 2 * PAGE;
    unsigned char fill_;
    size_t size_;
    std::span<unsigned char> mapping_;
};

// ---- the trace ----

// Splits the library's output into lines; text that does not end in a newline is marked.
void TestHost::log_output()
{
    for (int stream = 0; Capture::is_active && stream < 2; ++stream) {
        const std::string text = Capture::take(stream);
        for (size_t at = 0, end = 0; at < text.size(); at = end + 1) {
            end = std::min(text.find('\n', at), text.size());
            size_t hidden = trace_.size();
            trace_.append(stream == 0 ? "out " : "err ").append(text, at, end - at);
            while (!hidden_prefix.empty() &&
                   (hidden = trace_.find(hidden_prefix, hidden)) != std::string::npos) {
                trace_.erase(hidden, hidden_prefix.size());
            }
            trace_ += end < text.size() ? "\n" : " (no newline)\n";
        }
    }
}

// A name row ends at its first NUL and has only NULs after it, or fills all 80 bytes.
void TestHost::log_names(const char* what, const std::vector<char>& rows, int32_t count)
{
    const int64_t written = std::min<int64_t>(count, static_cast<int64_t>(rows.size() / 80));
    for (int64_t row = 0; row < written; ++row) {
        const std::string bytes(rows.data() + row * 80, 80);
        const std::string text = bytes.substr(0, bytes.find('\0'));
        const bool clean = bytes.find_first_not_of('\0', text.size()) == std::string::npos;
        const bool untouched = bytes == std::string(80, static_cast<char>(UNTOUCHED));
        EXPECT_TRUE(clean || untouched) << what << " is not padded with NUL: " << text;
        log(std::string(what) + " " + (untouched ? "(untouched)" : text));
    }
    if (count > written) log(std::string(what) + " count " + std::to_string(count));
}

std::string TestHost::take_trace()
{
    return std::exchange(trace_, {});
}

// ---- services ----

bool TestHost::refuses_this_create()
{
    on_create();
    return ++created_ == controls.refuse_create;
}

int TestHost::create_cell(Shape shape, const int32_t* face_flags, const int32_t* nodes)
{
    log_output();
    for (int face = 0; face < fld_host::shape_faces[int(shape)]; ++face) {
        EXPECT_TRUE(face_flags[face] == 0 || face_flags[face] == fld_host::WALL_FACE);
    }
    if (refuses_this_create()) return 0;
    trace_ += cell_line(shape, face_flags, nodes);
    return 1;
}

int TestHost::create_boundary_face(int32_t boundary_type, int32_t vertex_count,
                                   const int32_t* nodes, int32_t constant)
{
    EXPECT_EQ(constant, 1);
    EXPECT_TRUE(vertex_count == 3 || vertex_count == 4) << vertex_count;
    EXPECT_TRUE(boundary_type >= 1 && boundary_type <= boundary_count_) << boundary_type;
    log_output();
    if (refuses_this_create()) return 1;
    trace_ += face_line(boundary_type, vertex_count, nodes);
    return 0;
}

void TestHost::set_options(int first, int second, unsigned char third)
{
    const int options[] = {first, second, third};
    log_output();
    log("options" + list_text(options, 3));
}

// ---- callbacks ----

TestHost::TestHost(const std::string& library)
    : library_(std::make_unique<fld_host::ReaderLibrary>(
          library.empty() ? FLD_READER_PATH : library, *this))
{
}

void TestHost::call(const std::function<void()>& function)
{
    library_->make_current();
    const int descriptor = lowest_free_descriptor();
    {
        const Capture capture;
        function();
        log_output();
    }
    EXPECT_EQ(lowest_free_descriptor(), descriptor) << "a file stayed open";
}

void TestHost::start()
{
    call([&] { library_->start(); });
}

void TestHost::open(const std::string& path)
{
    GuardedArray<int32_t> node_counts(controls.grid_capacity, controls.fill);
    GuardedArray<char> boundaries(int64_t{80} * controls.boundary_capacity, controls.fill);
    GuardedArray<char> variables(int64_t{80} * controls.variable_capacity, controls.fill);
    int32_t boundary_count = -1;
    grid_count_ = variable_count_ = error_flag_ = -1;
    log("open");
    call([&] {
        library_->registrations()
            .readers.at(controls.reader)
            .read_header(path.c_str(), nullptr, &controls.unit, &controls.grid_capacity,
                         &controls.boundary_capacity, &controls.variable_capacity, &grid_count_,
                         node_counts.data(), &boundary_count, boundaries.data(), nullptr,
                         &variable_count_, variables.data(), &error_flag_);
    });
    log("flag " + std::to_string(error_flag_));
    EXPECT_TRUE(grid_count_ >= 0 && boundary_count >= 0 && variable_count_ >= 0);
    if (error_flag_ != 0) return;
    node_counts_ = node_counts.copy();
    ASSERT_LE(grid_count_, controls.grid_capacity);
    log("nodes" + list_text(node_counts_.data(), grid_count_));
    boundary_count_ = std::min(boundary_count, controls.boundary_capacity);
    log_names("boundary", boundaries.copy(), boundary_count);
    log_names("variable", variables.copy(), variable_count_);
}

void TestHost::peek(const std::string& path)
{
    float time = -1;
    int32_t flag = -1;
    log("peek");
    call([&] {
        library_->registrations().peek_time(nullptr, path.c_str(), nullptr, nullptr, &time, &flag);
    });
    log("time " + real_text(time) + " flag " + std::to_string(flag));
}

void TestHost::read(int32_t grid)
{
    const bool is_known = grid >= 1 && grid <= grid_count_;
    const int32_t node_count = is_known ? node_counts_.at(static_cast<size_t>(grid - 1)) : 4;
    GuardedArray<float> coordinate_buffer(int64_t{3} * node_count, controls.fill);
    GuardedArray<float> value_buffer(int64_t{variable_count_} * node_count, controls.fill);
    error_flag_ = -1;
    created_ = 0;
    log("read " + std::to_string(grid));
    call([&] {
        library_->registrations()
            .readers.at(controls.reader)
            .read_data(&controls.unit, &grid, &node_count,
                       controls.no_coordinates ? nullptr : coordinate_buffer.data(),
                       &variable_count_, controls.no_values ? nullptr : value_buffer.data(),
                       &error_flag_);
    });
    log("flag " + std::to_string(error_flag_));
    coordinates = coordinate_buffer.copy();
    values = value_buffer.copy();
    if (error_flag_ != 0) return;
    EXPECT_TRUE(is_known) << "a grid that is not there was read";
    for (ptrdiff_t row = 0; row < 3; ++row) {
        trace_ += reals_line({"xyz"[row]}, coordinates.data() + row * node_count, node_count);
    }
    for (ptrdiff_t row = 0; row < variable_count_; ++row) {
        trace_ += reals_line("value", values.data() + row * node_count, node_count);
    }
}

std::string TestHost::visit(const std::string& path, const std::function<void()>& meanwhile)
{
    open(path);
    if (error_flag_ == 0) {
        peek(path);
        if (meanwhile) meanwhile();
        for (int32_t grid = 1; grid <= grid_count_; ++grid) read(grid);
        close();
    }
    return take_trace();
}

void TestHost::change_node_counts(int32_t change)
{
    for (int32_t& count : node_counts_) count = std::max(count + change, 0);
}

void TestHost::close()
{
    log("close");
    call([&] { library_->registrations().close_file(); });
}

} // namespace fld_test
