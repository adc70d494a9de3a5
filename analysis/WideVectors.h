#pragma once

// Hot loops compiled a second time for AVX2 (four doubles per instruction), chosen at run time
// where the processor has it. Neither version fuses a product into a sum, so both give the same
// numbers. On other processors the one plain version serves.

#if defined(__x86_64__) || defined(__i386__)
#define QUORVAL_WIDE __attribute__((target("avx2")))
#else
#define QUORVAL_WIDE
#endif

// Bodies compiled into each version's own function rather than called from it.
#define QUORVAL_INLINE inline __attribute__((always_inline))

namespace quorval {

// Whether this processor runs the AVX2 versions. Any thread.
inline bool wideVectorsAvailable()
{
#if defined(__x86_64__) || defined(__i386__)
    static const bool available = __builtin_cpu_supports("avx2") != 0;
    return available;
#else
    return false;
#endif
}

} // namespace quorval
