// What is Windows' own: how paths are written and how long they get, devices, files that other
// programs have open, and names in another case.
#include "datasets.h"
#include "test_system.h"
#include "ui/util/utf8wrap.h"

#include <gtest/gtest.h>
#include <set>
#include <windows.h>

namespace fld_test
{

static const FldFile results{{{coordinate_system(0), scalar("T", "", {1, 2, 3, 4})}}};

static std::wstring wide(const std::string& text)
{
    return system_path(text).wstring();
}

// Longer paths than the usual calls take are written from the drive on, with this before them.
static std::wstring whole(const std::string& path)
{
    return L"\\\\?\\" + system_path(path).make_preferred().wstring();
}

class WindowsFiles : public testing::Test
{
protected:
    WindowsFiles()
    {
        host.start();
        std::filesystem::current_path(directory.path(""));
    }
    ~WindowsFiles() override { std::filesystem::current_path(before); }

    // Moves a new file to any path.
    void write(const std::string& path, const FldFile& file) const
    {
        const std::string made = directory.write("new", build(file));
        ASSERT_TRUE(MoveFileExW(whole(made).c_str(), whole(path).c_str(), 0)) << path;
    }
    std::string opened(const std::string& path)
    {
        host.open(path);
        return pick(host.take_trace(), {"out", "err", "flag", "boundary"});
    }

