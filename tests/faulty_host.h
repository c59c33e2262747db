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
        start();
    }

    // Begins to count and to fail; what is held then has been leaked.
    void plan(const FaultPlan& faults)
    {
        EXPECT_EQ(faults_->blocks, 0) << "memory is held";
        EXPECT_EQ(faults_->handles, 0) << "files, listings or expressions are held";
        *faults_ = {};
        faults_->plan = faults;
    }

    // Opens, peeks at, reads and closes a file under a plan.
    std::string visit(const std::string& path, const FaultPlan& faults = {})
    {
        plan(faults);
        open(path);
        if (error_flag() == 0) {
            peek(path);
            for (int32_t grid = 1; grid <= grid_count(); ++grid) read(grid);
            close();
        }
        counted_ = *faults_;
        plan({});
        return take_trace();
    }

    [[nodiscard]] const Faults& counted() const { return counted_; } // by the last visit

private:
    Faults* faults_;
    Faults counted_;
};

// Writes a dataset's files; the path of the one to be opened.
inline std::string write_files(const TemporaryDirectory& directory, const Dataset& dataset)
{
    std::string path;
    for (const NamedFile& file : dataset.files) {
        path = directory.write(file.name, build(file.file, dataset.format));
    }
    return path;
}

} // namespace fld_test
