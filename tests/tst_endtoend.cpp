// SPDX-License-Identifier: MIT
//
// The real program with the portable device library. Needs port 1818.

#include "app/singleinstance.h"
#include "tests/accesspolicy.h"
#include "tests/files.h"
#include "tests/pages.h"
#include "tests/rows.h"

#include <QDateTime>
#include <QDir>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>
#include <QProcess>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

namespace {

constexpr quint16 port = 1818;

bool somebodyListens()
{
    QTcpSocket socket;
    socket.connectToHost(QHostAddress::LocalHost, port);
    return socket.waitForConnected(1000);
}

} // namespace

class TestEndToEnd : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(!somebodyListens(), "port 1818 is taken: stop the running server, then try again");
        QVERIFY2(InstanceCounting().result().count == 0,
                 "the server would not start: a running process has its name on the command line "
                 "(ps -ef)");
        // A folder of its own for settings and log. The server does not count instances with "sh"
        // in their command line, so it must not be in the folder's name.
        m_folder = QStringLiteral("/tmp/rvo-e2e-%1").arg(QCoreApplication::applicationPid());
        QVERIFY(QDir().mkpath(m_folder));
        const QDir built = QFileInfo(QStringLiteral(PROGRAM)).dir();
        for (const char *name : {"rvowebSocketServer", "devicehost", "libdevicestub.so",
                                 "libdoccamera.so", "libcardreader.so", "devicectl",
                                 "libportabledoccamera.so", "libportablecardreader.so"}) {
            const QString file = QString::fromUtf8(name);
            QVERIFY2(QFile::copy(built.filePath(file), inFolder(file)), name);
        }
        writeFile(inFolder(line("devices.ini")), "[cameras]\n1=scene\n2=image:/nowhere.png\n");
        qputenv("XDG_RUNTIME_DIR", m_folder.toUtf8());
        start();
    }

    void cleanupTestCase()
    {
        end();
        if (!m_folder.isEmpty()) {
            QDir(m_folder).removeRecursively();
        }
    }

    void atRest()
    {
        const QByteArray last =
            "listening on ws://127.0.0.1:1818, log in " + m_folder.toUtf8() + "/log\n";
        QByteArray printed;
        QTRY_VERIFY((printed += m_server.readAllStandardOutput()).endsWith(last));
        // What brings many libraries along is loaded when it is needed, in neither process before.
        const QString own = line("/proc/%1/").arg(m_server.processId());
        QByteArray loaded = contentOf(own + line("maps"));
        for (const QString &thread : QDir(own + line("task")).entryList({line("[0-9]*")})) {
            const QByteArray child =
                contentOf(own + line("task/%1/children").arg(thread)).trimmed();
            loaded += contentOf(line("/proc/%1/maps").arg(QString::fromLatin1(child)));
        }
        QVERIFY(loaded.contains("/devicehost") && loaded.contains("libportabledoccamera"));
        for (const char *heavy : {"imgcodecs", "libavcodec", "opencv_dnn", "libcurl", "libqpdf"}) {
            QVERIFY2(!loaded.contains(heavy), heavy);
        }
    }

    void aPageSeesTheDeskScene()
    {
        Page page(port);
        Page other(port);
        QVERIFY(page.isConnected() && other.isConnected());
        page.send(QStringLiteral("bStartPlay()"));
        QCOMPARE(page.nextReply(), QStringLiteral("BeginbStartPlaytrueEndbStartPlay"));
        QCOMPARE(other.nextReply(), QStringLiteral("BeginbStartPlaytrueEndbStartPlay"));

        QSet<QString> frames;
        for (int i = 0; i < 20; ++i) {
            const QString text = page.next();
            const QImage frame = QImage::fromData(QByteArray::fromBase64(text.toLatin1()), "JPG");
            QCOMPARE(frame.size(), QSize(800, 600));
            frames << text;
        }
        QVERIFY2(frames.size() > 10, "the picture does not change");
        QVERIFY(other.next().startsWith(QLatin1String("/9j/")));

        page.send(QStringLiteral("bStopPlay()"));
        QCOMPARE(page.nextReply(), QStringLiteral("BeginbStopPlaytrueEndbStopPlay"));
        page.send(QStringLiteral("bGetPreviewEnable()"));
        QCOMPARE(page.next(), QStringLiteral("BeginbGetPreviewEnabletrueEndbGetPreviewEnable"));
    }

    void aSecondInstanceEnds()
    {
        QProcess second;
        second.setProcessChannelMode(QProcess::MergedChannels);
        second.start(program(), QStringList());
        QVERIFY(second.waitForFinished(30000));
        QCOMPARE(second.exitStatus(), QProcess::NormalExit);
        QCOMPARE(second.exitCode(), 0);
        QVERIFY(second.readAll().contains("process[rvowebSocketServer] is already running!!!"));
        QVERIFY(Page(port).isConnected());
        QTRY_COMPARE(deviceProcesses(), 1);
    }

    void devicectlFindsTheServer()
    {
        QCOMPARE(devicectl(line("call --force getVersion")), QByteArray("V1.0.2\n"));
        const QString picture = inFolder(line("frame.jpg"));
        devicectl(line("call --force --frame %1 bStartPlay").arg(picture));
        QVERIFY(!QImage(picture).isNull());

        const auto status = QJsonDocument::fromJson(devicectl(line("status --json")));
        QCOMPARE(status[line("pid")].toInt(), int(m_server.processId()));
        QCOMPARE(status[line("folders")][line("data")].toString(), m_folder);
        QVERIFY(status[line("deviceProcess")][line("residentKiB")].toInt() > 1000);
        const double running = status[line("deviceProcess")][line("runningSeconds")].toDouble();
        QVERIFY(running > 0 && running < 600);
        QVERIFY(status[line("simulation")].toBool());

        const auto levels = diagnosis();
        for (const char *good : {"process", "port", "instance", "status", "program-folder",
                                 "data-folder", "log-folder", "device-process", "library"}) {
            QVERIFY2(levels[line(good)] == line("ok"), good);
        }
        QCOMPARE(levels[line("display")], line("warning")); // there is one, but not for it
        QCOMPARE(levels[line("simulation")], line("warning"));
        QVERIFY(devicectl(line("bundle ") + inFolder(line("b.tgz"))).endsWith("b.tgz\n"));
    }

    void theLogShowsWhatHappened()
    {
        Page page(port);
        page.send(QStringLiteral("bStartPlay2()"));
        QString answer = page.nextReply();
        // The page of the test before has left, which stops the preview: its answer may come here.
        if (answer.startsWith(QLatin1String("BeginbStopPlay"))) {
            answer = page.nextReply();
        }
        QCOMPARE(answer, QStringLiteral("BeginbStartPlay2falseEndbStartPlay2"));
        const QByteArray text = log();
        for (const char *line : {
                 "]  boreaTcp：系统启动\n",
                 "]  版本编译时间 ",
                 "]  portable device library ",
                 " (simulation)\n",
                 "the display can't be used",
                 "\"bStartPlay2()\"\n",
                 "/nowhere.png",
             }) {
            QVERIFY2(text.contains(line), line);
        }
    }

    void thereAreEnoughDescriptors()
    {
        const QByteArray limits = contentOf(line("/proc/%1/limits").arg(m_server.processId()));
        const int at = limits.indexOf("Max open files");
        const QList<QByteArray> words = limits.mid(at, 60).simplified().split(' ');
        QVERIFY(at >= 0 && words[3].toLong() >= qMin(words[4].toLong(), 65536L));
    }

    void dataIsInTheFolderThatIsNamed()
    {
        end();
        const QTemporaryDir pages;
        const QString data = pages.filePath(line("data"));
        const QString option = line("--data-dir");
        for (const auto &[arguments, code] :
             {std::pair(QStringList{option}, 64), std::pair(QStringList{option, program()}, 73)}) {
            QCOMPARE(QProcess::execute(program(), arguments), code);
        }
        const QString policy = line("[grant.a] origin=none|allow=file.read [files] read=");
        writeFile(data + line("/access.ini"), policyText(policy + pages.path()));
        writeFile(pages.filePath(line("seen")));
        start({option, data});
        Page page(port);
        for (const auto &[name, seen] :
             {std::pair("seen", "true"), std::pair("data/access.ini", "false")}) {
            page.send(line("bFileIsExist(%1)").arg(pages.filePath(line(name))));
            QCOMPARE(page.nextReply(), line("BeginbFileIsExist%1EndbFileIsExist").arg(line(seen)));
        }
        const QByteArray place = "data folder: \"" + data.toUtf8() + "\"\n";
        const QString logs = data + line("/log/vx_log_%1.txt");
        QVERIFY(contentOf(logs.arg(QDate::currentDate().toString(Qt::ISODate))).contains(place));
        QVERIFY(!log().contains(place));
        end();
        start();
    }

    void libraries_data()
    {
        const Rows<QString, QString, QString> row("library", "level", "reason");
        row("with two functions", line(EXAMPLE_LIBRARY), "warning",
            "device process: the library doesn't have bStartPlay2, ");
        row("that isn't there", inFolder(line("none.so")), "fault", "none.so: cannot open");
    }

    /// The library is loaded before there is a log: a technician finds the reason all the same.
    void libraries()
    {
        QFETCH(QString, library);
        QFETCH(QString, reason);
        end();
        const QString settings = inFolder(line("devices.ini"));
        const QByteArray usual = contentOf(settings);
        writeFile(settings, "[library]\ncamera=" + library.toUtf8() + '\n');
        const int before = log().size();
        start();
        Page page(port);
        page.send(line("bStartPlay2()"));
        QCOMPARE(page.nextReply(), line("BeginbStartPlay2falseEndbStartPlay2"));
        const QByteArray lines = log().mid(before);
        QVERIFY2(lines.contains(reason.toUtf8()), lines.constData());
        QVERIFY(!lines.contains("logging rule")); // the server's, which Qt doesn't understand
        QTEST(diagnosis()[line("library")], "level");
        end();
        writeFile(settings, usual);
        start();
    }

    // The last one: it leaves the policy behind.
    void thePolicyBesideTheProgram()
    {
        end();
        const QString file = inFolder(line("access.ini"));
        writeFile(file, policyText(line("x=y")));
        m_server.start(program(), QStringList());
        QVERIFY(m_server.waitForFinished(30000));
        QCOMPARE(m_server.exitCode(), 78);
        const QByteArray reason =
            "access: " + file.toUtf8() + ":3: there is no key \"x\" in section [policy]\n";
        QVERIFY(m_server.readAllStandardError().contains(reason));
        QVERIFY(log().contains(reason));

        writeFile(file, policyText(line("[grant.a] origin=none|allow=status [audit] file=a.log")));
        start();
        Page page(port);
        page.send(line("bStartPlay()"));
        QCOMPARE(page.nextReply(), line("BeginbStartPlayfalseEndbStartPlay"));
        QVERIFY(contentOf(inFolder(line("log/a.log"))).contains("\"what\":\"bStartPlay\""));
        // The device process has been restricted from its start.
        QVERIFY(!log().contains("the folders of the access policy have changed"));
    }

