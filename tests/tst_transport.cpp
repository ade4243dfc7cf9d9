// SPDX-License-Identifier: MIT
#include "camera/captureimgthread.h"
#include "dispatch/messagerun.h"
#include "tests/pages.h"
#include "tests/rawpage.h"
#include "tests/recordingdevice.h"
#include "tests/rows.h"
#include "transport/clientlink.h"
#include "transport/websocketservermanager.h"

#include <QTcpServer>
#include <QTcpSocket>
#include <QtTest>
#include <fcntl.h>

#include <memory>

namespace {

const auto frameText = [](char mark, int size = 100 * 1000) {
    return QByteArray("/9j/") + QByteArray(size, mark);
};

void say(const QByteArray &text)
{
    Q_EMIT CaptureImgThread::instance()->sig_msg(text);
}

void show(const QByteArray &frame)
{
    Q_EMIT CaptureImgThread::instance()->sig_frame(frame);
}

} // namespace

class TestTransport : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { CaptureImgThread::instance()->setPause(true); }

    void init()
    {
        recording::reset();
        recording::answer("bStartPlay4", true);
        CaptureImgThread::instance()->silenceClose();
        m_manager = std::make_unique<WebSocketServerManager>(QStringLiteral("test"),
                                                             QWebSocketServer::NonSecureMode);
        m_manager->websocke_server_start(QHostAddress::Any, 0);
        QVERIFY(m_manager->running());
    }

    void cleanup()
    {
        m_manager.reset();
        QVERIFY(!gpWebSocket);
    }

    void repliesGoToThePageThatSentTheLatestCommand()
    {
        Page a(port());
        Page b(port());
        a.send(QStringLiteral("bStartPlay4()"));
        QCOMPARE(a.next(), QStringLiteral("BeginbStartPlay4trueEndbStartPlay4"));
        b.send(QStringLiteral("bStartPlay4()"));
        QCOMPARE(b.next(), QStringLiteral("BeginbStartPlay4trueEndbStartPlay4"));
        // A late reply to a's command goes to b.
        m_manager->dispatcher()->sendmsg_thread(QStringLiteral("late"));
        QCOMPARE(b.next(), QStringLiteral("late"));
        QCOMPARE(a.received(), QStringList());
    }

    void atReachesTheCounterPagesOnly()
    {
        Page current(port());
        Page counter(port());
        current.send(QStringLiteral("bStartPlay4()"));
        current.next();
        counter.send(QStringLiteral("@"));
        counter.send(QStringLiteral("@bStartPlay4()"));
        QCOMPARE(counter.next(), QString::fromLatin1("")); // no page was opened yet
        QCOMPARE(counter.next(), QString::fromLatin1(""));
        m_manager->dispatcher()->sendmsg_thread(QStringLiteral("still the current one"));
        QCOMPARE(current.next(), QStringLiteral("still the current one"));
        QCOMPARE(recording::count("bStartPlay4"), 1);
    }

    void hashIsRelayedToTheCurrentPage()
    {
        Page current(port());
        Page other(port());
        other.send(QStringLiteral("#lost: nobody is current"));
        other.send(QStringLiteral("bStopPlay4"));
        QCOMPARE(other.next(), QStringLiteral("BeginbStopPlay4falseEndbStopPlay4"));
        current.send(QStringLiteral("bStartPlay4()"));
        current.next();
        other.send(QStringLiteral("#result,5"));
        other.send(QStringLiteral("#"));
        current.send(QStringLiteral("##to myself"));
        QStringList texts{current.next(), current.next(), current.next()};
        QVERIFY(texts.removeOne(QString::fromLatin1("")));
        texts.sort();
        QCOMPARE(texts, QStringList({QStringLiteral("#to myself"), QStringLiteral("result,5")}));
    }

    void badTexts_data()
    {
        const Rows<QString> row("text");
        row("empty", QString::fromLatin1(""));
        row("parenthesis", "(");
        row("NUL", QString(1, QChar(0)));
        row("NUL in a name", QStringLiteral("bStartPlay4") + QChar(0) + QStringLiteral("()"));
        row("half a surrogate pair", QString(3, QChar(0xD800)));
        row("line ends", "\r\nbStartPlay4()\r\n");
        row("2 MB without a name", QString(2 << 20, QLatin1Char('(')));
        row("2 MB of a name", QString(2 << 20, QLatin1Char('x')));
        row("2 million fields", QStringLiteral("bAVPreview(") + QString(2 << 20, QLatin1Char(',')));
    }

    void badTexts()
    {
        QFETCH(QString, text);
        Page page(port());
        page.send(text);
        if (text.startsWith(QLatin1String("bAVPreview"))) {
            QCOMPARE(page.next(), QStringLiteral("BeginbAVPreviewfalseEndbAVPreview"));
        }
        page.send(QStringLiteral("bStopPlay4()"));
        QCOMPARE(page.next(), QStringLiteral("BeginbStopPlay4falseEndbStopPlay4"));
        QVERIFY(recording::takeText().endsWith(QLatin1String("bStopPlay4()")));
    }

    void binaryMessagesAreIgnored()
    {
        Page page(port());
        page.socket().sendBinaryMessage("bStartPlay4()");
        page.socket().sendBinaryMessage(QByteArray());
        page.send(QStringLiteral("bStopPlay4()"));
        QCOMPARE(page.next(), QStringLiteral("BeginbStopPlay4falseEndbStopPlay4"));
        QCOMPARE(recording::takeText(), QStringLiteral("bStopPlay4()"));
    }

    void workersMessagesGoToEveryPage()
    {
        Page a(port());
        Page b(port());
        QVERIFY(pagesBecome(2));
        say("BeginbStartPlaytrueEndbStartPlay");
        show(frameText('A'));
        say("BeginbStopPlaytrueEndbStopPlay");
        for (Page *page : {&a, &b}) {
            QCOMPARE(page->next(), QStringLiteral("BeginbStartPlaytrueEndbStartPlay"));
            QCOMPARE(page->next(), QString::fromLatin1(frameText('A')));
            QCOMPARE(page->next(), QStringLiteral("BeginbStopPlaytrueEndbStopPlay"));
        }
    }

    void messagesEndAtTheFirstNul()
    {
        Page page(port());
        QVERIFY(pagesBecome(1));
        say(QByteArray("result\0rest", 11));
        show(QByteArray("/9j/AA\0rest", 11));
        say(QByteArray("\0", 1));
        QCOMPARE(page.next(), QStringLiteral("result"));
        QCOMPARE(page.next(), QStringLiteral("/9j/AA"));
        QCOMPARE(page.next(), QString::fromLatin1(""));
    }

    void framesOfEverySizeArrive()
    {
        Page page(port());
        QVERIFY(pagesBecome(1));
        // Around the limits of the three encodings of a frame's length.
        for (const int length : {0, 121, 122, 65531, 65532, 2 << 20}) {
            show(frameText('B', length));
            QCOMPARE(page.next(), QString::fromLatin1(frameText('B', length)));
        }
    }

    void noFrameFollowsAResult()
    {
        std::vector<std::unique_ptr<Page>> pages;
        for (int i = 0; i < 7; ++i) {
            pages.push_back(std::make_unique<Page>(port()));
        }
        QVERIFY(pagesBecome(7));
        const QStringList expected{QString::fromLatin1(frameText('A')),
                                   QString::fromLatin1(frameText('B')), QStringLiteral("result")};
        show(frameText('A'));
        show(frameText('B'));
        say("result");
        for (const auto &page : pages) {
            QTRY_COMPARE(page->received(), expected);
        }
        show(frameText('C'));
        pages.resize(2);
        QTRY_COMPARE(pages.front()->received().size(), 4);
    }

    void textsThatLookLikeFrames()
    {
        Page page(port());
        QVERIFY(pagesBecome(1));
        const QByteArray chinese = "/9j/" + QByteArray("中文");
        show(chinese);
        show("/9j/\xFF");
        QCOMPARE(page.next(), QString::fromUtf8(chinese));
        QCOMPARE(page.next(), QString::fromUtf8("/9j/\xFF"));
    }

    void leavingStopsThePreviewForAll()
    {
        Page stays(port());
        auto leaves = std::make_unique<Page>(port());
        QVERIFY(pagesBecome(2));
        stays.send(QStringLiteral("bStartPlay4()"));
        stays.next();
        recording::takeCalls();
        leaves.reset();
        QVERIFY(pagesBecome(1));
        QCOMPARE(recording::takeText(), QStringLiteral("bStopRec() bStopPlay4()"));
        // No page is current until the next command: this is lost, like the reply of the stop.
        QVERIFY(!gpWebSocket);
        m_manager->dispatcher()->sendmsg_thread(QStringLiteral("lost"));
        stays.send(QStringLiteral("getVersion()"));
        QCOMPARE(stays.next(), QStringLiteral("BegingetVersionV1.0.2EndgetVersion"));
    }

    void aPageThatLeavesWhileItIsWrittenTo()
    {
        Page stays(port());
        for (int i = 0; i < 20; ++i) {
            auto leaves = std::make_unique<Page>(port());
            QVERIFY(pagesBecome(2));
            for (int k = 0; k < 4; ++k) {
                show(frameText('C'));
            }
            leaves->socket().abort();
            leaves.reset();
            show(frameText('D'));
            say("result");
            QVERIFY(pagesBecome(1));
        }
        QTRY_COMPARE(stays.received().count(QStringLiteral("result")), 20);
    }

    void aRawPageGetsTwoFramesAndEveryResult()
    {
        RawPage stalled(port());
        Page other(port());
        QVERIFY(pagesBecome(2));

        constexpr int frames = 30; // more than the kernel's buffers hold
        constexpr int size = 200 * 1000;
        QByteArray results;
        for (int i = 0; i < frames; ++i) {
            const QByteArray frame = frameText(char('a' + i % 26), size);
            const QByteArray result = "Begin" + QByteArray::number(i) + "End";
            show(frame);
            say(result);
            results += result;
            // The other page misses nothing, in order.
            QCOMPARE(other.next(), QString::fromLatin1(frame));
            QCOMPARE(other.next(), QString::fromLatin1(result));
        }
        qint64 waiting = 0;
        for (const auto *link : m_manager->findChildren<ClientLink *>()) {
            waiting = qMax(waiting, qobject_cast<QWebSocket *>(link->parent())->bytesToWrite());
        }
        QVERIFY2(waiting < 3 * size, qPrintable(QString::number(waiting)));
        QVERIFY2(waiting > size, "the page was not stalled");

        const QByteArray bytes = stalled.readUpTo("Begin" + QByteArray::number(frames - 1) + "End");
        QByteArray got;
        for (int i = 0, at = 0; i < frames; ++i) {
            const QByteArray result = "Begin" + QByteArray::number(i) + "End";
            at = bytes.indexOf(result, at);
            QVERIFY2(at >= 0, result.constData());
            got += result;
        }
        QCOMPARE(got, results);
        // Once it reads, it gets frames again.
        show(frameText('Z', size));
        QVERIFY(!stalled.readUpTo(QByteArray(size, 'Z')).isEmpty());
    }

    void optionsOfTheSockets()
    {
        Page page(port());
        QVERIFY(pagesBecome(1));
        const auto sockets = m_manager->findChildren<QTcpSocket *>();
        QCOMPARE(sockets.size(), 1);
        QCOMPARE(sockets.first()->socketOption(QAbstractSocket::LowDelayOption).toInt(), 1);
        // No program that the server starts keeps the connection open.
        QCOMPARE(fcntl(int(sockets.first()->socketDescriptor()), F_GETFD), FD_CLOEXEC);
    }

    void startAndStop()
    {
        QTest::ignoreMessage(QtDebugMsg,
                             QRegularExpression(QStringLiteral(
                                 "^\\d+ websocke_server_start websocketservermanager "
                                 "Failed to websocke_server_start it's already running...$")));
        m_manager->websocke_server_start(QHostAddress::Any, 0);
        QVERIFY(m_manager->running());

        Page page(port());
        QVERIFY(pagesBecome(1));
        recording::takeCalls();
        QSignalSpy closed(m_manager.get(), &WebSocketServerManager::signal_close);
        QSignalSpy disconnected(&page.socket(), &QWebSocket::disconnected);
        m_manager->websocke_server_stop();
        QTRY_COMPARE(closed.size(), 1);
        QVERIFY(!disconnected.isEmpty() || disconnected.wait());
        QCOMPARE(page.socket().closeCode(), QWebSocketProtocol::CloseCodeNormal);
        QVERIFY(!m_manager->running());
        QVERIFY(recording::calls().contains(QStringLiteral("bStopPlay4()")));
        QVERIFY(pagesBecome(0));

        QTest::ignoreMessage(QtDebugMsg,
                             QRegularExpression(QStringLiteral(
                                 "^\\d+ websocke_server_stop websocketservermanager "
                                 "Failed to websocke_server_stop , it's not running...$")));
        m_manager->websocke_server_stop();
        m_manager->websocke_server_start(QHostAddress::Any, 0);
        QVERIFY(Page(port()).isConnected());
    }

    void portTaken()
    {
        WebSocketServerManager second(QStringLiteral("second"), QWebSocketServer::NonSecureMode);
        const QStringList warnings =
            warningsOf([&] { second.websocke_server_start(QHostAddress::Any, port()); });
        QCOMPARE(warnings.size(), 1);
        QVERIFY(warnings.first().contains(QLatin1String("can't listen on port")));
        QVERIFY(!second.running());
        QVERIFY(Page(port()).isConnected());
    }

    void errorsOfTheListeningSocketAreLogged()
    {
        auto *server = m_manager->findChild<QWebSocketServer *>();
        QVERIFY(server);
        const QStringList warnings = warningsOf([&] {
            Q_EMIT server->serverError(QWebSocketProtocol::CloseCodeAbnormalDisconnection);
        });
        QCOMPARE(warnings.size(), 1);
        QVERIFY(warnings.first().startsWith(QLatin1String("transport:")));
    }

    void slotsCalledWithoutAPageDoNothing()
    {
        recording::takeCalls();
        m_manager->slot_newConnection();
        m_manager->slot_textMessageReceived(QStringLiteral("bStopPlay4()"));
        m_manager->slot_textFrameReceived(QStringLiteral("bStopPlay4()"), true);
        m_manager->slot_error(QAbstractSocket::RemoteHostClosedError);
        m_manager->slot_disconnected();
        QCOMPARE(recording::takeText(), QString());
        QCOMPARE(pages(), 0);
    }

    void errorsAreSignalled()
    {
        QSignalSpy errors(m_manager.get(), &WebSocketServerManager::signal_error);
        {
            RawPage page(port());
            QVERIFY(pagesBecome(1));
            page.socket().abort(); // without a closing frame
        }
        QTRY_COMPARE(errors.size(), 1);
        QVERIFY(pagesBecome(0));
    }

    void connectionsOfTheThreadSignalsAccumulate()
    {
        Page a(port());
        Page b(port());
        QVERIFY(pagesBecome(2));
        Q_EMIT m_manager->signal_thread_MessageReceived(QStringLiteral("to nobody"));
        b.send(QStringLiteral("bStartPlay4()"));
        b.next();
        Q_EMIT m_manager->signal_thread_MessageReceived(QStringLiteral("twice"));
        QCOMPARE(b.next(), QStringLiteral("twice"));
        QCOMPARE(b.next(), QStringLiteral("twice"));
        QCOMPARE(a.received(), QStringList());
        b.socket().close();
        QVERIFY(pagesBecome(1));
        Q_EMIT m_manager->signal_thread_MessageReceived(QStringLiteral("it has gone"));
        Q_EMIT m_manager->signal_thread_MessageReceived_binary(QByteArray("it has gone"));
    }

    void sendingToOnePage()
    {
        Page a(port());
        Page b(port());
        QVERIFY(pagesBecome(2));
        const QString address = QStringLiteral("::ffff:127.0.0.1");
        m_manager->websocke_server_sendData(address, b.socket().localPort(),
                                            QStringLiteral("to b"));
        m_manager->websocke_server_sendData(address, 1, QStringLiteral("to nobody"));
        QSignalSpy binary(&b.socket(), &QWebSocket::binaryMessageReceived);
        m_manager->websocke_server_sendData_binary(address, b.socket().localPort(), "bytes");
        QCOMPARE(b.next(), QStringLiteral("to b"));
        QVERIFY(binary.size() == 1 || binary.wait());
        QCOMPARE(a.received(), QStringList());
    }

private:
    quint16 port() const { return m_manager->port(); }

    int pages() const { return m_manager->findChildren<ClientLink *>().size(); }

    bool pagesBecome(int count) const
    {
        return waitFor([&] { return pages() == count; });
    }

    template <class Action> static QStringList warningsOf(Action action)
    {
        static QStringList warnings;
        warnings.clear();
        const auto before = qInstallMessageHandler(
            [](QtMsgType type, const QMessageLogContext &, const QString &text) {
                if (type == QtWarningMsg) {
                    warnings << text;
                }
            });
        action();
        qInstallMessageHandler(before);
        return warnings;
    }

    std::unique_ptr<WebSocketServerManager> m_manager;
};

QTEST_GUILESS_MAIN(TestTransport)
#include "tst_transport.moc"
