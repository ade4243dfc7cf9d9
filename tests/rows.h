// SPDX-License-Identifier: MIT
#pragma once

#include <QtTest>

/// A text in a row, which may be a UTF-8 literal.
class CellText
{
public:
    CellText(const QString &text)
        : value(text)
    {
    }
    CellText(const char *text)
        : value(QString::fromUtf8(text))
    {
    }
    operator QString() const { return value; }
    const QString value;
};

/// The type in which a row takes the value of a column.
template <class Column> struct Cell
{
    using Type = Column;
};
template <> struct Cell<QString>
{
    using Type = CellText;
};

/**
 * The table of a test: names the columns, then adds a row with each call.
 *
 *     const Rows<QString, int> row("name", "length");
 *     row("a short one", "中", 1);
 */
template <class... Columns> class Rows
{
public:
    template <class... Names> explicit Rows(Names... names)
    {
        static_assert(sizeof...(Names) == sizeof...(Columns), "one name a column");
        (QTest::addColumn<Columns>(names), ...);
    }

    void operator()(const CellText &title, const typename Cell<Columns>::Type &...cells) const
    {
        (void)(QTest::newRow(qPrintable(title.value)) << ... << Columns(cells));
    }
};
