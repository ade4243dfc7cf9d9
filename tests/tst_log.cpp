// SPDX-License-Identifier: MIT
#include "log/qlog.h"
#include "log/qlogtonet.h"
#include "log/trace.h"
#include "tests/fulldisk.h"
#include "tests/rows.h"
#include "tests/textstreamlog.h"

#include <QCoreApplication>
#include <QDir>
#include <QHostAddress>
#include <QProcess>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTextCodec>
#include <QtTest>
#include <sys/stat.h>

#include <atomic>
#include <cstring>
#include <memory>
#include <random>
#include <thread>
#include <vector>

namespace {

constexpr int defaultMaxLogSize = 50 * 1024 * 1024;
const char *const printAtExitOption = "--print-at-exit";

void print(const QString &text)
{
    qInfo().nospace().noquote() << text;
}

qint64 msecs(const QString &localTime)
{
    return QDateTime::fromString(localTime, Qt::ISODateWithMs).toMSecsSinceEpoch();
}

QByteArray content(const QString &path)
{
    QFile file(path);
    return file.open(QFile::ReadOnly) ? file.readAll() : QByteArray("(no such file)");
}

quint16 freePort()
{
    QTcpServer server;
    server.listen(QHostAddress::AnyIPv4);
    return server.serverPort();
}

bool isFree(quint16 port)
{
    return QTcpServer().listen(QHostAddress::AnyIPv4, port);
}

/// A listener of the network log that keeps what it receives.
class Listener : public QTcpSocket
{
public:
    Listener()
    {
        connect(this, &QTcpSocket::readyRead, this, [this] { m_heard += readAll(); });
    }

    bool join(quint16 port)
    {
        connectToHost(QHostAddress::LocalHost, port);
        return waitForConnected(5000);
    }
    /// Stops reading, so the socket and then the kernel's buffers fill up.
    void stall()
    {
        disconnect(this, &QTcpSocket::readyRead, this, nullptr);
        setReadBufferSize(1);
    }
    const QByteArray &heard() const { return m_heard; }

private:
    QByteArray m_heard;
};

} // namespace

