// "fld info": what a file holds.
#pragma once

#include "dataset.h"

#include <cstdio>
#include <string>
#include <vector>

namespace fld_host
{

// Describes the files on `out`, as text or as a JSON array with one object per file. A file or grid
// that cannot be read is reported on standard error, and the next one is taken. False when there
// was one.
bool run_info(const std::shared_ptr<Reader>& reader, const std::string& reader_name,
              const std::vector<std::string>& files, bool json, FILE* out);

} // namespace fld_host
