// The two exports, the handing over of services and the registration of the readers.
#include "datasets.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <set>

namespace fld_test
{

// ---- the library file ----

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

// ---- services ----

static int unused_service()
{
    return 0;
}

static int set_service(const fld_host::ReaderLibrary& library, const std::string& name)
{
    return library.set_func(reinterpret_cast<void*>(&unused_service), name.c_str());
}

TEST(Services, are_taken_under_their_exact_names)
{
    TestHost host;
    std::vector<std::string> names(fld_host::service_names().begin(),
                                   fld_host::service_names().end());
    EXPECT_EQ(names.size(), 86U);
    for (const std::string& name : names) {
        std::string other_case = name;
        other_case.back() = static_cast<char>(other_case.back() ^ 0x20);
        EXPECT_EQ(set_service(host.library(), name), 1) << name;
        for (const std::string& wrong : {name + " ", " " + name, other_case, name + "x"}) {
            EXPECT_EQ(set_service(host.library(), wrong), 0) << wrong;
        }
    }
    EXPECT_EQ(set_service(host.library(), ""), 0);
    EXPECT_EQ(host.take_trace(), "");
}

TEST(Services, are_all_needed)
{
    void* const untouched = reinterpret_cast<void*>(&unused_service);
    for (const char* missing : fld_host::service_names()) {
        TestHost host;
        void* slot = untouched;
        const auto expect_none = [&](const char* name) {
            host.call([&] { EXPECT_EQ(host.library().get_func(&slot, name), 0); });
        };
        EXPECT_EQ(host.library().hand_over_services(missing), 85);
        expect_none("zn_close_unit");
        EXPECT_EQ(host.take_trace(), "out version mismatch detected: plugin disabled\n") << missing;
        EXPECT_EQ(set_service(host.library(), missing), 1);
        expect_none("register_data_readers");
        expect_none("no_such_function");
        EXPECT_EQ(host.take_trace(), "") << missing;
        EXPECT_EQ(slot, untouched);
    }
}

// ---- functions of the library ----

TEST(Functions, are_found_by_their_exact_names)
{
    TestHost host;
    host.library().hand_over_services();
    for (const char* wrong :
         {"register_data_reader", "Register_data_readers", "zn_close_unit ", ""}) {
        void* slot = &slot;
        host.call([&] { EXPECT_EQ(host.library().get_func(&slot, wrong), 0); });
        EXPECT_EQ(slot, nullptr);
        EXPECT_EQ(host.take_trace(),
                  std::string("out Reader_get_func did not find ") + wrong + "\n");
    }
    const auto find = [&](const char* name) {
        void* slot = nullptr;
        EXPECT_EQ(host.library().get_func(&slot, name), 1) << name;
        return slot;
    };
    void* const empty = find("register_functions");
    EXPECT_EQ(find("ftn_register_functions"), empty);
    EXPECT_EQ(find("ftn_register_data_readers"), empty);
    EXPECT_NE(find("register_data_readers"), empty);
    EXPECT_NE(find("zn_close_unit"), empty);
    host.call(reinterpret_cast<void (*)()>(empty));
    EXPECT_EQ(host.take_trace(), "");
    EXPECT_TRUE(host.library().registrations().readers.empty());
}

TEST(Functions, closing_a_unit_leaves_the_readers_files_open)
{
    TestHost host;
    host.start();
    void* slot = nullptr;
    ASSERT_EQ(host.library().get_func(&slot, "zn_close_unit"), 1);
    host.on_create = [&] {
        for (const int32_t unit : {-1, 0, 4, 7}) reinterpret_cast<void (*)(int32_t)>(slot)(unit);
    };
    EXPECT_EQ(run(host, datasets()[0]), datasets()[0].trace);
}

// ---- registration ----

struct Registration {
    std::string name;
    int first, second;
    void *header, *data, *others[4];
    bool operator==(const Registration&) const = default;
};
static std::vector<Registration> registrations;

static int record_registration(const char* name, int first, int second, void* header, void* data,
                               void* a, void* b, void* c, void* d)
{
    registrations.push_back({name, first, second, header, data, {a, b, c, d}});
    return 0;
}

TEST(Registration, hands_over_both_readers_with_the_same_callbacks)
{
    registrations.clear();
    TestHost host;
    host.library().hand_over_services();
    // The entry point set last counts; the Fortran variant of the service is another one.
    void* const mine = reinterpret_cast<void*>(&record_registration);
    ASSERT_EQ(host.library().set_func(mine, "zn_register_data_reader"), 1);
    ASSERT_EQ(set_service(host.library(), "ftn_zn_register_data_reader"), 1);
    void* slot = nullptr;
    ASSERT_EQ(host.library().get_func(&slot, "register_data_readers"), 1);
    host.call(reinterpret_cast<void (*)()>(slot));
    ASSERT_EQ(registrations.size(), 2U);
    void *const header = registrations[0].header, *const data = registrations[0].data;
    EXPECT_TRUE(header && data);
    EXPECT_EQ(registrations[0], (Registration{"scSTREAM [Direct Reader]", 2, 0, header, data, {}}));
    EXPECT_EQ(registrations[1], (Registration{"SC/Tetra [Direct Reader]", 2, 0, header, data, {}}));
}

TEST(Registration, of_one_reader_may_be_refused)
{
    for (const char* refused : {"scSTREAM [Direct Reader]", "SC/Tetra [Direct Reader]"}) {
        TestHost host;
        host.controls.refuse_reader = refused;
        host.start();
        EXPECT_EQ(host.take_trace(), std::string("out Error registering: ") + refused + "\n");
        ASSERT_EQ(host.library().registrations().readers.size(), 1U);
        EXPECT_NE(host.library().registrations().readers[0].name, refused);
        EXPECT_EQ(run(host, datasets()[0]), datasets()[0].trace);
    }
}

} // namespace fld_test
