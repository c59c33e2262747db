// The header that every FLD file begins with.
#pragma once

#include <cstdint>

constexpr int32_t BIAS_MISSING = -54321;

// Reads the header of a unit that was just opened: magic, version, keyword groups. On success the
// stream stands before the data sections. `bias` ("Bias") is BIAS_MISSING without that keyword, the
// unused-value markers ("Unused") are then +infinity, and `time` ("Cycle") is left as it was.
// Prints on a wrong magic, version or dimension; other failures are silent.
[[nodiscard]] bool read_fld_header(int32_t unit, int32_t* bias, float* time, float* unused_float,
                                   double* unused_double);
