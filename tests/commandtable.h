// SPDX-License-Identifier: MIT
//
// Tables of commands: text in, device calls, reply out. A test's data function calls
// commandColumns() and commandRow(); its test function runs runCommandRow().
#pragma once

#include "dispatch/messagerun.h"
#include "tests/pages.h"
#include "tests/recordingdevice.h"

#include <QtTest>

Q_DECLARE_METATYPE(recording::Value)

inline void commandColumns()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<QString>("args");
    QTest::addColumn<recording::Value>("answer");
    QTest::addColumn<QString>("calls");
    QTest::addColumn<QString>("result");
}

/**
 * \param answer  what the device says to the last of the calls; the others say nothing particular
 * \param calls   the device calls with their arguments, parted by blanks
 * \param result  the text within the frame; null: the command answers nothing
 */
inline void commandRow(const char *title, const char *command, const char *args,
                       const recording::Value &answer, const char *calls, const char *result)
{
    QTest::newRow(qPrintable(QLatin1String(command) + QLatin1String(": ") + QLatin1String(title)))
        << QString::fromUtf8(command) << QString::fromUtf8(args) << answer
        << QString::fromUtf8(calls) << QString::fromUtf8(result);
}

inline void runCommandRow(MessageRun &dispatcher)
{
    QFETCH(QString, command);
    QFETCH(QString, args);
    QFETCH(recording::Value, answer);
    QFETCH(QString, calls);
    QFETCH(QString, result);

    PagePair pair;
    gpWebSocket = pair.serverSide();
    recording::allowAll();
    const QString lastCall = calls.section(QLatin1Char(' '), -1).section(QLatin1Char('('), 0, 0);
    if (!lastCall.isEmpty())
        recording::answer(lastCall.toLatin1(), answer);

    dispatcher.recv_msg(QStringLiteral("%1(%2)").arg(command, args), nullptr);
    QCOMPARE(recording::takeText(), calls);
    MessageRun::send_msg(QStringLiteral("no more"));
    if (!result.isNull())
        QCOMPARE(pair.page().next(), QStringLiteral("Begin%1%2End%1").arg(command, result));
    QCOMPARE(pair.page().next(), QStringLiteral("no more"));
    gpWebSocket = nullptr;
}
