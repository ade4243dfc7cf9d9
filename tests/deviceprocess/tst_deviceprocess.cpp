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
#define COMMAND(command, failure) QStringLiteral(#command),
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

/// Every command takes a good while; ./test.sh tries each eighth, DEVICE_FAULTS=all all of them.
int step()
{
    return qgetenv("DEVICE_FAULTS") == "all" ? 1 : 8;
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
        int tried = 0;
        for (int i = 0; i < commands().size(); i += step()) {
            const QString &command = commands()[i];
            order("none none");
            if (isCompanions(command) || answer(command).isNull()) {
                continue; // answered, if at all, by events
            }
            const QString failure = m_answer;
            order("any " + what.toLatin1());
            QVERIFY2(!answer(command).isNull(), qPrintable(what + QLatin1Char(' ') + command));
            QVERIFY2(m_answer == failure, qPrintable(command + QLatin1Char(' ') + m_answer));
            order("none none");
            QVERIFY2(!answer(QStringLiteral("iGetRotate")).isNull(), qPrintable(command));
            ++tried;
        }
        QVERIFY2(tried >= 150 / step(), qPrintable(QString::number(tried)));
    }

    void aKilledProcessIsReplaced()
    {
        order("none none");
        iGetRotate();
        const pid_t former = DeviceHost::instance().processId();
        const int restarts = DeviceHost::instance().restarts();
        QVERIFY(former > 0);
        kill(former, SIGKILL);
        QTRY_VERIFY(DeviceHost::instance().restarts() > restarts);
        QTRY_VERIFY(DeviceHost::instance().processId() > 0);
        QVERIFY(DeviceHost::instance().processId() != former);
        kill(DeviceHost::instance().processId(), SIGSTOP);
        const pid_t stopped = DeviceHost::instance().processId();
        QImage frame;
        QVERIFY(!getVideoFrame(frame)); // doesn't wait for ever
        QTRY_VERIFY(DeviceHost::instance().processId() != stopped);
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
    QString answer(const QString &command)
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
        return QTest::qWaitFor(came, 8000) ? m_answer : QString();
    }

    WebSocketServerManager m_manager{QStringLiteral("test"), QWebSocketServer::NonSecureMode};
    std::unique_ptr<Page> m_page;
    QString m_order;
    QString m_answer;
};

QTEST_MAIN(TestDeviceProcess)
#include "tst_deviceprocess.moc"
