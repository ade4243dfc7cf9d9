// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <cstring>

#if defined(__x86_64__)
#include <smmintrin.h>
#elif defined(__aarch64__)
#include <arm_neon.h>
#endif

/**
 * Vectors of 16 bytes, and what the compiler's own vectors can't express: those of bytes in
 * functions that are BYTE_VECTORS, which may be called only where hasByteVectors() is true, because
 * SSE 4.1 isn't part of the amd64 that is built for. The low bytes come first on both processors.
 */
#if defined(__x86_64__)
#define BYTE_VECTORS __attribute__((target("sse4.1")))
#else
#define BYTE_VECTORS
#endif

namespace portable {

using Bytes = uint8_t __attribute__((vector_size(16)));
using Words = int16_t __attribute__((vector_size(16)));
using UnsignedWords = uint16_t __attribute__((vector_size(16)));
using Numbers = int32_t __attribute__((vector_size(16)));
using LongNumbers = uint64_t __attribute__((vector_size(16)));
using Floats = float __attribute__((vector_size(16)));

inline Floats floatsAt(const float *from)
{
    Floats floats;
    std::memcpy(&floats, from, sizeof floats);
    return floats;
}

inline void store(float *to, Floats floats)
{
    std::memcpy(to, &floats, sizeof floats);
}

inline bool isAnySet(Numbers mask)
{
    const auto halves = LongNumbers(mask);
    return (halves[0] | halves[1]) != 0;
}

#if defined(__x86_64__)

inline bool hasByteVectors()
{
    return __builtin_cpu_supports("sse4.1") != 0;
}

inline Floats rootsOf(Floats floats)
{
    return Floats(_mm_sqrt_ps(__m128(floats)));
}

/// The byte of each place in `order`; 0 where that is 255.
BYTE_VECTORS inline Bytes arranged(Bytes bytes, Bytes order)
{
    return Bytes(_mm_shuffle_epi8(__m128i(bytes), __m128i(order)));
}

/// The sums of each two adjacent bytes, multiplied by weights of at most 127.
BYTE_VECTORS inline Words weightedPairs(Bytes bytes, Bytes weights)
{
    return Words(_mm_maddubs_epi16(__m128i(bytes), __m128i(weights)));
}

/// Each word multiplied by a share in 32768ths, rounded.
BYTE_VECTORS inline Words shareOf(Words words, Words shares)
{
    return Words(_mm_mulhrs_epi16(__m128i(words), __m128i(shares)));
}

#elif defined(__aarch64__)

inline bool hasByteVectors()
{
    return true;
}

inline Floats rootsOf(Floats floats)
{
    return Floats(vsqrtq_f32(float32x4_t(floats)));
}

inline Bytes arranged(Bytes bytes, Bytes order)
{
    return Bytes(vqtbl1q_u8(uint8x16_t(bytes), uint8x16_t(order)));
}

inline Words weightedPairs(Bytes bytes, Bytes weights)
{
    const auto a = uint8x16_t(bytes);
    const auto b = uint8x16_t(weights);
    return Words(vpaddq_u16(vmull_u8(vget_low_u8(a), vget_low_u8(b)), vmull_high_u8(a, b)));
}

inline Words shareOf(Words words, Words shares)
{
    return Words(vqrdmulhq_s16(int16x8_t(words), int16x8_t(shares)));
}

#endif

} // namespace portable
