#include "ui/util/byte_order.h"

#include <cstring>

// ---- the loops ----

template <class Word> [[gnu::always_inline]] inline void reverse_elements(void* data, int64_t count)
{
    auto* bytes = static_cast<unsigned char*>(data);
    for (int64_t i = 0; i < count; ++i, bytes += sizeof(Word)) {
        Word word;
        memcpy(&word, bytes, sizeof word);
        word = reversed(word);
        memcpy(bytes, &word, sizeof word);
    }
}

[[gnu::always_inline]] inline bool search(const void* data, int64_t count, uint32_t bits)
{
    const auto* bytes = static_cast<const unsigned char*>(data);
    uint32_t equal = 0;
    for (int64_t i = 0; i < count; ++i, bytes += sizeof bits) {
        uint32_t word;
        memcpy(&word, bytes, sizeof word);
        equal |= word == bits ? 1U : 0U;
    }
    return equal != 0;
}

// ---- for several generations of processors ----

struct Loops {
    void (*reverse_4_bytes)(void* data, int64_t count);
    void (*reverse_8_bytes)(void* data, int64_t count);
    bool (*holds_value)(const void* data, int64_t count, uint32_t bits);
};

// The loops once more, as `attribute` lets the compiler build them.
// NOLINTBEGIN(bugprone-macro-parentheses): an attribute takes none.
#define LOOPS_FOR(name, attribute)                                                                 \
    attribute static void reverse_4_bytes_##name(void* data, int64_t count)                        \
    {                                                                                              \
        reverse_elements<uint32_t>(data, count);                                                   \
    }                                                                                              \
    attribute static void reverse_8_bytes_##name(void* data, int64_t count)                        \
    {                                                                                              \
        reverse_elements<uint64_t>(data, count);                                                   \
    }                                                                                              \
    attribute static bool holds_value_##name(const void* data, int64_t count, uint32_t bits)       \
    {                                                                                              \
        return search(data, count, bits);                                                          \
    }                                                                                              \
    static constexpr Loops loops_##name = {reverse_4_bytes_##name, reverse_8_bytes_##name,         \
                                           holds_value_##name};

// NOLINTEND(bugprone-macro-parentheses)
LOOPS_FOR(any, )

// For speed only: recent processors reverse bytes about five times as fast so. Chosen when the
// library is loaded.
#if defined(__x86_64__) && defined(__GNUC__)
LOOPS_FOR(ssse3, [[gnu::target("ssse3")]])
LOOPS_FOR(avx2, [[gnu::target("avx2")]])

static const Loops& loops_of_processor()
{
    __builtin_cpu_init();
    if (__builtin_cpu_supports("avx2")) return loops_avx2;
    return __builtin_cpu_supports("ssse3") ? loops_ssse3 : loops_any;
}
#else
static const Loops& loops_of_processor()
{
    return loops_any;
}
#endif

static const Loops& loops = loops_of_processor();

void reverse_bytes(void* data, int64_t element_size, int64_t count)
{
    if (element_size == 4) loops.reverse_4_bytes(data, count);
    if (element_size == 8) loops.reverse_8_bytes(data, count);
}

bool holds_value(const void* data, int64_t count, uint32_t bits)
{
    return loops.holds_value(data, count, bits);
}
