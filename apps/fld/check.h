// "fld check": whether files are whole, and where they are not.
#pragma once

#include "dataset.h"

#include <cstdio>
#include <string>
#include <vector>

namespace fld_host
{

// Reports on the files on `out`, as text or as a JSON array with one object per file. A file is
// whole when its records lead to its end and the reader reads all its grids; results without their
// grid file are whole too. False when a file is not.
bool run_check(const std::shared_ptr<Reader>& reader, const std::vector<std::string>& files,
               bool json, FILE* out);

} // namespace fld_host
