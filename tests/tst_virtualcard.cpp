// SPDX-License-Identifier: MIT
// Cards through the real PC/SC service and its virtual reader (Debian's vsmartcard-vpcd), whose
// card is a TCP client. Skipped where pcscd and that reader aren't installed or can't be started.
#include "portable/card/cardreaders.h"
#include "tests/portabletest.h"
#include "tests/scriptedcard.h"

#include <QTcpServer>
#include <QTcpSocket>
#include <QtTest>
#include <unistd.h>

#include <atomic>
#include <thread>

using namespace portable;

namespace {

constexpr quint16 readerPort = 35963;

/// A card on the virtual reader while the object lives; responds on a thread of its own.
class VirtualCard
{
public:
    /// \param atr  its answer to reset, in hexadecimal digits
    VirtualCard(CardScript script, const QByteArray &atr)
        : m_script(std::move(script))
        , m_atr(QByteArray::fromHex(atr))
        , m_thread([this] { run(); })
    {
    }
    ~VirtualCard()
    {
        m_isPulled = true;
        m_thread.join();
    }

private:
    // Messages in both directions: two bytes of length, then data. A single byte from the reader is
    // a control code: 0 power off, 1 power on, 2 reset, 4 get ATR.
    void run()
    {
        QTcpSocket socket;
        socket.connectToHost(QStringLiteral("127.0.0.1"), readerPort);
        socket.waitForConnected(1000);
        while (!m_isPulled) {
            if (socket.bytesAvailable() < 2 && !socket.waitForReadyRead(20)) {
                continue;
            }
            const QByteArray message = read(socket, length(read(socket, 2)));
            if (message == "\x04") {
                write(socket, m_atr);
            } else if (message.size() > 1) {
                write(socket, m_script.responseTo(message));
            }
        }
    }

    static int length(const QByteArray &bytes) { return quint8(bytes[0]) << 8 | quint8(bytes[1]); }

    QByteArray read(QTcpSocket &socket, int size)
    {
        while (socket.bytesAvailable() < size && !m_isPulled) {
            socket.waitForReadyRead(20);
        }
        return socket.read(size).leftJustified(size, '\0');
    }

    static void write(QTcpSocket &socket, const QByteArray &data)
    {
        socket.write(QByteArray(1, char(data.size() >> 8)) + char(data.size()) + data);
        socket.flush();
    }

    const CardScript m_script;
    const QByteArray m_atr;
    std::atomic<bool> m_isPulled{false};
    std::thread m_thread;
};

} // namespace

