// SPDX-License-Identifier: MIT
#include "portable/base/featuretext.h"

#include <QtGlobal>

#include <cstring>

namespace portable {

namespace {

constexpr char digitCharacters[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr int bitsPerDigit = 6;
constexpr int checksumDigits = 3; // of 16 bits

/// The value of a digit; -1 for any other character, the NUL among them.
int digitOf(char character)
{
    const auto *found = character == 0 ? nullptr : std::strchr(digitCharacters, character);
    return found ? int(found - digitCharacters) : -1;
}

int checksum(const char *begin, const char *end)
{
    return qChecksum(begin, uint(end - begin));
}

} // namespace

void FeatureWriter::put(int value, int digits)
{
    const int largest = (1 << (digits * bitsPerDigit)) - 1;
    const int cut = qBound(0, value, largest);
    for (int shift = (digits - 1) * bitsPerDigit; shift >= 0; shift -= bitsPerDigit) {
        m_text += digitCharacters[(cut >> shift) & 63];
    }
}

QByteArray FeatureWriter::finish() const
{
    FeatureWriter whole(*this);
    whole.put(checksum(m_text.constBegin(), m_text.constEnd()), checksumDigits);
    return whole.m_text;
}

FeatureReader::FeatureReader(const char *text, const char *mark)
    : m_begin(text ? text : "")
    , m_at(m_begin)
    , m_good(std::strncmp(m_begin, mark, std::strlen(mark)) == 0)
{
    if (m_good) {
        m_at += std::strlen(mark);
    }
}

int FeatureReader::take(int digits)
{
    int value = 0;
    for (int i = 0; i < digits && m_good; ++i) {
        const int digit = digitOf(*m_at);
        m_good = digit >= 0;
        if (m_good) {
            value = (value << bitsPerDigit) | digit;
            ++m_at;
        }
    }
    return m_good ? value : 0;
}

bool FeatureReader::finish()
{
    const char *const checked = m_at;
    const int expected = take(checksumDigits);
    m_good = m_good && expected == checksum(m_begin, checked);
    return m_good;
}

} // namespace portable
