// SPDX-License-Identifier: MIT
#include "log/longtext.h"

namespace {

/// Bytes in UTF-8; a surrogate pair, counted one by one, has its four.
int utf8Bytes(QChar character)
{
    if (character.unicode() < 0x80) {
        return 1;
    }
    return character.unicode() < 0x800 || character.isSurrogate() ? 2 : 3;
}

/// Bytes of what QDebug prints for the character in a quoted text.
int quotedBytes(QChar character)
{
    switch (character.unicode()) {
    case '"':
    case '\\':
    case '\b':
    case '\f':
    case '\n':
    case '\r':
    case '\t':
        return 2;
    default:
        return character.isSurrogate() || character.isPrint() ? utf8Bytes(character) : 6;
    }
}

/// How many characters fit; looks at no more than those.
template <class Cost> int fitting(const QString &text, int bytes, Cost cost)
{
    int count = 0;
    while (count < text.size()) {
        bytes -= cost(text[count]);
        if (bytes < 0) {
            break;
        }
        ++count;
    }
    return count;
}

} // namespace

int charactersWithin(const QString &text, int bytes)
{
    const int count = fitting(text, bytes, utf8Bytes);
    const bool splitsPair = count > 0 && count < text.size() && text[count - 1].isHighSurrogate()
        && text[count].isLowSurrogate();
    return splitsPair ? count - 1 : count;
}

QString withoutData(const QString &text, int longest)
{
    return text.size() <= longest ? text
                                  : QStringLiteral("(%1 characters, not logged)").arg(text.size());
}

bool LongText::isShortened() const
{
    constexpr int mostBytesOfOne = 6;
    return m_text.size() > maxBytes / mostBytesOfOne
        && fitting(m_text, maxBytes, quotedBytes) < m_text.size();
}

QDebug operator<<(QDebug debug, const LongText &text)
{
    if (!text.isShortened()) {
        return debug << text.m_text;
    }
    return debug << text.m_text.left(charactersWithin(text.m_text, LongText::shownBytes))
                 << "... the beginning of" << text.m_length << "characters";
}
