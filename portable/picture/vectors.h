// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <cstring>

#if defined(__x86_64__)
#include <smmintrin.h>
#elif defined(__aarch64__)
#include <arm_neon.h>
#else
#include <cmath>
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

inline uint64_t eightBytesAt(const uint8_t *from)
{
    uint64_t bytes = 0;
    std::memcpy(&bytes, from, sizeof bytes);
    return bytes;
}

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

/// True when any bit is set, as in what a comparison results in.
inline bool isAnySet(Numbers mask)
{
    const auto halves = LongNumbers(mask);
    return (halves[0] | halves[1]) != 0;
}

/// True when functions that are BYTE_VECTORS may be called.
bool hasByteVectors();

Floats rootsOf(Floats floats);

/// The byte of each place in `order`; 0 where that is 255.
BYTE_VECTORS Bytes arranged(Bytes bytes, Bytes order);

/// The sums of each two adjacent bytes, multiplied by weights of at most 127.
BYTE_VECTORS Words weightedPairs(Bytes bytes, Bytes weights);

/// Each word multiplied by a share in 32768ths, rounded.
BYTE_VECTORS Words shareOf(Words words, Words shares);

#if defined(__x86_64__)

inline bool hasByteVectors()
{
    return __builtin_cpu_supports("sse4.1") != 0;
}

inline Floats rootsOf(Floats floats)
{
    return Floats(_mm_sqrt_ps(__m128(floats)));
}

inline Bytes arranged(Bytes bytes, Bytes order)
{
    return Bytes(_mm_shuffle_epi8(__m128i(bytes), __m128i(order)));
}

inline Words weightedPairs(Bytes bytes, Bytes weights)
{
    return Words(_mm_maddubs_epi16(__m128i(bytes), __m128i(weights)));
}

inline Words shareOf(Words words, Words shares)
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

#else // slow, so that it works on any processor

inline bool hasByteVectors()
{
    return false;
}

inline Floats rootsOf(Floats floats)
{
    return Floats{std::sqrt(floats[0]), std::sqrt(floats[1]), std::sqrt(floats[2]),
                  std::sqrt(floats[3])};
}

inline Bytes arranged(Bytes bytes, Bytes order)
{
    Bytes result{};
    for (int i = 0; i < 16; ++i) {
        result[i] = order[i] < 16 ? bytes[order[i]] : uint8_t(0);
    }
    return result;
}

inline Words weightedPairs(Bytes bytes, Bytes weights)
{
    Words result{};
    for (int i = 0; i < 8; ++i) {
        result[i] = int16_t(bytes[2 * i] * weights[2 * i] + bytes[2 * i + 1] * weights[2 * i + 1]);
    }
    return result;
}

inline Words shareOf(Words words, Words shares)
{
    Words result{};
    for (int i = 0; i < 8; ++i) {
        result[i] = int16_t((words[i] * shares[i] + (1 << 14)) >> 15);
    }
    return result;
}

#endif

} // namespace portable
