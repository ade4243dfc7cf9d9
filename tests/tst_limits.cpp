// SPDX-License-Identifier: MIT
// What one page may take of the server, with small limits.
#include "app/descriptorlimit.h"
#include "camera/captureimgthread.h"
#include "dispatch/clientqueue.h"
#include "dispatch/messagerun.h"
#include "log/refusallog.h"
#include "tests/manualclock.h"
#include "tests/pages.h"
#include "tests/rawpage.h"
#include "tests/recordingdevice.h"
#include "tests/rows.h"
#include "transport/clientlink.h"
#include "transport/limits.h"
#include "transport/pagelistener.h"
#include "transport/pagesocket.h"
#include "transport/websocketservermanager.h"
#include "upload/uploadpool.h"

#include <QSemaphore>
#include <QtTest>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <memory>
#include <vector>

using namespace std::chrono_literals;

namespace {

constexpr quint64 longestMessage = 1000;
const QByteArray command = RawPage::message("bStopPlay4()");
const QByteArray answer = "BeginbStopPlay4falseEndbStopPlay4";

void expectLine(const char *pattern)
{
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QLatin1String(pattern)));
}

QByteArray bytes(std::initializer_list<int> values)
{
    QByteArray result;
    for (const int value : values) {
        result += char(value);
    }
    return result;
}

/// Lowers the process's limit of descriptors for as long as it exists.
class FewDescriptors
{
public:
    explicit FewDescriptors(rlim_t limit)
    {
        getrlimit(RLIMIT_NOFILE, &m_before);
        const rlimit few{limit, m_before.rlim_max};
        setrlimit(RLIMIT_NOFILE, &few);
    }
    ~FewDescriptors() { setrlimit(RLIMIT_NOFILE, &m_before); }

private:
    rlimit m_before{};
};

/// The descriptor that would be handed out next.
int nextDescriptor()
{
    const int next = dup(STDIN_FILENO);
    close(next);
    return next;
}

} // namespace

