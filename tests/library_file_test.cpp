// The library as a file: what it exports and needs, how it is hardened, and a host that has no C++.
#include "datasets.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <set>

namespace fld_test
{

static std::vector<std::string> lines_of(const std::string& command)
{
    std::vector<std::string> lines;
    FILE* pipe = popen(command.c_str(), "r");
    char line[512];
    while (pipe && fgets(line, sizeof line, pipe)) {
        lines.emplace_back(line, strcspn(line, "\n"));
    }
    EXPECT_TRUE(pipe && pclose(pipe) == 0) << command;
    return lines;
}

TEST(LibraryFile, exports_two_functions)
{
    std::vector<std::string> names;
    for (const std::string& line : lines_of(FLD_NM " -D --defined-only " FLD_READER_PATH)) {
        names.push_back(line.substr(line.rfind(' ') + 1));
    }
    std::ranges::sort(names);
    EXPECT_EQ(names, (std::vector<std::string>{"reader_get_func", "reader_set_func"}));
}

// The release build loads wherever there is a C library of 2018 or later.
TEST(LibraryFile, needs_nothing_but_the_system)
{
    std::set<std::string> allowed = {"libc", "libm", "ld-linux-x86-64"};
    std::pair newest{2, 28};
#ifndef FLD_RELEASE
    allowed.insert({"libgcc_s", "libstdc++", "libasan", "libubsan"});
    newest = {INT_MAX, 0};
#endif
    int needed = 0;
    for (const std::string& line : lines_of(FLD_OBJDUMP " -p " FLD_READER_PATH)) {
        const std::string name = line.substr(line.rfind(' ') + 1);
        std::pair version{0, 0};
        (void)sscanf(name.c_str(), "GLIBC_%d.%d", &version.first, &version.second);
        EXPECT_LE(version, newest) << line;
        if (line.find("NEEDED") == std::string::npos) continue;
        EXPECT_TRUE(allowed.contains(name.substr(0, name.find('.')))) << name;
        ++needed;
    }
    EXPECT_GE(needed, 1);
}

#ifdef FLD_RELEASE
// Addresses bound when it is loaded and read-only from then on, no code where data is written, and
// checks of the stack and of calls that fill arrays.
TEST(LibraryFile, is_hardened_as_the_program_is)
{
    for (const std::string file : {FLD_READER_PATH, FLD_PROGRAM_PATH}) {
        std::string text;
        for (const std::string& line : lines_of(FLD_OBJDUMP " -p -T " + file)) text += line + "\n";
        for (const char* trait : {" RELRO off ", " FLAGS +0x0*8\n", " STACK off ",
                                  " __stack_chk_fail\n", " __[a-z]+_chk\n"}) {
            const testing::Matcher<std::string> has_trait = testing::ContainsRegex(trait);
            EXPECT_TRUE(has_trait.Matches(text)) << file << trait;
        }
        EXPECT_EQ(text.find(" flags rwx\n"), std::string::npos) << file;
    }
#ifdef __x86_64__
    // Jumps through pointers may lead to functions that begin with this instruction (endbr64).
    void* const library = dlopen(FLD_READER_PATH, RTLD_NOW);
    EXPECT_EQ(memcmp(dlsym(library, "reader_get_func"), "\xF3\x0F\x1E\xFA", 4), 0);
    dlclose(library);
#endif
}
#endif

#ifdef FLD_C_HOST_PATH
// It has no C++ library. Every allocation that is refused to the library leads to one line.
TEST(LibraryFile, serves_a_host_in_c_that_runs_out_of_memory)
{
    const TemporaryDirectory directory;
    std::string command = FLD_C_HOST_PATH " " FLD_READER_PATH " ";
    command +=
        directory.write("a.fld", build(added(tetrahedron_file(), surface_array({{"inlet", {}}}))));
    for (const char* name : fld_host::service_names()) command.append(" ").append(name);
    const std::vector<std::string> lines = lines_of(command);
    ASSERT_GT(lines.size(), 30U);
    EXPECT_EQ(lines.back(), std::to_string(lines.size() - 1) + " refused, 1 cell, 2 faces");
}
#endif

} // namespace fld_test
