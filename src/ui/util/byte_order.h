// The byte order of values: loops over many of them, in the form that suits the processor best.
#pragma once

#include <bit>
#include <cstdint>

static_assert(std::endian::native == std::endian::little, "only big-endian files are reversed");

[[nodiscard]] inline uint32_t reversed(uint32_t word)
{
    const uint32_t halves = word << 16 | word >> 16;
    return (halves & 0x00FF00FFU) << 8 | (halves >> 8 & 0x00FF00FFU);
}

[[nodiscard]] inline uint64_t reversed(uint64_t word)
{
    return static_cast<uint64_t>(reversed(static_cast<uint32_t>(word))) << 32 |
           reversed(static_cast<uint32_t>(word >> 32));
}

// Reverses the bytes of elements of 4 or 8 bytes in place; those of another size stay as they are.
void reverse_bytes(void* data, int64_t element_size, int64_t count);

// Whether one of `count` values of 4 bytes has these bits.
[[nodiscard]] bool holds_value(const void* data, int64_t count, uint32_t bits);
