// The two exports, the handing over of services and the registration of the readers.
#include "datasets.h"

#include <gtest/gtest.h>

namespace fld_test
{

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
