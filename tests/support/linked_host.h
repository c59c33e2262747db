// The host library with the reader that is linked in, as a host: what its datasets deliver, as the
// lines that a TestHost writes of the same.
#pragma once

#include "dataset.h"

#include <functional>
#include <string>
#include <vector>

namespace fld_test
{

// Writes down cells and faces in the order of their creation; in blocks, cells and faces apart.
class Recorder : public fld_host::GridSink
{
public:
    explicit Recorder(bool by_function);
    const fld_host::DirectSink* direct() override { return by_function_ ? &direct_ : nullptr; }
    void take_cells(const fld_host::CellBlock& block) override;
    void take_faces(const fld_host::FaceBlock& block) override;
    bool go_on(int64_t done, int64_t all) override { return done <= all && going_on(); }

    std::string lines;
    std::function<bool()> going_on = [] { return true; };

private:
    fld_host::DirectSink direct_;
    bool by_function_;
};

struct LinkedVisit {
    std::string trace;    // without output and options
    std::string messages; // of the reader
    std::vector<fld_host::Error> errors;
};

// Opens, peeks at and reads, or stops after a failed open. `meanwhile` happens before the grids are
// read.
LinkedVisit visit_linked(const std::string& path, const std::function<void()>& meanwhile = {});

} // namespace fld_test
