// A strict host of the library whose calls can be made to fail.
#pragma once

#include "datasets.h"
#include "faults.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

namespace fld_test
{

class FaultyHost : public TestHost
{
public:
    FaultyHost() : TestHost(FLD_FAULTY_READER_PATH)
    {
        void* const module = dlopen(FLD_FAULTY_READER_PATH, RTLD_NOW | RTLD_NOLOAD);
        faults_ = reinterpret_cast<FaultsFunction*>(dlsym(module, "fld_faults"))();
        dlclose(module);
        hidden_prefix = directory.path("");
        start();
    }

    // Begins to count and to fail; what is held then has been leaked.
    void plan(const FaultPlan& faults)
    {
        EXPECT_EQ(faults_->blocks, 0) << "memory is held";
        EXPECT_EQ(faults_->handles, 0) << "files, listings or expressions are held";
        *faults_ = {.plan = faults, .seconds_later = seconds_later};
    }

    std::string visit(const std::string& path, const FaultPlan& faults = {})
    {
        plan(faults);
        std::string trace = TestHost::visit(path);
        counted_ = *faults_;
        plan({});
        return trace;
    }

    const TemporaryDirectory directory; // for the files that are visited
    int64_t seconds_later = 0;          // that the library's clock shows

    [[nodiscard]] const Faults& counted() const { return counted_; } // by the last visit

private:
    Faults* faults_;
    Faults counted_;
};

} // namespace fld_test
