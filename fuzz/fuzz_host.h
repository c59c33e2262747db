// A host that opens a dataset, reads every grid and closes it, and checks all that it is given.
#pragma once

#include <functional>
#include <string>

namespace fld_fuzz
{

// The choices, but for the fourth, say what the host does wrong; see the source. `before_reading`
// is called between the header callback and the first data callback.
void run_dataset(
    const std::string& path, const std::string& choices,
    const std::function<void()>& before_reading = [] {});

} // namespace fld_fuzz
