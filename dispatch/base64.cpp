// SPDX-License-Identifier: MIT
#include "dispatch/base64.h"

#include <QtEndian>

#include <array>
#include <cstring>

namespace {

constexpr char standardAlphabet[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char urlAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";

/**
 * Two characters for every 12 bits. Every preview frame passes through here, and encoding in pairs
 * takes a quarter of the time.
 */
using PairTable = std::array<char, std::size_t(4096) * 2>;

constexpr PairTable pairsOf(const char *alphabet)
{
    PairTable pairs{};
    for (std::size_t bits = 0; bits < 4096; ++bits) {
        pairs[2 * bits] = alphabet[bits >> 6];
        pairs[2 * bits + 1] = alphabet[bits & 63];
    }
    return pairs;
}

constexpr PairTable standardPairs = pairsOf(standardAlphabet);
constexpr PairTable urlPairs = pairsOf(urlAlphabet);

void encode(const unsigned char *bytes, std::size_t length, char *text, const PairTable &pairs,
            char fill)
{
    const unsigned char *const wholeEnd = bytes + length / 3 * 3;
    // Six bytes at a time, of eight that are read: a third faster than three.
    for (; wholeEnd - bytes >= 8; bytes += 6, text += 8) {
        const auto bits = qFromBigEndian<quint64>(bytes);
        for (std::size_t i = 0; i < 4; ++i) {
            std::memcpy(text + 2 * i, &pairs[2 * ((bits >> (52 - 12 * i)) & 4095U)], 2);
        }
    }
    for (; bytes != wholeEnd; bytes += 3, text += 4) {
        const unsigned bits = (bytes[0] << 16U) | (bytes[1] << 8U) | bytes[2];
        std::memcpy(text, &pairs[std::size_t(2) * (bits >> 12U)], 2);
        std::memcpy(text + 2, &pairs[std::size_t(2) * (bits & 4095U)], 2);
    }
    const std::size_t rest = length % 3;
    if (rest == 0) {
        return;
    }
    const unsigned bits = (bytes[0] << 16U) | (rest == 2 ? bytes[1] << 8U : 0U);
    std::memcpy(text, &pairs[std::size_t(2) * (bits >> 12U)], 2);
    std::memcpy(text + 2, &pairs[std::size_t(2) * (bits & 4095U)], 2);
    if (rest == 1) {
        text[2] = fill;
    }
    text[3] = fill;
}

constexpr std::array<signed char, 256> sixBitValues()
{
    std::array<signed char, 256> values{};
    for (auto &value : values) {
        value = -1;
    }
    for (int i = 0; i < 64; ++i) {
        values[uchar(standardAlphabet[i])] = qint8(i);
    }
    return values;
}

} // namespace

void base64EncodeInto(const unsigned char *bytes, std::size_t length, char *text)
{
    encode(bytes, length, text, standardPairs, '=');
}

std::string base64_encode(const unsigned char *bytes, unsigned long length, bool url)
{
    std::string text(base64Length(length), '\0');
    encode(bytes, length, text.data(), url ? urlPairs : standardPairs, url ? '.' : '=');
    return text;
}

std::string base64_encode(const unsigned char *bytes, unsigned int length)
{
    return base64_encode(bytes, length, false);
}

std::string base64_decode(const std::string &text)
{
    static constexpr auto values = sixBitValues();
    std::string bytes;
    bytes.reserve(text.size() / 4 * 3 + 2);
    unsigned bits = 0;
    int count = 0;
    for (const char character : text) {
        const signed char value = values[uchar(character)];
        if (value < 0) {
            break;
        }
        bits = (bits << 6U) | unsigned(value);
        // Characters 2, 3 and 4 of each four complete a byte.
        if (++count % 4 != 1) {
            const int spare = count % 4 == 2 ? 4 : count % 4 == 3 ? 2 : 0;
            bytes.push_back(char(bits >> spare & 0xFFU));
        }
    }
    return bytes;
}
