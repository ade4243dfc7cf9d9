// SPDX-License-Identifier: MIT
#pragma once

#include <QDebug>
#include <QString>

/**
 * A text of any length from a page, for a log line: `TRACE << LongText(message)` prints the same as
 * `TRACE << message`, but of a text that would take more than maxBytes in the log, only its first
 * shownBytes and its length. Whatever isn't printed isn't copied or escaped either.
 *
 * Keeps a reference to the text: use it within the statement only.
 */
class LongText
{
public:
    static constexpr int maxBytes = 1024 * 1024;
    static constexpr int shownBytes = 64 * 1024;

    /// `length` in characters is printed for a text that is itself only the beginning of another.
    explicit LongText(const QString &text, int length = -1)
        : m_text(text)
        , m_length(length < 0 ? text.size() : length)
    {
    }

    /// Whether only the beginning is printed.
    bool isShortened() const;

    friend QDebug operator<<(QDebug debug, const LongText &text);

private:
    const QString &m_text;
    const int m_length;
};

/**
 * A text of a device for a log line. One of at most `longest` characters, a score or an error, is
 * returned as it is; of a longer one, which holds a person's data, a feature or a picture, only the
 * length.
 */
QString withoutData(const QString &text, int longest);

/// How many characters of the text take at most this many bytes in UTF-8; never half a character.
int charactersWithin(const QString &text, int bytes);
