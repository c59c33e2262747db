// "fld series": the files of a time series.
#pragma once

#include "dataset.h"

#include <cstdio>
#include <string>

namespace fld_host
{

// Lists the series of `file` on `out`: numbers, times and which files hold a grid. False when there
// is no series to list; a file of the series that cannot be read is listed as such.
bool run_series(const std::shared_ptr<Reader>& reader, const std::string& file, bool json,
                FILE* out);

} // namespace fld_host