class TestLog : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        m_log = QLog::instance();
        QCOMPARE(QLog::instance(), m_log);
        QCOMPARE(m_log->netPort(), quint16(34353));
        QCOMPARE(m_log->saveDay(), quint16(30));
        QCOMPARE(m_log->maxLogSize(), defaultMaxLogSize);
    }

    void init()
    {
        m_folder = std::make_unique<QTemporaryDir>();
        QVERIFY(m_folder->isValid());
        m_log->setLogPath(m_folder->path());
        m_log->setMaxLogSize(defaultMaxLogSize);
        m_log->setSaveDay(30);
        m_log->setFreeSpace([](const QString &) { return QLog::minFreeBytes; });
        m_log->setPort(freePort());
    }

    void cleanup()
    {
        m_log->handler({});
        m_log->setClock({});
        m_log->setFreeSpace({});
    }

    void folderBesideTheProgramExistsFromTheStart()
    {
        QVERIFY(QFileInfo(QCoreApplication::applicationDirPath() + QStringLiteral("/log")).isDir());
    }

    void withoutFlagsMessagesAreQts()
    {
        static QStringList messages;
        messages.clear();
        m_log->handler(QLog::LogToFile);
        print(QStringLiteral("mine"));
        m_log->handler({});
        const QtMessageHandler before = qInstallMessageHandler(
            [](QtMsgType, const QMessageLogContext &, const QString &text) { messages << text; });
        m_log->handler({}); // no change of flags, so the handler is left alone
        print(QStringLiteral("Qt's"));
        qInstallMessageHandler(before);
        QCOMPARE(messages, QStringList{QStringLiteral("Qt's")});
        QCOMPARE(today(), QByteArray("mine\n"));
    }

    void everyTypeOfMessageIsOneBareLine()
    {
        m_log->handler(QLog::LogToFile);
        qDebug("debug %%1");
        qInfo("info");
        qWarning("系统启动");
        qCritical("%s", "");
        QCOMPARE(today(), QByteArray("debug %1\ninfo\n系统启动\n\n"));
    }

    void eachDayHasItsFile()
    {
        setTime(QStringLiteral("2022-11-17T23:59:59.999"));
        m_log->handler(QLog::LogToFile);
        print(QStringLiteral("late"));
        setTime(QStringLiteral("2022-11-18T00:00:00.000"));
        print(QStringLiteral("early"));
        m_now += 24 * 3600 * 1000 - 1;
        print(QStringLiteral("late again"));
        m_now -= 24 * 3600 * 1000; // the clock is set back
        print(QStringLiteral("back"));
        QCOMPARE(content(filePath(QStringLiteral("2022-11-17"))), QByteArray("late\nback\n"));
        QCOMPARE(content(filePath(QStringLiteral("2022-11-18"))),
                 QByteArray("early\nlate again\n"));
    }

    void localEncodingIsUsed()
    {
        QTextCodec *const before = QTextCodec::codecForLocale();
        QTextCodec *const gbk = QTextCodec::codecForName("GBK");
        QTextCodec::setCodecForLocale(gbk);
        m_log->handler(QLog::LogToFile);
        print(QStringLiteral("系统启动"));
        QTextCodec::setCodecForLocale(before);
        QCOMPARE(today(), gbk->fromUnicode(QStringLiteral("系统启动\n")));
    }

    void secondRotationOfASecondWaits()
    {
        setTime(QStringLiteral("2022-11-17T11:28:11.000"));
        m_log->setMaxLogSize(5);
        m_log->handler(QLog::LogToFile);
        print(QStringLiteral("first"));
        print(QStringLiteral("second")); // finds 6 bytes
        print(QStringLiteral("third"));
        m_now += 999;
        print(QStringLiteral("fourth")); // finds 6 bytes, but the name is taken
        QCOMPARE(files(),
                 (QStringList{QStringLiteral("vx_log_2022-11-17-112811.txt"),
                              QStringLiteral("vx_log_2022-11-17.txt")}));
        m_now += 1;
        print(QStringLiteral("fifth"));
        QCOMPARE(content(filePath(QStringLiteral("2022-11-17-112811"))),
                 QByteArray("first\nsecond\n"));
        QCOMPARE(content(filePath(QStringLiteral("2022-11-17-112812"))),
                 QByteArray("third\nfourth\nfifth\n"));
        QVERIFY(!QFile::exists(filePath(QStringLiteral("2022-11-17"))));
    }

    void filesAreThoseOfATextStream_data()
    {
        const Rows<QByteArray, int, int> row("codecName", "maxSize", "lines");
        // clang-format off
        row("UTF-8",                   "UTF-8",       40000, 3000);
        row("GBK",                     "GBK",         40000, 3000);
        row("an encoding with states", "ISO-2022-JP", 40000, 3000);
        row("a rotation at each line", "UTF-8",       -1,    300);
        // clang-format on
    }

    void filesAreThoseOfATextStream()
    {
        QFETCH(const QByteArray, codecName);
        QFETCH(const int, maxSize);
        QFETCH(const int, lines);
        QTextCodec *const before = QTextCodec::codecForLocale();
        QTextCodec::setCodecForLocale(QTextCodec::codecForName(codecName));
        setTime(QStringLiteral("2022-11-17T20:00:00.000"));
        const QTemporaryDir otherFolder;
        TextStreamLog other(otherFolder.path(), maxSize, [this] { return m_now.load(); });
        m_log->setMaxLogSize(maxSize);
        m_log->handler(QLog::LogToFile);

        const QString letters = QStringLiteral("bSaveJPG(/tmp,柜台扫描)é𠀀") + QChar(0)
            + QStringLiteral("\n") + QChar(0xd840); // half a character last
        // A text stream buffers 16384 characters before it writes to the file.
        const std::vector<int> lengths{0, 1, 60, 300, 4000, 16382, 16383, 16384, 16385, 30000};
        const std::vector<int> weights{2, 2, 60, 20, 6, 1, 2, 2, 2, 3};
        std::mt19937 random(7);
        std::discrete_distribution<std::size_t> kind(weights.begin(), weights.end());
        for (int line = 0; line < lines; ++line) {
            QString text;
            const int length = lengths[kind(random)];
            for (int i = int(random() % 7); text.size() < length; ++i) {
                text += letters[i % letters.size()];
            }
            const QString name = QDateTime::fromMSecsSinceEpoch(m_now).toString(
                QStringLiteral("'vx_log_'yyyy-MM-dd'.txt'"));
            other.write(text);
            print(text);
            QVERIFY2(QFileInfo(m_folder->filePath(name)).size()
                         == QFileInfo(otherFolder.filePath(name)).size(),
                     qPrintable(QString::number(line)));
            m_now += random() % 8 ? 7300 : 90; // past midnight; some within one second
        }
        QTextCodec::setCodecForLocale(before);

        const QStringList names = files();
        QVERIFY2(names.size() > 100, qPrintable(QString::number(names.size())));
        QCOMPARE(names, QDir(otherFolder.path()).entryList(QDir::Files, QDir::Name));
        for (const QString &name : names) {
            QVERIFY2(content(m_folder->filePath(name)) == content(otherFolder.filePath(name)),
                     qPrintable(name));
        }
    }

    void longTexts_data()
    {
        constexpr int mebibyte = 1024 * 1024;
        const auto quoted = [](const char *character, int count) -> QByteArray {
            return '"' + QByteArray(character).repeated(count) + '"';
        };
        const Rows<QString, QByteArray> row("text", "expected");
        row("a mebibyte", QString(mebibyte, u'A'), quoted("A", mebibyte));
        row("one more", QString(mebibyte + 1, u'A'),
            quoted("A", 65536) + " ... the beginning of 1048577 characters");
        row("characters of two bytes", QString(600000, u'é'),
            quoted("é", 32768) + " ... the beginning of 600000 characters");
        row("of three bytes", QString(400000, QChar(0x800)),
            quoted("\u0800", 21845) + " ... the beginning of 400000 characters");
        row("whole characters only",
            QLatin1Char('A') + QString::fromUtf8("𠀀").repeated(16384) + QString(1200000, u'B'),
            "\"A" + QByteArray("𠀀").repeated(16383)
                + "\" ... the beginning of 1232769 characters");
        row("escaped characters", QString(200000, QChar(1)),
            quoted("\\u0001", 65536) + " ... the beginning of 200000 characters");
    }

    void longTexts()
    {
        QFETCH(const QString, text);
        QFETCH(const QByteArray, expected);
        m_log->handler(QLog::LogToFile);
        qDebug() << LongText(text);
        QVERIFY(today() == expected + '\n');
    }

    void longLines()
    {
        m_log->setMaxLogSize(16384);
        m_log->handler(QLog::LogToFile);
        print(QString(16384, u'x')); // and a line end: the next line goes to the next file
        QCOMPARE(today(), QByteArray("(no such file)"));
        m_log->setMaxLogSize(defaultMaxLogSize);
        print(QString(1500000, u'x'));
        QVERIFY(today()
                == QByteArray(65536, 'x')
                    + "... (the beginning of a line of 1500000 characters)\n");
    }

    void dataOfDevicesIsNotLogged()
    {
        QCOMPARE(withoutData(QStringLiteral("-1"), 5), QStringLiteral("-1"));
        QCOMPARE(withoutData(QStringLiteral("Zm9vYg"), 5),
                 QStringLiteral("(6 characters, not logged)"));
    }

    void filesAreForThisUserOnly()
    {
        const mode_t before = umask(0);
        const QString folder = m_folder->filePath(QStringLiteral("a/private"));
        m_log->setLogPath(folder);
        const auto modes = [](const QString &path) {
            return QFile::permissions(path)
                & (QFile::ReadGroup | QFile::WriteGroup | QFile::ExeGroup | QFile::ReadOther
                   | QFile::WriteOther | QFile::ExeOther);
        };
        QCOMPARE(int(modes(folder)), 0);
        m_log->handler(QLog::LogToFile);
        print(QStringLiteral("new"));
        setTime(QStringLiteral("2022-11-17T10:00:00.000"));
        const QString old = folder + QStringLiteral("/vx_log_2022-11-17.txt");
        QVERIFY(QFile(old).open(QFile::WriteOnly)); // for everybody, as earlier versions made it
        QVERIFY(modes(old) != 0);
        print(QStringLiteral("old"));
        QCOMPARE(content(old), QByteArray("old\n"));
        const QFileInfoList all = QDir(folder).entryInfoList(QDir::Files);
        QCOMPARE(all.size(), 2);
        for (const QFileInfo &file : all) {
            QCOMPARE(int(modes(file.filePath())), 0);
        }
        umask(before);
    }

    void stopsWhileTheDiskIsAlmostFull()
    {
        qint64 space = QLog::minFreeBytes;
        int checks = 0;
        m_log->setFreeSpace([&](const QString &folder) {
            ++checks;
            return folder == m_folder->path() ? space : 0;
        });
        setTime(QStringLiteral("2022-11-17T11:28:00.000"));
        QSignalSpy spy(m_log, &QLog::sig_newLog);
        m_log->handler(QLog::LogToFile | QLog::LogToSignal);
        print(QStringLiteral("one"));
        space -= 1;
        print(QStringLiteral("two")); // within the same second
        m_now += 1000;
        print(QStringLiteral("three"));
        print(QStringLiteral("four"));
        m_now += 1000;
        print(QStringLiteral("five"));
        space += 1;
        print(QStringLiteral("six"));
        m_now += 1000;
        print(QStringLiteral("seven"));
        QCOMPARE(
            content(filePath(QStringLiteral("2022-11-17"))),
            QByteArray("one\ntwo\n"
                       "[2022-11-17 11:28:01] log: stopped, the disk has less than 256 MB free\n"
                       "[2022-11-17 11:28:03] log: goes on, the disk has space again; "
                       "4 lines are missing\nseven\n"));
        QCOMPARE(checks, 4); // one a second
        QCOMPARE(spy.size(), 7);

        // Much can be written in a second.
        print(QString(1024 * 1024, u'x'));
        space = 0;
        print(QStringLiteral("eight"));
        QVERIFY(content(filePath(QStringLiteral("2022-11-17"))).endsWith("256 MB free\n"));

        m_log->setFreeSpace({}); // what the disk says
        const FullDisk full(QLog::minFreeBytes - 1);
        print(QStringLiteral("nine"));
        QCOMPARE(content(filePath(QStringLiteral("2022-11-17"))).count("256 MB free\n"), 3);
    }

    void fileTruncatedFromOutsideIsNoticed()
    {
        setTime(QStringLiteral("2022-11-17T11:28:00.000"));
        m_log->setMaxLogSize(10);
        m_log->handler(QLog::LogToFile);
        print(QStringLiteral("0123456789"));
        QVERIFY(QFile::resize(filePath(QStringLiteral("2022-11-17")), 0));
        m_now += 60000;
        print(QStringLiteral("short"));
        QCOMPARE(content(filePath(QStringLiteral("2022-11-17"))), QByteArray("short\n"));
    }

    void oldFilesAreDeleted_data()
    {
        const QStringList ours{QStringLiteral("vx_log_2022-11-17.txt"),
                               QStringLiteral("vx_log_2022-11-17-112811.txt"),
                               QStringLiteral("old vx.txt")};
        const QStringList others{QStringLiteral("VX.txt"), QStringLiteral("notes.txt"),
                                 QStringLiteral("vx.log")};
        const QStringList one{ours.first()};
        const Rows<QStringList, int, int, int, QStringList> row("names", "saveDay", "ageInDays",
                                                                "ageInMsecs", "left");
        // clang-format off
        //            what                                            names           keep  age       left
        row("fewer files than days: none", ours,          4, 40, 0,  ours);
        row("as many files as days: all old ones", ours,          3, 40, 0,  QStringList());
        row("other .txt files count but stay", ours + others, 5, 40, 0,  others);
        row("other extensions don't count",       ours + others, 6, 40, 0,  ours + others);
        row("recent ones stay",                  ours,          2, 1,  0,  ours);
        row("exactly that many days old",                 one,           1, 1,  0,  QStringList());
        row("a millisecond younger",     one,           1, 1,  -1, one);
        row("no retention",                        ours + others, 0, 0,  0,  others);
        // clang-format on
    }

    void oldFilesAreDeleted()
    {
        QFETCH(const QStringList, names);
        QFETCH(const int, saveDay);
        QFETCH(const int, ageInDays);
        QFETCH(const int, ageInMsecs);
        QFETCH(QStringList, left);
        createFiles(names);
        const QFileInfo last(m_folder->filePath(names.first()));
        const QDateTime created =
            last.birthTime().isValid() ? last.birthTime() : last.metadataChangeTime();
        const bool several = names.size() > 1; // created within some milliseconds
        m_log->setClock([&] {
            return created.addDays(ageInDays)
                .addMSecs(ageInMsecs + (several ? 60000 : 0))
                .toMSecsSinceEpoch();
        });
        m_log->setSaveDay(quint16(saveDay));
        m_log->autoDeleteLog();
        left.sort();
        QCOMPARE(files(), left);
    }

    void dayChangeDeletesOldFilesOnce()
    {
        const QStringList old{QStringLiteral("vx1.txt"), QStringLiteral("vx2.txt")};
        m_now = QDateTime(QDate::currentDate().addDays(40), QTime(23, 59, 59)).toMSecsSinceEpoch();
        m_log->setClock([this] { return m_now.load(); });
        m_log->setSaveDay(2);
        m_log->handler(QLog::LogToFile);
        print(QStringLiteral("before"));
        createFiles(old);
        print(QStringLiteral("still before"));
        QCOMPARE(files().size(), 3);
        m_now += 1000;
        print(QStringLiteral("after"));
        QCOMPARE(files().size(), 1); // yesterday's file was really created now, 40 days earlier
        createFiles(old);
        m_now += 3600 * 1000;
        print(QStringLiteral("long after"));
        QCOMPARE(files().size(), 3);
    }

    void newFolderTakesTheNextLine()
    {
        m_log->handler(QLog::LogToFile);
        print(QStringLiteral("here"));
        m_log->setLogPath(m_folder->filePath(QStringLiteral("a/b")));
        print(QStringLiteral("there"));
        QCOMPARE(today(), QByteArray("there\n"));
        m_log->setLogPath(m_folder->path());
        print(QStringLiteral("here again"));
        QCOMPARE(today(), QByteArray("here\nhere again\n"));
    }

    void unwritableFolderLosesNoLaterLines()
    {
        createFiles({QStringLiteral("file")});
        m_log->setLogPath(m_folder->filePath(QStringLiteral("file/log")));
        m_log->handler(QLog::LogToFile);
        print(QStringLiteral("(this line belongs on standard error)"));
        m_log->setLogPath(m_folder->path());
        print(QStringLiteral("logged again"));
        QCOMPARE(today(), QByteArray("logged again\n"));
    }

    void signalPassesMessagesOn()
    {
        QSignalSpy spy(m_log, &QLog::sig_newLog);
        m_log->handler(QLog::LogToSignal);
        print(QStringLiteral("柜台"));
        QCOMPARE(spy.count(), 1);
        QCOMPARE(spy.first().first().toString(), QStringLiteral("柜台"));
        QVERIFY(files().isEmpty());
    }

    void printingWhileLoggingIsDropped()
    {
        const QObject context;
        connect(m_log, &QLog::sig_newLog, &context,
                [] { qWarning("(from a slot: not in the log)"); });
        m_log->setClock([] {
            qWarning("(from a function of the log: not in the log)");
            return QDateTime::currentMSecsSinceEpoch();
        });
        m_log->handler(QLog::LogToFile | QLog::LogToSignal);
        print(QStringLiteral("one"));
        m_log->autoDeleteLog();
        print(QStringLiteral("two"));
        QCOMPARE(today(), QByteArray("one\ntwo\n"));
    }

    void slotMayChangeTheLog()
    {
        const QObject context;
        connect(m_log, &QLog::sig_newLog, &context, [this] {
            m_log->setMaxLogSize(m_log->maxLogSize() + 1);
            m_log->handler({});
        });
        m_log->handler(QLog::LogToFile | QLog::LogToSignal);
        print(QStringLiteral("one"));
        QCOMPARE(m_log->maxLogSize(), defaultMaxLogSize + 1);
        QCOMPARE(today(), QByteArray("one\n"));
    }

    void linesOfManyThreadsStayWhole()
    {
        constexpr int threadCount = 8;
        constexpr int linesEach = 500;
        m_log->setMaxLogSize(20000); // with rotations in between
        m_log->handler(QLog::LogToFile);
        std::vector<std::thread> threads;
        for (int number = 0; number < threadCount; ++number) {
            threads.emplace_back([number] {
                for (int line = 0; line < linesEach; ++line) {
                    print(QStringLiteral("%1 %2 %3")
                              .arg(number)
                              .arg(line)
                              .arg(QString(line % 90, QChar(u'a' + number))));
                }
            });
        }
        for (std::thread &thread : threads) {
            thread.join();
        }

        QByteArray all;
        for (const QString &name : files()) { // rotated ones first, oldest first
            all += content(m_folder->filePath(name));
        }
        std::vector<int> next(threadCount, 0);
        const QList<QByteArray> lines = all.trimmed().split('\n');
        QCOMPARE(lines.size(), threadCount * linesEach);
        for (const QByteArray &line : lines) {
            const QList<QByteArray> parts = line.split(' ');
            QCOMPARE(parts.size(), 3);
            const int number = parts[0].toInt();
            const int expected = next[std::size_t(number)]++;
            QCOMPARE(parts[1].toInt(), expected);
            QCOMPARE(parts[2], QByteArray(expected % 90, char('a' + number)));
        }
    }

    void listenersHearTheSame()
    {
        m_log->handler(QLog::LogToNet);
        print(QStringLiteral("before anyone listens"));
        Listener stays;
        QVERIFY(stays.join(m_log->netPort()));
        QVERIFY(beginListening(stays));
        auto leaves = std::make_unique<Listener>();
        QVERIFY(leaves->join(m_log->netPort()));
        QVERIFY(beginListening(*leaves));
        print(QStringLiteral("柜台"));
        print(QString());
        print(QStringLiteral("end"));
        QTRY_VERIFY(leaves->heard().endsWith("?柜台end"));
        QTRY_VERIFY(stays.heard().endsWith("?柜台end"));
        leaves.reset();
        for (int i = 0; i < 20; ++i) {
            print(QStringLiteral("."));
        }
        QTRY_VERIFY(stays.heard().endsWith("?柜台end" + QByteArray(20, '.')));
        QCOMPARE(stays.state(), QAbstractSocket::ConnectedState);
    }

    void netLogStartedInAPlainThreadIsHeard()
    {
        m_log->handler(QLog::LogToNet);
        std::thread([] { print(QStringLiteral("from a device library's thread")); }).join();
        Listener listener;
        QVERIFY(listener.join(m_log->netPort()));
        QVERIFY(beginListening(listener));
    }

    void lastLinesAreHeardBeforeTheEnd()
    {
        m_log->handler(QLog::LogToNet | QLog::LogToFile);
        Listener listener;
        print(QStringLiteral("begin"));
        QVERIFY(listener.join(m_log->netPort()));
        QVERIFY(beginListening(listener));
        for (int i = 0; i < 200; ++i) {
            print(QStringLiteral("."));
        }
        m_log->handler(QLog::LogToFile);
        QVERIFY(isFree(m_log->netPort()));
        QTRY_COMPARE(listener.state(), QAbstractSocket::UnconnectedState);
        QVERIFY(listener.heard().endsWith(QByteArray(200, '.')));
        print(QStringLiteral("only in the file"));
        QVERIFY(today().endsWith(".\nonly in the file\n"));
    }

    void newPortReplacesTheOld()
    {
        m_log->handler(QLog::LogToNet);
        print(QStringLiteral("on the old port"));
        const quint16 oldPort = m_log->netPort();
        QVERIFY(!isFree(oldPort));
        Listener listener;
        QVERIFY(listener.join(oldPort));
        m_log->setPort(oldPort);
        QVERIFY(!isFree(oldPort));
        m_log->setPort(freePort());
        QVERIFY(isFree(oldPort));
        QTRY_COMPARE(listener.state(), QAbstractSocket::UnconnectedState);
        print(QStringLiteral("on the new port"));
        QVERIFY(listener.join(m_log->netPort()));
        QVERIFY(beginListening(listener));
    }

    void takenPortIsHarmless()
    {
        QTcpServer other;
        QVERIFY(other.listen(QHostAddress::AnyIPv4));
        m_log->setPort(other.serverPort());
        m_log->handler(QLog::LogToNet | QLog::LogToFile);
        print(QStringLiteral("one"));
        print(QStringLiteral("two"));
        m_log->handler({});
        QCOMPARE(today(), QByteArray("one\ntwo\n"));
    }

    void stalledListenerIsDropped()
    {
        constexpr int messageSize = 2 * 1024 * 1024;
        constexpr int messages = 16; // far more than the limit and the kernel's buffers together
        m_log->handler(QLog::LogToNet);
        print(QStringLiteral("begin"));
        Listener reads;
        QVERIFY(reads.join(m_log->netPort()));
        QVERIFY(beginListening(reads));
        Listener stalls;
        QVERIFY(stalls.join(m_log->netPort()));
        QVERIFY(beginListening(stalls));
        print(QStringLiteral("!"));
        QTRY_VERIFY(reads.heard().endsWith('!'));
        stalls.stall();
        qint64 expected = reads.heard().size();
        for (int i = 0; i < messages; ++i) {
            print(QString(messageSize, QLatin1Char('x')));
            expected += messageSize;
            QTRY_COMPARE(qint64(reads.heard().size()), expected);
        }
        qint64 stillCame = 0;
        connect(&stalls, &QTcpSocket::readyRead, &stalls,
                [&] { stillCame += stalls.readAll().size(); });
        stalls.setReadBufferSize(0);
        stillCame += stalls.readAll().size();
        QTRY_COMPARE(stalls.state(), QAbstractSocket::UnconnectedState);
        QVERIFY(stillCame < qint64(messages) * messageSize);
        print(QStringLiteral("goes on"));
        QTRY_VERIFY(reads.heard().endsWith("goes on"));
    }

    void inputOfListenersIsDiscarded()
    {
        const quint16 port = freePort();
        const QLogToNet net(port);
        Listener listener;
        QVERIFY(listener.join(port));
        QTRY_COMPARE(net.findChildren<QTcpSocket *>().size(), 1);
        const QTcpSocket *itsSocket = net.findChild<QTcpSocket *>();
        QSignalSpy arrived(itsSocket, &QTcpSocket::readyRead);
        listener.write(QByteArray(100000, 'x'));
        QVERIFY(arrived.wait());
        QCOMPARE(itsSocket->bytesAvailable(), Q_INT64_C(0));
    }

    void traceShowsItsPlace()
    {
        m_log->handler(QLog::LogToFile);
        const QString fromPage = QStringLiteral("a\n2 b \"c\"");
        const int line = __LINE__ + 1;
        TRACE << "text" << fromPage << 7;
        TRACE;
        const QByteArray place = " traceShowsItsPlace tst_log";
        QCOMPARE(today(),
                 QByteArray::number(line) + place + " text \"a\\n2 b \\\"c\\\"\" 7\n"
                     + QByteArray::number(line + 1) + place + "\n");
    }

    void programEndGivesMessagesBackToQt()
    {
        QProcess program;
        program.start(
            QCoreApplication::applicationFilePath(),
            {QLatin1String(printAtExitOption), m_folder->path(), QString::number(freePort())});
        QVERIFY(program.waitForFinished());
        QCOMPARE(program.exitStatus(), QProcess::NormalExit);
        QCOMPARE(program.exitCode(), 0);
        // Qt may print a warning first, for a thread that starts without an application object.
        QVERIFY(program.readAllStandardError().endsWith("after the log\n"));
        QCOMPARE(today(), QByteArray("while it runs\nafter the application object\n"));

        // Without a folder the lines go to standard error.
        program.start(QCoreApplication::applicationFilePath(),
                      {QLatin1String(printAtExitOption), QStringLiteral("/proc/log"),
                       QString::number(freePort())});
        QVERIFY(program.waitForFinished());
        QVERIFY(program.readAllStandardError().contains("while it runs\nafter the application"));
    }