class TestLimits : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        CaptureImgThread::instance()->setPause(true);
        start();
        m_manager.reset();
        QTest::qWait(100); // for the worker threads: their start needs descriptors
    }

    void init()
    {
        recording::reset();
        m_limits = Limits();
        m_limits.message = longestMessage;
        m_limits.tick = 20ms;
    }

    void cleanup()
    {
        m_manager.reset();
        base::Clock::setShared(nullptr);
    }

    void framesThatAreRefused_data()
    {
        const Rows<QByteArray, int, QString> row("bytes", "code", "reason");
        row("not masked", bytes({0x81, 0x0C}) + "bStopPlay4()", 1002, "the frame is not masked");
        row("reserved bit", bytes({0xC1, 0x80, 0, 0, 0, 0}), 1002, "a reserved bit is set");
        row("data opcode", bytes({0x83, 0x80, 0, 0, 0, 0}), 1002, "the opcode is reserved");
        row("control opcode", bytes({0x8B, 0x80, 0, 0, 0, 0}), 1002, "the opcode is reserved");
        row("long ping", RawPage::header(RawPage::fin | RawPage::ping, 126).left(2), 1002,
            "more than 125 bytes");
        row("fragmented ping", RawPage::header(RawPage::ping, 1), 1002, "is fragmented");
        row("header of a long text", RawPage::header(RawPage::fin | RawPage::text, 1001).left(4),
            1009, "the message is too long");
        row("greatest length", bytes({0x82, 0xFF, -1, -1, -1, -1, -1, -1, -1, -1}), 1009,
            "the message is too long");
        row("fragments together",
            RawPage::frame(RawPage::text, QByteArray(600, 'x')) + RawPage::header(0, 401).left(4),
            1009, "the message is too long");
        // QWebSocket's own checks.
        row("a fragment of nothing", RawPage::frame(RawPage::fin, QByteArray(1000, 'x')), 1002, "");
        row("text within a text", RawPage::frame(RawPage::text, "x") + command, 1002, "");
        row("no UTF-8", RawPage::message("\xFF"), 1007, "");
    }

    void framesThatAreRefused()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QString, reason);
        start();
        Page other(port());
        RawPage bad(port());
        QTRY_COMPARE(pages(), 2);
        if (!reason.isEmpty()) {
            expectLine(qPrintable(QStringLiteral("page .*127.0.0.1-%1 is refused.*%2")
                                      .arg(bad.socket().localPort())
                                      .arg(reason)));
        }
        bad.write(command + bytes);
        const QByteArray got = bad.readToTheEnd();
        QVERIFY(got.contains(answer)); // what came before is carried out
        QTEST(RawPage::closeCode(got), "code");
        QTRY_COMPARE(pages(), 1);
        QCOMPARE(recording::count("bStopPlay4"), 2); // the other one: a page has left
        other.send(QStringLiteral("bStopPlay4()"));
        QCOMPARE(other.next(), QString::fromLatin1(answer));
    }

    void aRefusedPageMaySendOn()
    {
        start();
        RawPage bad(port());
        QTRY_COMPARE(pages(), 1);
        expectLine("is refused .1009.");
        bad.write(RawPage::header(RawPage::fin | RawPage::text, 10 << 20));
        bad.write(QByteArray(10 << 20, 'x')); // a page sends its whole message before it listens
        QCOMPARE(RawPage::closeCode(bad.readToTheEnd()), 1009);
        QTRY_COMPARE(pages(), 0);
    }

    void framesInPieces()
    {
        start();
        RawPage page(port());
        QTRY_COMPARE(pages(), 1);
        const QByteArray longest = "bStopPlay4(" + QByteArray(int(longestMessage) - 12, 'x') + ')';
        const QByteArray sent = RawPage::frame(RawPage::text, "bStop")
            + RawPage::frame(RawPage::fin | RawPage::ping, "there?") + RawPage::frame(0, "Play4")
            + RawPage::frame(RawPage::fin, "()") + RawPage::message(longest);
        for (int i = 0; i < sent.size(); ++i) {
            page.write(sent.mid(i, 1));
            QCoreApplication::processEvents();
        }
        const QByteArray got = page.readUpTo(answer + bytes({0x81, answer.size()}) + answer);
        QVERIFY(got.contains("there?"));
        QCOMPARE(recording::count("bStopPlay4"), 2);
    }

    void readsNoFasterThanItHandles()
    {
        m_limits.turn = 0ms; // a frame a turn
        m_limits.readAhead = 1000;
        start();
        RawPage page(port());
        QTRY_COMPARE(pages(), 1);
        const QByteArray ping = RawPage::frame(RawPage::fin | RawPage::ping, QByteArray(100, 'x'));
        page.write(ping.repeated(2000) + command + ping + RawPage::message(QByteArray(900, 'y')));
        qint64 most = 0;
        QVERIFY(waitFor([&] {
            most = qMax(most, received());
            return recording::count("bStopPlay4") > 0;
        }));
        QVERIFY2(most > 0 && most <= 1001, qPrintable(QString::number(most)));
        page.write(command);
        QVERIFY(!page.readUpTo(answer + bytes({0x8A, 100}) + QByteArray(100, 'x')).isEmpty());
        QTRY_COMPARE(recording::count("bStopPlay4"), 2);
    }

    void unfinishedMessagesOfAll()
    {
        m_limits.message = 200 * 1000;
        m_limits.unfinished = 300 * 1000;
        m_limits.unfinishedAlways = 1000;
        start();
        const QByteArray half(100 * 1000, 'x');
        const QByteArray first =
            RawPage::header(RawPage::fin | RawPage::text, 150 * 1000) + "bStopPlay4(" + half;
        const QByteArray rest = QByteArray(150 * 1000 - 12 - half.size(), 'x') + ')';
        const QByteArray fragment = RawPage::frame(RawPage::text, half);
        RawPage a(port());
        RawPage b(port());
        RawPage c(port());
        RawPage d(port());
        QTRY_COMPARE(pages(), 4);
        a.write(first);
        b.write(fragment);
        QTRY_VERIFY(received() > 200 * 1000);
        expectLine("is refused .1009.: unfinished messages of all pages");
        c.write(first);
        QCOMPARE(RawPage::closeCode(c.readToTheEnd()), 1009);
        d.write(command.left(10));
        QTest::qWait(1);
        d.write(command.mid(10));
        QVERIFY(!d.readUpTo(answer).isEmpty());
        a.write(rest);
        QVERIFY(!a.readUpTo(answer).isEmpty());
        b.socket().abort();
        QTRY_COMPARE(pages(), 2);
        // All of it is free again.
        for (RawPage *page : {&a, &d}) {
            page->write(first);
            QTRY_VERIFY(received() > 100 * 1000);
            page->write(rest);
            QVERIFY(!page->readUpTo(answer).isEmpty());
        }
        QTRY_COMPARE(received(), 0);
    }

    void whatTakesTooLong()
    {
        m_limits.handshake = 100ms;
        m_limits.stalledMessage = 100ms;
        start();
        expectLine("is disconnected: no handshake within 0.1 s");
        expectLine("is disconnected: its handshake is longer than 65536 bytes");
        expectLine("is refused .1001.: its message has not gone on");
        Page silent(port()); // may be
        RawPage stalled(port());
        QTRY_COMPARE(pages(), 2);
        stalled.write(command.left(5));
        QTcpSocket nothing;
        nothing.connectToHost(QHostAddress::LocalHost, port());
        QTcpSocket talker;
        talker.connectToHost(QHostAddress::LocalHost, port());
        talker.write("GET / HTTP/1.1\r\nCookie: " + QByteArray(100 * 1000, 'x'));
        for (QTcpSocket *socket : {&nothing, &talker}) {
            QTRY_COMPARE(socket->state(), QAbstractSocket::UnconnectedState);
        }
        QCOMPARE(RawPage::closeCode(stalled.readToTheEnd()), 1001);
        QVERIFY(silent.isConnected());
    }

    void aSlowMessageIsServed()
    {
        base::Clock::setShared(&m_clock);
        start();
        RawPage page(port());
        QTRY_COMPARE(pages(), 1);
        for (int i = 0; i < 3; ++i) {
            page.write(command.mid(i, 1));
            QTRY_COMPARE(received(), qint64(i + 1));
            m_clock.advance(m_limits.stalledMessage * 2 / 3);
            QTest::qWait(50); // some ticks
        }
        page.write(command.mid(3));
        QVERIFY(!page.readUpTo(answer).isEmpty());
    }

    void commandsWaitForAPageThatDoesNotRead()
    {
        m_limits.unreadWait = 1 << 20;
        m_limits.unreadStall = 100ms;
        start();
        Page other(port());
        RawPage page(port());
        QTRY_COMPARE(pages(), 2);
        expectLine("has [23] MiB unread and has read nothing for 0 s: its commands wait");
        recording::answer("sGetBarCode", QByteArray(3 << 20, 'x'));
        constexpr int commands = 10;
        for (int i = 0; i < commands; ++i) {
            page.write(RawPage::message("sGetBarCode(" + QByteArray::number(i) + ")"));
        }
        QTRY_COMPARE(recording::count("sGetBarCode"), 1);
        QTest::qWait(200);
        other.send(QStringLiteral("bStopPlay4()"));
        QCOMPARE(other.next(), QString::fromLatin1(answer));
        QCOMPARE(recording::count("sGetBarCode"), 1);
        recording::answer("sGetBarCode", "last");
        QVERIFY(!page.readUpTo("lastEndsGetBarCode").isEmpty());
        QTRY_COMPARE(recording::count("sGetBarCode"), commands);
        QCOMPARE(recording::calls().last(), QStringLiteral("sGetBarCode(9)"));
    }

    void pagesThatLeaveTooMuchUnread_data()
    {
        const Rows<qint64, qint64, qint64, QString> row("stalled", "most", "ofAll", "line");
        row("reads nothing", 4 << 20, 1 << 30, 1 << 30, "and has read nothing for");
        row("however it reads", 1 << 30, 4 << 20, 1 << 30, "it has . MiB unread");
        row("all together", 1 << 30, 1 << 30, 4 << 20, "all pages have . MiB unread");
    }

    void pagesThatLeaveTooMuchUnread()
    {
        QFETCH(qint64, stalled);
        QFETCH(qint64, most);
        QFETCH(qint64, ofAll);
        QFETCH(QString, line);
        m_limits.unreadWait = stalled / 2;
        m_limits.unreadStalled = stalled;
        m_limits.unreadMost = most;
        m_limits.unreadOfAll = ofAll;
        m_limits.unreadStall = 300ms;
        m_limits.unreadOfAllStall = 300ms;
        start();
        RawPage page(port());
        Page other(port());
        QTRY_COMPARE(pages(), 2);
        const QByteArray text(1 << 20, 'x');
        expectLine(qPrintable(QStringLiteral("page .*-%1 is disconnected: .*%2")
                                  .arg(page.socket().localPort())
                                  .arg(line)));
        for (int i = 0; i < 8; ++i) {
            Q_EMIT CaptureImgThread::instance()->sig_msg(text);
            QCOMPARE(other.next().size(), text.size());
        }
        const bool gone = QTest::qWaitFor([this] { return pages() == 1; }, 1000);
        if (!gone) { // it may be above the limit for as long as nothing more comes
            Q_EMIT CaptureImgThread::instance()->sig_msg(text);
            QTRY_COMPARE(pages(), 1);
            QCOMPARE(other.next().size(), text.size());
        }
        QVERIFY(other.isConnected());
    }

    void othersAreServedBetweenSlowCommands()
    {
        m_limits.turn = 10ms;
        m_limits.farewell = 50ms;
        start();
        Page busy(port());
        Page other(port());
        busy.send(QStringLiteral("bStopPlay4()"));
        busy.next();
        recording::whenCalled("sGetBarCode", [](const QStringList &) { QThread::msleep(20); });
        constexpr int commands = 20;
        for (int i = 0; i < commands; ++i) {
            busy.send(QStringLiteral("sGetBarCode(%1)").arg(i));
        }
        QTRY_VERIFY(recording::count("sGetBarCode") > 0);
        other.send(QStringLiteral("bStopPlay4()"));
        QCOMPARE(other.next(), QString::fromLatin1(answer));
        QVERIFY(recording::count("sGetBarCode") < commands / 2);
        for (int i = 0; i < commands; ++i) {
            QTRY_VERIFY(recording::calls().contains(QStringLiteral("sGetBarCode(%1)").arg(i)));
        }
        QCOMPARE(recording::count("sGetBarCode"), commands);

        // Those of a page that leaves go on for a moment.
        recording::takeCalls();
        for (int i = 0; i < commands; ++i) {
            busy.send(QStringLiteral("sGetBarCode(%1)").arg(i));
        }
        QTRY_VERIFY(recording::count("sGetBarCode") > 0);
        busy.socket().close();
        QTRY_COMPARE(pages(), 1);
        const int done = recording::count("sGetBarCode");
        QVERIFY(done < commands / 2);
        QTest::qWait(100);
        QCOMPARE(recording::count("sGetBarCode"), done);
    }

    void commandsBeforeAGoodbye_data()
    {
        const Rows<QByteArray, bool> row("goodbye", "duringTheFirst");
        const QByteArray close = RawPage::frame(RawPage::fin | RawPage::close, bytes({3, 0xE8}));
        row("close frame", close, false);
        row("none", "", false);
        row("close frame, during a command", close, true);
        row("none, during a command", "", true);
    }

    /// They are carried out, though the first takes longer than a turn, and answered if they can
    /// be.
    void commandsBeforeAGoodbye()
    {
        QFETCH(QByteArray, goodbye);
        QFETCH(bool, duringTheFirst);
        m_limits.turn = 10ms;
        start();
        RawPage page(port());
        QTRY_COMPARE(pages(), 1);
        const QByteArray first = RawPage::message("sGetBarCode(1)");
        const auto leave = [&](const QByteArray &before) {
            page.write(before + RawPage::message("sGetBarCode(2)")
                       + RawPage::message("sGetBarCode(3)") + goodbye);
            page.socket().flush();
            if (goodbye.isEmpty()) { // it still reads, or the kernel would throw away what it sent
                shutdown(int(page.socket().socketDescriptor()), SHUT_WR);
            }
        };
        recording::whenCalled("sGetBarCode", [&](const QStringList &arguments) {
            if (duringTheFirst && arguments.first() == QLatin1String("1")) {
                leave({});
            }
            QThread::msleep(20);
        });
        if (duringTheFirst) {
            page.write(first);
        } else {
            leave(first);
        }
        QTRY_COMPARE(pages(), 0);
        QCOMPARE(recording::count("sGetBarCode"), 3);
        if (!goodbye.isEmpty()) {
            QCOMPARE(page.readUpTo(bytes({3, 0xE8})).count("BeginsGetBarCode"), 3);
        }
    }

    void nothingIsReadWhileTooManyTextsWait()
    {
        m_limits.waitingTexts = 10;
        m_limits.waitingBytesOfAll = 10 * 2 * (14 + 12);
        m_limits.readAhead = 1000;
        start();
        RawPage page(port());
        RawPage leaves(port());
        for (RawPage *one : {&page, &leaves}) {
            one->write(command);
            QVERIFY(!one->readUpTo(answer).isEmpty());
        }
        ClientQueue *queue = m_manager->dispatcher()->clientQueue();
        std::vector<ClientQueue::Hold> holds;
        for (const PageSocket *socket : m_manager->findChildren<PageSocket *>()) {
            holds.push_back(queue->hold(socket->webSocket()));
        }
        constexpr int commands = 1000;
        recording::takeCalls();
        for (int i = 0; i < commands; ++i) {
            page.write(RawPage::message("sGetBarCode(" + QByteArray::number(i) + ")"));
            leaves.write(command);
        }
        QTRY_COMPARE(pausedPages(), 2);
        for (const PageSocket *socket : m_manager->findChildren<PageSocket *>()) {
            QCOMPARE(queue->waitingTexts(socket->webSocket()), 10);
        }
        Page other(port()); // has none that wait
        other.send(QStringLiteral("bStopPlay4()"));
        QCOMPARE(other.next(), QString::fromLatin1(answer));
        QCOMPARE(pausedPages(), 2);
        // It is noticed all the same when the page goes.
        leaves.socket().disconnectFromHost();
        QTRY_COMPARE(pages(), 2);
        QCOMPARE(recording::count("bStopPlay4"), 2);

        recording::takeCalls();
        holds.clear();
        QTRY_COMPARE(recording::count("sGetBarCode"), commands);
        const QStringList calls = recording::calls();
        for (int i = 0; i < commands; ++i) {
            QCOMPARE(calls.at(i), QStringLiteral("sGetBarCode(%1)").arg(i));
        }
        QCOMPARE(pausedPages(), 0);
    }

    void silentPagesMakeRoom_data()
    {
        const Rows<bool> row("descriptors");
        row("descriptors", true);
        row("connections", false);
    }

    void silentPagesMakeRoom()
    {
        QFETCH(bool, descriptors);
        if (descriptors) {
            // Each page needs two: its own end is in this process too.
            m_limits.descriptors =
                PageListener::openDescriptors() + 3 + 2 * 6 + m_limits.descriptorReserve;
        } else {
            m_limits.connections = 6;
        }
        start();
        auto talks = std::make_unique<Page>(port());
        talks->send(QStringLiteral("@"));
        talks->next();
        auto current = std::make_unique<Page>(port());
        current->send(QStringLiteral("bStopPlay4()"));
        current->next();
        RawPage longest(port());
        QTRY_COMPARE(pages(), 3);
        std::vector<std::unique_ptr<Page>> silent;
        expectLine("is disconnected: it makes room for another page");
        while (pages() == 3 + int(silent.size())) {
            silent.push_back(std::make_unique<Page>(port()));
            QVERIFY(silent.back()->isConnected());
            QVERIFY(silent.size() < 20);
            QCoreApplication::processEvents();
        }
        QCOMPARE(RawPage::closeCode(longest.readToTheEnd()), 1013);
        for (const auto &page : silent) {
            QVERIFY(page->isConnected());
        }
        const int most = pages();
        for (int i = 0; i < 6; ++i) { // each takes the place, and the descriptor, of an older one
            silent.push_back(std::make_unique<Page>(port()));
        }
        QTRY_COMPARE(pages(), most);
        QVERIFY(talks->isConnected());
        QVERIFY(current->isConnected());
    }

    void withoutDescriptors()
    {
        m_limits.logLinesPerSecond = 1000000;
        start();
        static int lines;
        lines = 0;
        const auto before =
            qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &text) {
                lines += text.contains(QLatin1String("can't accept a connection")) ? 1 : 0;
            });
        QTcpSocket page;
        page.connectToHost(QHostAddress::LocalHost, port());
        {
            const FewDescriptors none{rlim_t(nextDescriptor())};
            QTRY_COMPARE(page.state(), QAbstractSocket::ConnectedState);
            QTest::qWait(100);
            QCOMPARE(m_manager->findChildren<PageSocket *>().size(), 0);
        }
        qInstallMessageHandler(before);
        QVERIFY2(lines > 0 && lines < 300, qPrintable(QString::number(lines))); // one a tick
        QTRY_COMPARE(m_manager->findChildren<PageSocket *>().size(), 1);
        QVERIFY(Page(port()).isConnected());
    }

    void theLimitOfDescriptorsIsRaised()
    {
        rlimit before{};
        getrlimit(RLIMIT_NOFILE, &before);
        const FewDescriptors few(200);
        const quint64 expected = qMin(quint64(before.rlim_max), quint64(65536));
        QCOMPARE(raiseDescriptorLimit(), expected);
        rlimit raised{};
        getrlimit(RLIMIT_NOFILE, &raised);
        QCOMPARE(quint64(raised.rlim_cur), expected);
        QCOMPARE(raised.rlim_max, before.rlim_max);
        const rlimit many{65537, qMax<rlim_t>(before.rlim_max, 65537)};
        if (setrlimit(RLIMIT_NOFILE, &many) == 0) { // more isn't taken away
            QCOMPARE(raiseDescriptorLimit(), quint64(65537));
        }
    }

    void anUploadHoldsItsPageOnly_data()
    {
        const Rows<QString, QString> row("function", "command");
        row("sUpLoadImage", "sUpLoadImage", "sUpLoadImage(a,b)");
        row("sUpLoadImageEx6", "sUpLoadImage", "sUpLoadImageEx6(a,b)");
        row("sUpLoadImageEx2", "sUpLoadImageEx2", "sUpLoadImageEx2(a,b,1,d)");
        row("bUpLoadImage", "bUpLoadImage", "bUpLoadImage(a,b,1,d)");
    }

    void anUploadHoldsItsPageOnly()
    {
        QFETCH(QString, command);
        QFETCH(QString, function);
        const QByteArray called = function.toLatin1();
        start();
        Page asks(port());
        Page other(port());
        recording::answer(called, true);
        recording::hold(called);
        asks.send(command);
        asks.send(QStringLiteral("@"));
        asks.send(QStringLiteral("bStopPlay4()"));
        QTRY_VERIFY(recording::count(called) == 1);
        other.send(QStringLiteral("bStopPlay4()"));
        QCOMPARE(other.next(), QString::fromLatin1(answer));
        recording::release(called);
        const QString name = command.section(QLatin1Char('('), 0, 0);
        QCOMPARE(asks.next(), MessageRun::framed(name, QStringLiteral("true")));
        QCOMPARE(asks.next(), QString());
        QCOMPARE(asks.next(), QString::fromLatin1(answer));
        QCOMPARE(recording::count("bStopPlay4"), 2);

        recording::hold(called);
        asks.send(command);
        asks.send(QStringLiteral("sGetBarCode(1)"));
        QTRY_VERIFY(recording::count(called) == 2);
        asks.socket().abort();
        QTRY_COMPARE(pages(), 1);
        recording::release(called);
        other.send(command);
        QCOMPARE(other.next(), MessageRun::framed(name, QStringLiteral("true")));
        QVERIFY(other.received().isEmpty());
        QCOMPARE(recording::count("sGetBarCode"), 0);
    }

    void silentUploadsHoldUpNobody()
    {
        start();
        Page silent(port());
        Page other(port());
        const QString upload = QStringLiteral("sUpLoadImageEx5(a,b,1,d,0,f,g,0,0)");
        recording::hold("sUpLoadImageEx5");
        for (int i = 1; i < UploadPool::threadsOfClient + UploadPool::waitingUploads; ++i) {
            silent.send(upload);
        }
        silent.send(QStringLiteral("@"));
        QCOMPARE(silent.next(), QString::fromLatin1(""));
        int dropped = 0;
        expectLine("^upload: refused, 1000 uploads wait already");
        for (int i = 0; i < 2; ++i) { // the last that may wait, and one more
            UploadPool::instance().start(
                gpWebSocket, [] {}, [&dropped](bool ran) { dropped += ran ? 0 : 1; });
        }
        QTRY_COMPARE(dropped, 1);
        QTRY_COMPARE(recording::count("sUpLoadImageEx5"), UploadPool::threadsOfClient);
        recording::answer("bUpLoadImage", true);
        other.send(QStringLiteral("bUpLoadImage(a,b,1,d)"));
        QCOMPARE(other.next(), QStringLiteral("BeginbUpLoadImagetrueEndbUpLoadImage"));
        // Those that wait are not begun for a page that has gone.
        silent.socket().abort();
        QTRY_COMPARE(pages(), 1);
        recording::release("sUpLoadImageEx5");
        QTRY_COMPARE(dropped, 2);
        recording::hold("sUpLoadImageEx5");
        for (int i = 0; i < UploadPool::threads; ++i) {
            other.send(upload);
        }
        QTRY_COMPARE(recording::count("sUpLoadImageEx5"), 2 * UploadPool::threadsOfClient);
        recording::release("sUpLoadImageEx5");
        for (int i = 0; i < UploadPool::threads; ++i) {
            QVERIFY(!other.next().isNull());
        }
        QCOMPARE(recording::count("sUpLoadImageEx5"),
                 UploadPool::threadsOfClient + UploadPool::threads);
    }

    void everyThreadCanUpload()
    {
        QSemaphore begun;
        QSemaphore mayEnd;
        int ended = 0;
        std::vector<QObject> clients(UploadPool::threads + 1);
        for (QObject &client : clients) {
            UploadPool::instance().start(
                &client,
                [&] {
                    begun.release();
                    mayEnd.acquire();
                },
                [&ended](bool ran) { ended += ran ? 1 : 0; });
        }
        QTRY_COMPARE(begun.available(), UploadPool::threads);
        mayEnd.release(UploadPool::threads + 1);
        QTRY_COMPARE(ended, UploadPool::threads + 1);
    }

    void refusalsDoNotFillTheLog()
    {
        base::Clock::setShared(&m_clock);
        RefusalLog log("transport", 2);
        for (const char *line :
             {"^transport: first", "^transport: second",
              "^transport: 3 more lines like these were left out", "^transport: next"}) {
            expectLine(line);
        }
        log.write(QStringLiteral("first"));
        log.write(QStringLiteral("second"));
        for (int i = 0; i < 3; ++i) {
            log.write(QStringLiteral("unexpected"));
        }
        m_clock.advance(1s);
        log.flush();
        log.flush();
        log.write(QStringLiteral("next"));
    }

private:
    void start()
    {
        m_manager = std::make_unique<WebSocketServerManager>(QStringLiteral("test"),
                                                             QWebSocketServer::NonSecureMode);
        m_manager->setLimits(m_limits);
        m_manager->websocke_server_start(QHostAddress::Any, 0);
        QVERIFY(m_manager->running());
    }

    quint16 port() const { return m_manager->port(); }

    int pages() const { return m_manager->findChildren<ClientLink *>().size(); }

    int pausedPages() const
    {
        const auto sockets = m_manager->findChildren<PageSocket *>();
        return int(std::count_if(sockets.begin(), sockets.end(),
                                 [](const PageSocket *socket) { return socket->isPaused(); }));
    }

    /// Bytes of unfinished frames that have come from all pages.
    qint64 received() const
    {
        qint64 sum = 0;
        for (const PageSocket *socket : m_manager->findChildren<PageSocket *>()) {
            sum += socket->unfinishedBytes();
        }
        return sum;
    }

    ManualClock m_clock;
    Limits m_limits;
    std::unique_ptr<WebSocketServerManager> m_manager;
};

QTEST_GUILESS_MAIN(TestLimits)
#include "tst_limits.moc"