private:
    QString inFolder(const QString &name) const { return m_folder + QLatin1Char('/') + name; }
    int deviceProcesses() const
    {
        const QStringList all = QDir(line("/proc")).entryList({line("[0-9]*")});
        return int(std::count_if(all.begin(), all.end(), [this](const QString &process) {
            return QFile::symLinkTarget(line("/proc/%1/exe").arg(process))
                == inFolder(line("devicehost"));
        }));
    }
    QByteArray devicectl(const QString &commandLine) const
    {
        QProcess process;
        process.start(inFolder(line("devicectl")), words(Utf8(commandLine)));
        return process.waitForFinished() ? process.readAllStandardOutput() : QByteArray();
    }
    /// The levels of doctor's checks.
    QMap<QString, QString> diagnosis() const
    {
        QMap<QString, QString> levels;
        const auto findings = QJsonDocument::fromJson(devicectl(line("doctor --json"))).array();
        for (const QJsonValue &finding : findings) {
            levels[finding[line("id")].toString()] = finding[line("level")].toString();
        }
        return levels;
    }
    QString program() const { return inFolder(line("rvowebSocketServer")); }
    QByteArray log() const
    {
        const QString today = QDate::currentDate().toString(Qt::ISODate);
        return contentOf(inFolder(line("log/vx_log_%1.txt").arg(today)));
    }

    void start(const QStringList &options = {})
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(line("QT_LOGGING_RULES"),
                           line("*=false")); // the server logs all the same
        // A display that can't be reached is none: the server starts, and says so.
        environment.remove(line("QT_QPA_PLATFORM"));
        environment.insert(line("DISPLAY"), line(":987"));
        m_server.setProcessEnvironment(environment);
        rlimit before{};
        getrlimit(RLIMIT_NOFILE, &before);
        const rlimit few{500, before.rlim_max}; // which the server raises
        setrlimit(RLIMIT_NOFILE, &few);
        m_server.start(program(), QStringList{line("--simulate")} + options);
        QVERIFY(m_server.waitForStarted());
        setrlimit(RLIMIT_NOFILE, &before);
        QTRY_VERIFY_WITH_TIMEOUT(somebodyListens(), 30000);
    }
    void end()
    {
        m_server.kill();
        m_server.waitForFinished();
    }

    QString m_folder;
    QProcess m_server;
};

QTEST_GUILESS_MAIN(TestEndToEnd)
#include "tst_endtoend.moc"
