// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>
#include <QStringRef>
#include <QVector>

#include <deque>
#include <type_traits>

/**
 * Reads a number as the protocol does: base 10; a text that is no number, or is out of the
 * type's range, is 0.
 */
template <class Number> Number numberFrom(const QStringRef &text)
{
    if constexpr (std::is_same_v<Number, short>)
        return text.toShort();
    else if constexpr (std::is_same_v<Number, int>)
        return text.toInt();
    else if constexpr (std::is_same_v<Number, long>)
        return text.toLong();
    else if constexpr (std::is_same_v<Number, qint64>)
        return text.toLongLong();
    else if constexpr (std::is_same_v<Number, float>)
        return text.toFloat();
    else
        static_assert(!sizeof(Number), "not a number type of the protocol");
}

/** The same for a whole argument text: what commands with one argument take. */
template <class Number> Number numberFrom(const QString &text)
{
    return numberFrom<Number>(QStringRef(&text));
}

/**
 * The fields of an argument text: parted at ",", empty fields kept, so an empty text is one
 * empty field. Every reader is total: a missing field is an empty text or 0, never a crash.
 */
class Arguments
{
public:
    explicit Arguments(const QString &text);

    int count() const { return m_fields.size(); }

    /** A field as it was sent. */
    QString text(int index) const { return field(index).toString(); }

    /** A field as NUL-terminated UTF-8, alive as long as this object. */
    const char *utf8(int index) const { return keep(field(index).toUtf8()); }

    /** A field in the local 8-bit encoding, NUL-terminated, alive as long as this object. */
    const char *local8Bit(int index) const { return keep(field(index).toLocal8Bit()); }

    /** A field as a number of a named width (short, int, long, qint64, float). */
    template <class Number> Number number(int index) const
    {
        return numberFrom<Number>(field(index));
    }

private:
    QStringRef field(int index) const { return m_fields.value(index); }
    const char *keep(QByteArray text) const;

    QString m_text; // what m_fields refers to
    QVector<QStringRef> m_fields;
    mutable std::deque<QByteArray> m_kept;
};