private:
    QString filePath(const QString &time) const
    {
        return m_folder->filePath(QStringLiteral("vx_log_%1.txt").arg(time));
    }
    /// Content of the current day's file in the log's folder.
    QByteArray today() const
    {
        return content(QStringLiteral("%1/vx_log_%2.txt")
                           .arg(m_log->logPath(), QDate::currentDate().toString(Qt::ISODate)));
    }
    QStringList files() const { return QDir(m_folder->path()).entryList(QDir::Files, QDir::Name); }
    void createFiles(const QStringList &names) const
    {
        for (const QString &name : names) {
            QVERIFY(QFile(m_folder->filePath(name)).open(QFile::WriteOnly));
        }
    }
    void setTime(const QString &localTime)
    {
        m_now = msecs(localTime);
        m_log->setClock([this] { return m_now.load(); });
    }
    /// Prints until a newly connected listener receives it, that is, has been accepted.
    bool beginListening(Listener &listener)
    {
        return QTest::qWaitFor([&] {
            print(QStringLiteral("?"));
            return QTest::qWaitFor([&] { return listener.heard().endsWith('?'); }, 50);
        });
    }

    QLog *m_log = nullptr;
    std::unique_ptr<QTemporaryDir> m_folder;
    std::atomic<qint64> m_now{0};
};

namespace {

/// Exits with the log installed and the network log running, and prints after that.
int printAtExit(int argc, char **argv)
{
    struct Last
    {
        ~Last() { qInfo("after the log"); }
    };
    static const Last last; // created before the log, so destroyed after it
    {
        const QCoreApplication application(argc, argv);
        QLog::instance()->setLogPath(application.arguments().at(2));
        QLog::instance()->setPort(application.arguments().at(3).toUShort());
        QLog::instance()->handler(QLog::LogToFile | QLog::LogToNet);
        qInfo("while it runs");
    }
    qInfo("after the application object");
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc == 4 && std::strcmp(argv[1], printAtExitOption) == 0) {
        return printAtExit(argc, argv);
    }
    const QCoreApplication application(argc, argv);
    TestLog test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_log.moc"
