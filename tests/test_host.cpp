#include "test_host.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <gtest/gtest.h>
#include <new>
#include <sys/mman.h>
#include <unistd.h>

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/common_interface_defs.h>
#endif

namespace fld_test
{

using fld_host::Shape;

// ---- guarded buffers ----

// An array that ends where memory ends: not even a read goes past it. Before it stands a guard, at
// most two pages long. Guard and array are filled until they are written.
template <class T> class GuardedArray
{
public:
    GuardedArray(int64_t count, unsigned char fill)
        : fill_(fill), size_(static_cast<size_t>(std::max<int64_t>(count, 0)) * sizeof(T)),
          mapped_((size_ / PAGE + 2) * PAGE)
    {
        void* const memory = mmap(nullptr, mapped_ + PAGE, PROT_READ | PROT_WRITE,
                                  MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED) throw std::bad_alloc();
        bytes_ = static_cast<unsigned char*>(memory);
        memset(bytes_, fill_, mapped_);
        EXPECT_EQ(mprotect(bytes_ + mapped_, PAGE, PROT_NONE), 0);
    }
    // Reports a guard that was written to.
    ~GuardedArray()
    {
        const auto untouched = [&](unsigned char byte) { return byte == fill_; };
        EXPECT_TRUE(std::all_of(bytes_, bytes_ + mapped_ - size_, untouched))
            << "written before a buffer";
        munmap(bytes_, mapped_ + PAGE);
    }
    GuardedArray(const GuardedArray&) = delete;
    GuardedArray& operator=(const GuardedArray&) = delete;

    T* data() { return reinterpret_cast<T*>(bytes_ + mapped_ - size_); }
    std::vector<T> copy() { return {data(), data() + size_ / sizeof(T)}; }

private:
    static constexpr size_t PAGE = 4096;
    unsigned char fill_;
    size_t size_, mapped_; // without the page past the end
    unsigned char* bytes_;
};

// ---- captured output ----

static const int memory_files[2] = {memfd_create("out", 0), memfd_create("err", 0)};

// While it lives, file descriptors 1 and 2 lead to memory files.
class Capture
{
public:
    Capture()
    {
        (void)fflush(stdout);
        for (int i = 0; i < 2; ++i) {
            file_[i] = memory_files[i];
            EXPECT_EQ(ftruncate(file_[i], 0), 0);
            lseek(file_[i], 0, SEEK_SET);
            saved_[i] = dup(i + 1);
            dup2(file_[i], i + 1);
        }
        current = this;
#ifdef __SANITIZE_ADDRESS__
        __sanitizer_set_report_fd(reinterpret_cast<void*>(intptr_t{saved_[1]}));
#endif
    }
    ~Capture()
    {
        (void)fflush(stdout);
        for (int i = 0; i < 2; ++i) {
            dup2(saved_[i], i + 1);
            ::close(saved_[i]);
        }
        current = nullptr;
#ifdef __SANITIZE_ADDRESS__
        __sanitizer_set_report_fd(reinterpret_cast<void*>(intptr_t{2}));
#endif
    }
    Capture(const Capture&) = delete;
    Capture& operator=(const Capture&) = delete;

    // What was written to stream 0 (standard output) or 1 (standard error) since the last time.
    std::string take(int stream)
    {
        (void)fflush(stdout);
        std::string text;
        char piece[4096];
        for (ssize_t n = 0; (n = pread(file_[stream], piece, sizeof piece, taken_[stream])) > 0;) {
            text.append(piece, static_cast<size_t>(n));
            taken_[stream] += n;
        }
        return text;
    }

    static inline Capture* current = nullptr;

private:
    int file_[2] = {}, saved_[2] = {};
    off_t taken_[2] = {};
};

// A file that stayed open takes the lowest free descriptor.
static int lowest_free_descriptor()
{
    const int probe = dup(memory_files[0]);
    ::close(probe);
    return probe;
}

// ---- the trace ----

template <class T> static std::string list_text(const T* values, int64_t count)
{
    std::string text;
    for (int64_t i = 0; i < count; ++i) text.append(" ").append(std::to_string(values[i]));
    return text;
}

// The shortest decimal that gives this very bit pattern back; the pattern itself for others.
static std::string real_text(float value)
{
    const auto bits = std::bit_cast<uint32_t>(value);
    if (bits == UNTOUCHED * 0x01010101U) return "untouched";
    char text[32];
    if (std::isnan(value)) {
        (void)snprintf(text, sizeof text, "nan:%08X", bits);
        return text;
    }
    return {text, std::to_chars(text, text + sizeof text, value).ptr};
}

static std::string reals_text(const float* values, int64_t row, int64_t length)
{
    std::string text;
    for (int64_t i = 0; i < length; ++i) {
        text.append(" ").append(real_text(values[row * length + i]));
    }
    return text;
}

// Splits the library's output into lines; text that does not end in a newline is marked.
void TestHost::log_output()
{
    for (int stream = 0; Capture::current && stream < 2; ++stream) {
        std::string text = Capture::current->take(stream);
        for (size_t at = 0;
             !hidden_prefix.empty() && (at = text.find(hidden_prefix)) < text.size();) {
            text.erase(at, hidden_prefix.size());
        }
        while (!text.empty()) {
            const size_t length = text.find('\n');
            const bool ended = length != std::string::npos;
            log((stream == 0 ? "out " : "err ") + text.substr(0, length) +
                (ended ? "" : " (no newline)"));
            text.erase(0, ended ? length + 1 : std::string::npos);
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
    static constexpr const char* names[] = {"tet", "pyramid", "prism", "hex"};
    const auto row = static_cast<size_t>(shape);
    log_output();
    for (int face = 0; face < fld_host::shape_faces[row]; ++face) {
        EXPECT_TRUE(face_flags[face] == 0 || face_flags[face] == fld_host::WALL_FACE);
    }
    if (refuses_this_create()) return 0;
    log(names[row] + list_text(face_flags, fld_host::shape_faces[row]) + " |" +
        list_text(nodes, fld_host::shape_nodes[row]));
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
    log("face " + std::to_string(boundary_type) + " |" + list_text(nodes, vertex_count));
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
    error_flag_ = -1;
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
    for (int row = 0; row < 3; ++row) {
        log(std::string(1, "xyz"[row]) + reals_text(coordinates.data(), row, node_count));
    }
    for (int row = 0; row < variable_count_; ++row) {
        log("value" + reals_text(values.data(), row, node_count));
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
