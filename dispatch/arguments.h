// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>
#include <QStringRef>

#include <deque>
#include <type_traits>

/**
 * Parses a number the protocol's way: base 10; 0 if the text is not a number or is out of the
 * type's range.
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

/// The same for a whole argument text, for commands with a single argument.
template <class Number> Number numberFrom(const QString &text)
{
    return numberFrom<Number>(QStringRef(&text));
}

/**
 * The fields of an argument text, separated by ",". Empty fields count, so an empty text is one
 * empty field. Any index is safe: a missing field reads as an empty text or 0.
 *
 * Fields are searched for on access instead of split in advance: commands use few of them, and a
 * text of nothing but "," must not take many times its own memory.
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

    /// A field, unchanged.
    QString text(int index) const { return field(index).toString(); }

    /// A field as NUL-terminated UTF-8, valid as long as this object.
    const char *utf8(int index) const { return keep(field(index).toUtf8()); }

    /// A field in the local 8-bit encoding, NUL-terminated, valid as long as this object.
    const char *local8Bit(int index) const { return keep(field(index).toLocal8Bit()); }

    /// A field as a number: short, int, long, qint64 or float.
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
