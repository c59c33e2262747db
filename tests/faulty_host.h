// Hosts of the library whose calls of the system can be made to fail.
#pragma once

#include "datasets.h"
#include "faults.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

namespace fld_test
{

// A loaded module with the wrappers.
class FaultyModule
{
public:
    explicit FaultyModule(const char* path) : handle_(dlopen(path, RTLD_NOW | RTLD_LOCAL))
    {
        faults_ = reinterpret_cast<FaultsFunction*>(find("fld_faults"))();
    }
    ~FaultyModule() { dlclose(handle_); }
    FaultyModule(const FaultyModule&) = delete;
    FaultyModule& operator=(const FaultyModule&) = delete;

    [[nodiscard]] void* find(const char* symbol) const { return dlsym(handle_, symbol); }

    // Begins to count and to fail; what is held then has been leaked.
    void plan(const FaultPlan& faults)
    {
        EXPECT_EQ(faults_->blocks, 0) << "memory is held";
        EXPECT_EQ(faults_->handles, 0) << "files, listings or expressions are held";
        *faults_ = {.plan = faults, .seconds_later = seconds_later};
    }

    // Ends it; what was counted.
    Faults end()
    {
        const Faults counted = *faults_;
        plan({});
        return counted;
    }

    int64_t seconds_later = 0; // that the library's clock shows

private:
    void* handle_;
    Faults* faults_;
};

class FaultyHost : public TestHost
{
public:
    FaultyHost() : TestHost(FLD_FAULTY_READER_PATH), module(FLD_FAULTY_READER_PATH)
    {
        hidden_prefix = directory.path("");
        start();
    }

    std::string visit(const std::string& path, const FaultPlan& faults = {})
    {
        module.plan(faults);
        std::string trace = TestHost::visit(path);
        counted_ = module.end();
        return trace;
    }

    const TemporaryDirectory directory; // for the files that are visited
    FaultyModule module;

    [[nodiscard]] const Faults& counted() const { return counted_; } // by the last visit

private:
    Faults counted_;
};

} // namespace fld_test