    const std::filesystem::path before = std::filesystem::current_path();
    TestHost host;
    TemporaryDirectory directory;
    const std::string good = "flag 0\nboundary wall\nboundary inlet\n";
};

// Results are paired under every spelling, so that listings take it too.
TEST_F(WindowsFiles, are_found_however_their_paths_are_written)
{
    const std::string folder = "Str\xC3\xB6mung \xE6\xB5\x81\xE3\x82\x8C";
    ASSERT_TRUE(CreateDirectoryW(whole(directory.path(folder)).c_str(), nullptr));
    write(directory.path(folder + "/\xD0\xBF_0001.fld"), tetrahedron_file());
    write(directory.path(folder + "/\xD0\xBF_0003.fld"), results);
    write(directory.path("a1.fld"), tetrahedron_file());
    write(directory.path("a2.fld"), results);
    const std::string drive = directory.path("").substr(0, 2);
    std::string slashes = directory.path("a2.fld");
    std::replace(slashes.begin(), slashes.end(), '\\', '/');
    for (const std::string& path : std::vector<std::string>{
             folder + "\\\xD0\xBF_0003.fld", folder + "/\xD0\xBF_0003.fld",
             directory.path(folder + "\\\xD0\xBF_0003.fld"), "a2.fld", drive + "a2.fld", "./a2.fld",
             ".\\a2.fld", slashes, "\\\\?\\" + directory.path("a2.fld"), folder + "\\..\\a2.fld"}) {
        EXPECT_EQ(opened(path), good) << path;
    }
    EXPECT_EQ(opened("a3.fld"), "out Cannot open file: a3.fld\nflag 1\n");
    EXPECT_EQ(opened("a\xFF.fld"), "out Cannot open file: a\xFF.fld\nflag 1\n"); // no UTF-8
}

// The name may have 255 bytes, wherever the current directory is; 256 are refused.
TEST_F(WindowsFiles, may_lie_deep)
{
    std::string folder = directory.path("");
    while (folder.size() < 200) {
        folder += std::string(20, 'd') + "\\";
        ASSERT_TRUE(CreateDirectoryW(whole(folder).c_str(), nullptr));
    }
    ASSERT_TRUE(SetCurrentDirectoryW(wide(folder).c_str()));
    // An expression holds 255 characters, 18 of them beside the prefix.
    const std::string prefix(230, 'p'), name = ".\\" + std::string(253, 'n');
    for (const char* one : {"1.fld", "2.fld"}) {
        write(folder + prefix + one, *one == '1' ? tetrahedron_file() : results);
    }
    write(folder + name.substr(2), tetrahedron_file());
    EXPECT_EQ(opened(prefix + "2.fld"), good);
    EXPECT_EQ(opened(name), good);
    EXPECT_EQ(opened(name + "n"), "out Cannot open file: " + name + "n\nflag 1\n");
    SetCurrentDirectoryW(wide(directory.path("")).c_str());
    std::filesystem::remove_all("\\\\?\\" + directory.path(std::string(20, 'd')));
}

TEST_F(WindowsFiles, are_no_devices_or_directories)
{
    for (const char* name : {"NUL", "nul", "COM1", "CON", ".", "\\\\.\\NUL"}) {
        utf8wrap::FileStatus status{};
        status.is_regular = true;
        EXPECT_EQ(opened(name), std::string("out Cannot open file: ") + name + "\nflag 1\n");
        EXPECT_EQ(utf8wrap::_stat64(name, &status), 0) << name;
        EXPECT_FALSE(status.is_regular) << name;
        EXPECT_EQ(status.is_directory, std::string(name) == ".") << name;
    }
}

// Another program's handle on the file.
static HANDLE open_beside(const std::string& path, DWORD access, DWORD shared)
{
    return CreateFileW(wide(path).c_str(), access, shared, nullptr, OPEN_EXISTING, 0, nullptr);
}

TEST_F(WindowsFiles, are_shared_with_whoever_writes_them)
{
    const std::string path = directory.write("a.fld", build(tetrahedron_file()));
    constexpr DWORD ALL = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    HANDLE writer = open_beside(path, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ);
    EXPECT_EQ(opened(path), good);
    (void)CloseHandle(writer);
    // While it is read, it can be opened for writing, and renamed.
    int times = 0;
    host.on_create = [&] {
        if (times++ > 0) return;
        writer = open_beside(path, GENERIC_WRITE, ALL);
        EXPECT_NE(writer, INVALID_HANDLE_VALUE);
        (void)CloseHandle(writer);
        EXPECT_TRUE(MoveFileW(wide(path).c_str(), wide(path + "x").c_str()));
    };
    EXPECT_EQ(opened(path), good);
    host.read(1);
    EXPECT_EQ(pick(host.take_trace(), {"flag"}), "flag 0\n");
    EXPECT_GT(times, 0);
    // Whoever shares it with nobody is told of.
    writer = open_beside(path + "x", GENERIC_READ, 0);
    EXPECT_EQ(opened(path + "x"), "out Cannot open file: " + path + "x\nflag 1\n");
    errno = 0;
    EXPECT_EQ(utf8wrap::fopen((path + "x").c_str(), "rb"), nullptr);
    EXPECT_EQ(errno, EBUSY);
    (void)CloseHandle(writer);
}

// A file is found in any case, a series as its names are written.
TEST_F(WindowsFiles, have_names_with_a_case)
{
    (void)directory.write("run_0001.fld", build(tetrahedron_file()));
    (void)directory.write("run_0002.fld", build(results));
    EXPECT_EQ(opened("run_0002.fld"), good);
    EXPECT_EQ(opened("run_0002.FLD"), "out Data reader error: unable to find grid file for "
                                      "results file: run_0002.FLD\nflag 1\n");
    EXPECT_EQ(opened("RUN_0001.FLD"), good);
    utf8wrap::FileStatus status{}, other{};
    EXPECT_EQ(utf8wrap::_stat64("run_0001.fld", &status), 0);
    EXPECT_EQ(utf8wrap::_stat64("RUN_0001.fld", &other), 0);
    EXPECT_EQ(status, other);
    EXPECT_FALSE(status.tells_changes);
    EXPECT_EQ(utf8wrap::_stat64("run_0002.fld", &other), 0);
    EXPECT_NE(status.file_number, other.file_number);
}

// Times count from 1601, in 100 nanoseconds; 1970 began 11,644,473,600 seconds later.
TEST_F(WindowsFiles, have_times_and_lengths)
{
    const std::string path = directory.write("a", "12345");
    const HANDLE file = open_beside(path, GENERIC_READ | GENERIC_WRITE, 0);
    const uint64_t time = 116444736000000000 - 19999999; // 1.9999999 seconds before 1970
    const FILETIME written{static_cast<DWORD>(time), static_cast<DWORD>(time >> 32)};
    EXPECT_TRUE(SetFileTime(file, nullptr, nullptr, &written));
    // Beyond 4 GiB, without what lies between where that need not be there.
    DWORD got = 0;
    (void)DeviceIoControl(file, FSCTL_SET_SPARSE, nullptr, 0, nullptr, 0, &got, nullptr);
    LARGE_INTEGER end{};
    end.QuadPart = 5'000'000'000;
    EXPECT_TRUE(SetFilePointerEx(file, end, nullptr, FILE_BEGIN));
    EXPECT_TRUE(WriteFile(file, "end", 3, &got, nullptr));
    EXPECT_TRUE(SetFileTime(file, nullptr, nullptr, &written));
    (void)CloseHandle(file);
    utf8wrap::FileStatus status{};
    EXPECT_EQ(utf8wrap::_stat64(path.c_str(), &status), 0);
    EXPECT_EQ(status.modified, -1'999'999'900);
    EXPECT_EQ(status.size, 5'000'000'003);
    EXPECT_LT(status.changed, utf8wrap::time_now() + 2'000'000'000);
    FILE* const stream = utf8wrap::fopen(path.c_str(), "rb");
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(utf8wrap::file_length(stream), 5'000'000'003);
    char bytes[8] = {};
    bool failed = true;
    EXPECT_EQ(utf8wrap::read_at(stream, 5'000'000'000, 8, bytes, &failed), 3);
    EXPECT_FALSE(failed);
    EXPECT_STREQ(bytes, "end");
    EXPECT_EQ(utf8wrap::read_at(stream, 5'000'000'003, 8, bytes, &failed), 0);
    EXPECT_FALSE(failed);
    EXPECT_EQ(utf8wrap::read_at(stream, 1, 4, bytes, &failed), 4);
    EXPECT_EQ(std::string(bytes, 4), "2345");
    (void)fclose(stream);
}

// A host in C that is linked to nothing of ours, and has its messages from a pipe.
TEST_F(WindowsFiles, serve_a_host_that_loads_the_library_a_thousand_times)
{
    std::string command = FLD_WINDOWS_HOST_PATH " " FLD_READER_PATH " ";
    command += directory.write("a.fld", build(tetrahedron_file()));
    for (const char* name : fld_host::service_names()) command.append(" ").append(name);
    std::replace(command.begin(), command.end(), '/', '\\');
    FILE* const pipe = _popen(command.c_str(), "rb");
    ASSERT_NE(pipe, nullptr);
    std::string text;
    for (int c = 0; (c = fgetc(pipe)) != EOF;) text += static_cast<char>(c);
    EXPECT_EQ(_pclose(pipe), 0);
    EXPECT_EQ(text, "before\nCannot open file: no_such_file.fld\nafter\n");
}

// A message of any length goes past the C library, each line end as it is.
TEST_F(WindowsFiles, lead_to_messages_as_they_are)
{
    host.open("");
    EXPECT_EQ(pick(host.take_trace(), {"out", "flag"}), "out Cannot open file: \nflag 1\n");
    const std::string name(5000, 'n');
    EXPECT_EQ(opened(name), "out Cannot open file: " + name + "\nflag 1\n");
}

} // namespace fld_test
