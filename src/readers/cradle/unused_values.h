// The marks of undefined values: stored reals that the file's header names.
#pragma once

#include <bit>
#include <cstdint>
#include <limits>
#include <type_traits>

// Replaces every value that is, bit for bit, the mark of an undefined one by +infinity. A mark of 0
// marks nothing.
template <class Real> void map_unused(Real* values, int32_t count, Real unused)
{
    using Bits = std::conditional_t<sizeof(Real) == 4, uint32_t, uint64_t>;
    if (unused == 0) return;
    const Bits mark = std::bit_cast<Bits>(unused);
    for (int32_t i = 0; i < count; ++i) {
        if (std::bit_cast<Bits>(values[i]) == mark) {
            values[i] = std::numeric_limits<Real>::infinity();
        }
    }
}
