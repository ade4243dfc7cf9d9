// SPDX-License-Identifier: MIT
#pragma once

#include "dispatch/messagerun.h"
#include "tests/manualclock.h"
#include "tests/pages.h"
#include "tests/recordingdevice.h"
#include "tests/rows.h"

#include <QTextCodec>
#include <QtTest>

#include <memory>

Q_DECLARE_METATYPE(recording::Value)

/**
 * Base of the tests of command families: text in, device calls and reply out. commands_data() of
 * the derived test provides the table. Every test function has its own page, which is the current
 * client. A derived init() or cleanup() must call the one here.
 */
class CommandTest : public QObject
{
    Q_OBJECT

protected Q_SLOTS:
    void initTestCase()
    {
        // Makes a mistaken local 8-bit encoding visible.
        QTextCodec::setCodecForLocale(QTextCodec::codecForName("GBK"));
        clock().runFree();
        base::Clock::setShared(&clock());
    }
    void init()
    {
        recording::reset();
        m_pair = std::make_unique<PagePair>();
        gpWebSocket = m_pair->serverSide();
    }
    void cleanup()
    {
        gpWebSocket = nullptr;
        m_pair.reset();
    }

private Q_SLOTS:
    void commands()
    {
        QFETCH(QString, command);
        QFETCH(QString, args);
        QFETCH(recording::Value, answer);
        QFETCH(QString, calls);
        QFETCH(QString, result);

        const QString lastCall =
            calls.section(QLatin1Char(' '), -1).section(QLatin1Char('('), 0, 0);
        if (!lastCall.isEmpty()) {
            recording::answer(lastCall.toLatin1(), answer);
        }

        send(QStringLiteral("%1(%2)").arg(command, args));
        QCOMPARE(recording::takeText(), calls);
        MessageRun::send_msg(QStringLiteral("no more"));
        if (!result.isNull()) {
            QCOMPARE(page().next(), QStringLiteral("Begin%1%2End%1").arg(command, result));
        }
        QCOMPARE(page().next(), QStringLiteral("no more"));
    }

protected:
    static void commandColumns()
    {
        const Rows<QString, QString, recording::Value, QString, QString> row(
            "command", "args", "answer", "calls", "result");
    }

    /**
     * Adds a row to the table.
     * \param answer  the device's answer to the last of the calls; the others get the default
     * \param calls   the device calls with their arguments, separated by blanks
     * \param result  the text within the frame; null: the command does not reply
     */
    static void commandRow(const char *title, const char *command, const char *args,
                           const recording::Value &answer, const char *calls, const char *result)
    {
        QTest::newRow(
            qPrintable(QLatin1String(command) + QLatin1String(": ") + QLatin1String(title)))
            << QString::fromUtf8(command) << QString::fromUtf8(args) << answer
            << QString::fromUtf8(calls) << QString::fromUtf8(result);
    }

    Page &page() { return m_pair->page(); }

    void send(const QString &command) { m_dispatcher.recv_msg(command, nullptr); }
    void send(const char *command) { send(QString::fromUtf8(command)); }

    /// Sends a command. \return the framed reply
    template <class Text> QString ask(const Text &command)
    {
        send(command);
        return page().next();
    }

    /// The server's clock: waits are over at once. Its threads use it until the process ends.
    static ManualClock &clock()
    {
        static ManualClock clock;
        return clock;
    }

    void leave() { m_pair.reset(); } ///< Closes the page.

    /// Makes the page the current client, or nobody.
    void setCurrent(bool isCurrent) { gpWebSocket = isCurrent ? m_pair->serverSide() : nullptr; }

    MessageRun m_dispatcher;

private:
    std::unique_ptr<PagePair> m_pair;
};
