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
 * A test of a family of commands: text in, device calls, reply out. Its commands_data() gives the
 * table; each of its functions has a page of its own, which is current. A test with an init() or a
 * cleanup() calls those here from it.
 */
class CommandTest : public QObject
{
    Q_OBJECT

protected Q_SLOTS:
    void initTestCase()
    {
        // So that the local 8-bit encoding shows where it isn't UTF-8.
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
     * \param answer  what the device says to the last of the calls; the others say nothing
     * particular \param calls   the device calls with their arguments, parted by blanks \param
     * result  the text within the frame; null: the command answers nothing
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

    /// Sends it. \return the reply, frame and all
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

    void leave() { m_pair.reset(); } ///< The page goes away.

    /// Whether the page is the current one, or none is.
    void setCurrent(bool isCurrent) { gpWebSocket = isCurrent ? m_pair->serverSide() : nullptr; }

    MessageRun m_dispatcher;

private:
    std::unique_ptr<PagePair> m_pair;
};