class TestVirtualCard : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        m_folder = std::make_unique<QTemporaryDir>();
        useReader("pcsc");
        m_readers = std::make_unique<CardReaders>(
            [this](const QString &name) { return m_folder->filePath(name); },
            std::make_unique<PcscCards>(), &CardModules::usualPorts);

        QString reason;
        if (!PcscCards().hasReader({}, &reason)) {
            withoutReader();
            startService();
        } else if (QTcpServer().listen(QHostAddress::Any, readerPort)) {
            QSKIP("pcscd runs without the virtual reader (vsmartcard-vpcd)");
        }
    }

    void init()
    {
        m_log = std::make_unique<PortableLog>();
        QTRY_COMPARE(m_readers->read(CardKind::Bank).status, CardStatus::NoCard);
    }

    void cleanup() { m_log.reset(); }

    void cleanupTestCase()
    {
        m_service.terminate();
        m_service.waitForFinished(5000);
        if (m_service.processId() != 0) {
            m_service.kill();
            m_service.waitForFinished();
        }
    }

    void bankCards()
    {
        {
            const VirtualCard card(contactBankCard(), "3B800181");
            QCOMPARE(number(CardKind::Bank), QStringLiteral("0000001234567897"));
            QCOMPARE(m_readers->readSerial(CardKind::Ic).toHex(), QByteArray("04a1b2c3d4e580"));
            QVERIFY(m_readers->isConnected() && m_readers->openUsb());
            QCOMPARE(m_readers->read(CardKind::SocialSecurity).status, CardStatus::Unreadable);
        }
        const VirtualCard card(contactlessBankCard(), "3B80800101");
        QCOMPARE(number(CardKind::Bank), QStringLiteral("0000001234567890123"));
        QCOMPARE(m_readers->readSerial(CardKind::Identity).toHex(), QByteArray("0011223344"));
    }

    void readerByName()
    {
        const VirtualCard card(contactBankCard(), "3B800181");
        useReader("virtual pcd 00 00");
        QCOMPARE(number(CardKind::Bank), QStringLiteral("0000001234567897"));
        for (const char *name : {"Virtual PCD 00 01", "absent"}) {
            useReader(name);
            PortableLog::takeLines();
            QVERIFY(!m_readers->read(CardKind::Bank).isRead());
            QCOMPARE(PortableLog::lines().size(), 1);
        }
        QVERIFY2(PortableLog::lines().first().contains(QLatin1String("00 00")),
                 qPrintable(PortableLog::lines().first())); // what there is instead
        useReader("pcsc");
    }

    void socialSecurityCards()
    {
        const VirtualCard card(socialSecurityCard(), "3B800181");
        QCOMPARE(number(CardKind::SocialSecurity), QStringLiteral("000000199512310016"));
    }

    /// Pulled out at different moments of a read, which takes about 400 ms here.
    void cardIsPulled()
    {
        for (int wait = 0; wait < 400; wait += 100) {
            auto card = std::make_unique<VirtualCard>(contactBankCard(), "3B800181");
            QTRY_VERIFY_WITH_TIMEOUT(m_readers->read(CardKind::Bank).isRead(), 30000);
            std::thread hand([&] {
                std::this_thread::sleep_for(std::chrono::milliseconds(wait));
                card.reset();
            });
            m_readers->read(CardKind::Bank); // returns, with whatever result
            hand.join();
            QTRY_COMPARE_WITH_TIMEOUT(m_readers->read(CardKind::Bank).status, CardStatus::NoCard,
                                      30000);
        }
    }

private:
    /// The number on the card, which the reader needs a moment to notice.
    QString number(CardKind kind)
    {
        const auto read = [&] {
            return m_readers->read(kind).fields.value(QLatin1String("number")).toString();
        };
        QString result = read();
        for (int tries = 0; tries < 100 && result.isEmpty(); ++tries) {
            QTest::qWait(50);
            result = read();
        }
        return result;
    }

    void useReader(const QByteArray &reader)
    {
        // Longer each time: see TestPortableCards::writeIni().
        writeFile(m_folder->filePath(QStringLiteral("devices.ini")),
                  "[cards]\nreader=" + reader + QByteArray(++m_edits * 50, '\n'));
    }

    void startService()
    {
        const QString service = QStringLiteral("/usr/sbin/pcscd");
        if (!QFile::exists(service) || !QFile::exists(QStringLiteral("/etc/reader.conf.d/vpcd"))) {
            QSKIP("pcscd and vsmartcard-vpcd aren't installed");
        }
        if (::geteuid() != 0) {
            QSKIP("pcscd isn't running, and only root can start it");
        }
        QVERIFY(QDir().mkpath(QStringLiteral("/run/pcscd")));
        m_service.start(service, {QStringLiteral("--foreground")});
        QString reason;
        if (!QTest::qWaitFor([&] { return PcscCards().hasReader({}, &reason); }, 5000)) {
            QSKIP(qPrintable(QStringLiteral("pcscd doesn't run here: ") + reason));
        }
    }

    /// Without the service a read fails at once, with the reason in the log.
    void withoutReader()
    {
        const PortableLog log;
        QElapsedTimer timer;
        timer.start();
        QCOMPARE(m_readers->read(CardKind::Bank).status, CardStatus::NoReader);
        QVERIFY(timer.elapsed() < 2000);
        QCOMPARE(log.takeLines().size(), 1);
    }

    std::unique_ptr<PortableLog> m_log;
    std::unique_ptr<QTemporaryDir> m_folder;
    std::unique_ptr<CardReaders> m_readers;
    QProcess m_service;
    int m_edits = 0; // of devices.ini
};

QTEST_GUILESS_MAIN(TestVirtualCard)
#include "tst_virtualcard.moc"
