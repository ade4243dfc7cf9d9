// SPDX-License-Identifier: MIT
//
// The device process under a library that crashes, hangs, talks garbage and eats memory: each
// command is answered as it answers a failure, and the next one, too.

#include "devicelib/doccamera.h"
#include "deviceprocess/stub/devicehost.h"
#include "tests/pages.h"
#include "transport/websocketservermanager.h"

#include <QFile>
#include <QImage>
#include <QtTest>

#include <csignal>

using deviceprocess::DeviceHost;

namespace {

const QStringList &commands()
{
    static const QStringList names = {
#define COMMAND(command, failure, ...) QStringLiteral(#command),
#include "dispatch/commandlist.h"
    };
    return names;
}

/// These wait for companion programs, and call no device function.
bool isCompanions(const QString &command)
{
    return command.contains(QLatin1String("GWQ_")) || command == QLatin1String("OpenURL")
        || command == QLatin1String("WebbrowserExit");
}

/// Each command takes a while: a few are tried each time, all of them with DEVICE_FAULTS=all.
int step()
{
    return qgetenv("DEVICE_FAULTS") == "all" ? 1 : 30;
}

} // namespace

class TestDeviceProcess : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        // A fiftieth of the usual times.
        QFile ini(QCoreApplication::applicationDirPath() + QStringLiteral("/devices.ini"));
        QVERIFY(ini.open(QIODevice::WriteOnly));
        ini.write("[library]\ncamera=" HOSTILE_LIBRARY "\ncards=" HOSTILE_LIBRARY
                  "\nmemory=512\ntimeFactor=0.02\n");
        ini.close();
        m_order = QCoreApplication::applicationDirPath() + QStringLiteral("/order");
        qputenv("HOSTILE_ORDER", m_order.toLocal8Bit());
        order("none none");
        m_manager.websocke_server_start(QHostAddress::LocalHost, 0);
        m_page = std::make_unique<Page>(m_manager.port());
        QVERIFY(m_page->isConnected());
        // What each answers when the library fails quietly; some are answered, if at all, by
        // events.
        for (int i = 0; i < commands().size(); i += step()) {
            const QString &command = commands()[i];
            if (!isCompanions(command) && !answer(command, 1500).isNull()) {
                m_failures[command] = m_answer;
            }
        }
        QVERIFY2(m_failures.size() >= 90 / step(), qPrintable(QString::number(m_failures.size())));
    }

    void everyCommand_data()
    {
        QTest::addColumn<QString>("what");
        for (const char *what : {"crash", "hang", "garbage", "memory", "throw"}) {
            QTest::newRow(what) << QString::fromLatin1(what);
        }
    }

    void everyCommand()
    {
        QFETCH(QString, what);
        for (auto i = m_failures.cbegin(); i != m_failures.cend(); ++i) {
            const QString &command = i.key();
            order("any " + what.toLatin1());
            QVERIFY2(!answer(command).isNull(), qPrintable(what + QLatin1Char(' ') + command));
            QVERIFY2(m_answer == i.value(), qPrintable(command + QLatin1Char(' ') + m_answer));
            order("none none");
            QVERIFY2(!answer(QStringLiteral("iGetRotate")).isNull(), qPrintable(command));
        }
    }

    void aKilledProcessIsReplaced()
    {
        order("none none");
        iGetRotate();
        const pid_t former = DeviceHost::instance().processId();
        const int restarts = DeviceHost::instance().restarts();
        QVERIFY(former > 0);
        kill(former, SIGKILL);
        QTRY_VERIFY_WITH_TIMEOUT(DeviceHost::instance().restarts() > restarts, 30000);
        QTRY_VERIFY_WITH_TIMEOUT(DeviceHost::instance().processId() > 0, 30000);
        QVERIFY(DeviceHost::instance().processId() != former);
        kill(DeviceHost::instance().processId(), SIGSTOP);
        const pid_t stopped = DeviceHost::instance().processId();
        QImage frame;
        QVERIFY(!getVideoFrame(frame)); // doesn't wait for ever
        QTRY_VERIFY_WITH_TIMEOUT(DeviceHost::instance().processId() != stopped, 30000);
    }

private:
    /// What the library does from now on: a function's name, or "any", and a deed.
    void order(const QByteArray &text)
    {
        QFile file(m_order);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(text);
    }

    /// Sends a command with arguments of all kinds. \return its answer; null without one
    QString answer(const QString &command, int limitMs = 8000)
    {
        const QString begin = QStringLiteral("Begin") + command;
        m_answer = QString();
        m_page->send(command + QStringLiteral("(1,1,1,1,1,1,1,1,1)"));
        const auto came = [&] {
            while (!m_page->received().isEmpty()) {
                const QString text = m_page->next();
                if (text.startsWith(begin) || text.contains(QLatin1String("lRet"))) {
                    m_answer = text;
                    return true;
                }
            }
            return false;
        };
        return QTest::qWaitFor(came, limitMs) ? m_answer : QString();
    }

    WebSocketServerManager m_manager{QStringLiteral("test"), QWebSocketServer::NonSecureMode};
    std::unique_ptr<Page> m_page;
    QString m_order;
    QString m_answer;
    QMap<QString, QString> m_failures; ///< Of the commands that are tried: their answers.
};

QTEST_MAIN(TestDeviceProcess)
#include "tst_deviceprocess.moc"
