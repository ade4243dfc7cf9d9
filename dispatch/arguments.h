// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>
#include <QStringRef>

#include <deque>
#include <type_traits>

/**
 * Reads a number as the protocol does: base 10; a text that is no number, or is out of the
 * type's range, is 0.
 */
template <class Number> Number numberFrom(const QStringRef &text)
{
    if constexpr (std::is_same_v<Number, short>) {
        return text.toShort();
    } else if constexpr (std::is_same_v<Number, int>) {
        return text.toInt();
    } else if constexpr (std::is_same_v<Number, long>) {
        return text.toLong();
    } else if constexpr (std::is_same_v<Number, qint64>) {
        return text.toLongLong();
    } else if constexpr (std::is_same_v<Number, float>) {
        return text.toFloat();
    } else {
        static_assert(!sizeof(Number), "not a number type of the protocol");
    }
}

/// The same for a whole argument text: what commands with one argument take.
template <class Number> Number numberFrom(const QString &text)
{
    return numberFrom<Number>(QStringRef(&text));
}

/**
 * The fields of an argument text: parted at ",", empty fields kept, so an empty text is one
 * empty field. Every reader is total: a missing field is an empty text or 0, never a crash.
 *
 * Fields are looked for when they are asked for: commands have few, and a text of nothing but ","
 * must not cost more memory than it has itself.
 */
class Arguments
{
public:
    explicit Arguments(const QString &text)
        : m_text(text)
    {
    }
    Q_DISABLE_COPY(Arguments)

    int count() const { return m_text.count(QLatin1Char(',')) + 1; }

    /// A field as it was sent.
    QString text(int index) const { return field(index).toString(); }

    /// A field as NUL-terminated UTF-8, alive as long as this object.
    const char *utf8(int index) const { return keep(field(index).toUtf8()); }

    /// A field in the local 8-bit encoding, NUL-terminated, alive as long as this object.
    const char *local8Bit(int index) const { return keep(field(index).toLocal8Bit()); }

    /// A field as a number of a named width (short, int, long, qint64, float).
    template <class Number> Number number(int index) const
    {
        return numberFrom<Number>(field(index));
    }

private:
    QStringRef field(int index) const;
    const char *keep(QByteArray text) const;

    const QString m_text;
    mutable std::deque<QByteArray> m_kept;
};
