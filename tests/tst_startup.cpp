// SPDX-License-Identifier: MIT
#include "app/singleinstance.h"
#include "base/datafolder.h"
#include "base/shortturns.h"
#include "companionclients/configini.h"
#include "tests/files.h"
#include "tests/rows.h"

#include <QCoreApplication>
#include <QSettings>
#include <QTemporaryDir>
#include <QtTest>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <thread>

namespace {

QString settingsFile()
{
    return QCoreApplication::applicationDirPath() + QLatin1String("/server.ini");
}

} // namespace

class TestStartup : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { QFile::remove(settingsFile()); }
    void cleanup() { QFile::remove(settingsFile()); }

    void settingsAreMadeWhenMissing()
    {
        const ConfigIni settings;
        QCOMPARE(settings.port, quint16{1818});
        QCOMPARE(settings.browser, QStringLiteral("gnome-www-browser"));
        QCOMPARE(settings.padsize, QSize(1280, 800));
        QCOMPARE(contentOf(settingsFile()),
                 QByteArray("[General]\n"
                            "browser=gnome-www-browser\n"
                            "padsize=@Size(1280 800)\n"
                            "port=1818\n"));
    }

    void settingsAreReadAndWrittenBack_data()
    {
        const Rows<QByteArray, int, QSize> row("file", "port", "padsize");
        // clang-format off
        row("another browser",   "[General]\nbrowser=uos-browser\n", 1818, QSize(1280, 800));
        row("own values",        "[General]\nport=99\npadsize=@Size(1 2)\n", 99,   QSize(1, 2));
        row("port of no number", "[General]\nport=abc\n",            0,    QSize(1280, 800));
        row("port of 17 bits",   "[General]\nport=65537\n",          1,    QSize(1280, 800));
        row("size of no size",   "[General]\npadsize=wide\n",        1818, QSize());
        // clang-format on
    }

    void settingsAreReadAndWrittenBack()
    {
        QFETCH(QByteArray, file);
        writeFile(settingsFile(), file);
        const ConfigIni settings;
        QTEST(int{settings.port}, "port");
        QTEST(settings.padsize, "padsize");
        QCOMPARE(settings.browser, QStringLiteral("gnome-www-browser"));

        const QSettings back(settingsFile(), QSettings::IniFormat);
        QCOMPARE(back.value(QStringLiteral("browser")).toString(), settings.browser);
        QCOMPARE(back.value(QStringLiteral("port")).toInt(), int{settings.port});
        QCOMPARE(back.value(QStringLiteral("padsize")).toSize(), settings.padsize);
    }

    void settingsOutsideTheDataFolderStayAsTheyAre()
    {
        // The administrator's; here those beside the program stand for them.
        const QTemporaryDir data;
        qputenv(base::dataFolderVariable, QFile::encodeName(data.path()));
        writeFile(settingsFile(), "[General]\npadsize=@Size(1 2)\n");
        QCOMPARE(ConfigIni().padsize, QSize(1, 2));
        QCOMPARE(contentOf(settingsFile()), QByteArray("[General]\npadsize=@Size(1 2)\n"));
        QFile::remove(settingsFile());
        QCOMPARE(ConfigIni().padsize, QSize(1280, 800));
        QCOMPARE(everythingIn(data.path()), QStringList{line("server.ini")});
        qunsetenv(base::dataFolderVariable);
    }

    void dataIsFoundInTheFirstFolderThatHasIt_data()
    {
        const Rows<QString, QString, QString> row("there", "dataFolder", "found");
        // clang-format off
        row("nowhere",              "",                         "d", "d/name");
        row("everywhere",           "d/name e/name p/name",     "d", "d/name");
        row("not of the user",      "e/name p/name",            "d", "e/name");
        row("only installed",       "p/name/card.json",         "d", "p/name");
        row("own folder",           "p/name e/name",            "p", "p/name");
        row("own folder, nowhere",  "d/name e/name",            "p", "p/name");
        // clang-format on
    }

    void dataIsFoundInTheFirstFolderThatHasIt()
    {
        QFETCH(QString, there);
        QFETCH(QString, dataFolder);
        const QTemporaryDir folder;
        const auto names = there.split(QLatin1Char(' '));
        for (const QString &name : names) {
            writeFile(folder.filePath(name.isEmpty() ? line("x") : name));
        }
        const base::DataPlaces places{folder.filePath(dataFolder), folder.filePath(line("e")),
                                      folder.filePath(line("p"))};
        const QString found = places.find(line("name"));
        QTEST(found.mid(folder.path().size() + 1), "found");
    }

    void theDataFolderIsChosen_data()
    {
        const Rows<QString, QString, QString, QString, QString, QString> row(
            "program", "stateHome", "variable", "named", "chosen", "problem");
        // clang-format off
        row("program's own",         "p",  "$/s",  "",    "",      "",    "");
        row("program's is not",      "",   "$/s",  "",    "",      "$/s/rvowebsocketserver", "");
        row("no state home",         "",   "",     "",    "",      "$/h/.local/state/rvowebsocketserver", "");
        row("relative state home",   "",   "s",    "",    "",      "$/h/.local/state/rvowebsocketserver", "");
        row("state can't be made",   "",   "$/f",  "",    "",      "",    "$/f/rvowebsocketserver: it can't be created");
        row("named",                 "p",  "$/s",  "",    "$/a/b/","$/a/b", "");
        row("named, and a variable", "p",  "$/s",  "$/v", "$/a",   "$/a", "");
        row("named, relative",       "p",  "",     "",    "a/../c","$/c", "");
        row("named, program's own",  "p",  "",     "",    "$/p",   "",    "");
        row("by the variable",       "p",  "",     "$/v", "",      "$/v", "");
        row("a file",                "p",  "",     "",    "$/f",   "",    "$/f: it can't be created");
        row("another user's",        "p",  "",     "",    "$/o",   "",    "$/o: it belongs to ");
        // clang-format on
    }

    void theDataFolderIsChosen()
    {
        QFETCH(QString, stateHome);
        QFETCH(QString, variable);
        QFETCH(QString, named);
        QFETCH(QString, chosen);
        QFETCH(QString, problem);
        const QTemporaryDir folder;
        const auto in = [&folder](QString text) {
            return text.replace(QLatin1Char('$'), folder.path());
        };
        QVERIFY(QDir(folder.path()).mkdir(line("p")) && QDir(folder.path()).mkdir(line("o")));
        writeFile(folder.filePath(line("f")));
        QCOMPARE(chown(Utf8(folder.filePath(line("o"))), 12345, gid_t(-1)),
                 geteuid() == 0 ? 0 : -1);
        if (problem.contains(line("belongs")) && geteuid() != 0) {
            QSKIP("only root can make another user's folder");
        }
        const QString before = QDir::currentPath();
        QDir::setCurrent(folder.path());
        const QByteArray home = qgetenv("HOME");
        qputenv("HOME", QFile::encodeName(in(line("$/h"))));
        qputenv("XDG_STATE_HOME", QFile::encodeName(in(stateHome)));
        qputenv(base::dataFolderVariable, QFile::encodeName(in(variable)));
        QFETCH(QString, program);
        // A folder that isn't there can't be written, not even by root.
        const QString why = base::chooseDataFolder(
            in(named), program.isEmpty() ? line("/nowhere") : folder.filePath(program));
        const QString result = QFile::decodeName(qgetenv(base::dataFolderVariable));
        qputenv("HOME", home);
        qunsetenv("XDG_STATE_HOME");
        qunsetenv(base::dataFolderVariable);
        QDir::setCurrent(before);

        QCOMPARE(result, in(chosen));
        QCOMPARE(why.left(in(problem).size()), in(problem));
        QCOMPARE(why.isEmpty(), problem.isEmpty());
        struct stat status = {};
        if (!chosen.isEmpty()) {
            QCOMPARE(stat(Utf8(result), &status), 0);
            QCOMPARE(status.st_mode & 07777, mode_t(0700));
        }
    }

    // tst_endtoend checks that a second process exits.
    void countingRunsWithoutTheLibraryPath()
    {
        // A fake ps that checks its environment.
        const QTemporaryDir folder;
        const QString ps = folder.filePath(QStringLiteral("ps"));
        writeFile(
            ps,
            "#!/bin/sh\n"
            "for i in 1 2 3 4 5 6 7 8 9 10; do echo $i /a/rvowebSocketServer -x; done\n"
            "echo 3 sh rvowebSocketServer\n"
            "echo 4 RVOWEBSOCKETSERVER; echo 5 vi rvowebSocketServer.txt; echo 6 other\n"
            "[ -z \"$LD_LIBRARY_PATH\" ] || echo 7 rvowebSocketServer \"$LD_LIBRARY_PATH\"\n");
        QVERIFY(QFile::setPermissions(ps, QFile::ReadOwner | QFile::ExeOwner));
        const QByteArray path = qgetenv("PATH");
        qputenv("PATH", folder.path().toLocal8Bit() + ':' + path);
        const QByteArray oldPath = qgetenv("LD_LIBRARY_PATH");
        qputenv("LD_LIBRARY_PATH", "/some/where");
        const InstanceCount instances = InstanceCounting().result();
        qputenv("PATH", path);
        QCOMPARE(qgetenv("LD_LIBRARY_PATH"), QByteArray("/some/where"));
        QCOMPARE(instances.line, QByteArray("10"));
        QCOMPARE(instances.count, 10L);
        QVERIFY(instances.anotherRuns());

        qunsetenv("LD_LIBRARY_PATH");
        rlimit before{};
        getrlimit(RLIMIT_NOFILE, &before);
        const rlimit none{3, before.rlim_max}; // no pipe can be made
        setrlimit(RLIMIT_NOFILE, &none);
        const InstanceCount unknown = InstanceCounting().result();
        setrlimit(RLIMIT_NOFILE, &before);
        QCOMPARE(unknown.count, 0L);
        InstanceCount one;
        one.count = 1; // this one
        QVERIFY(!one.anotherRuns());
        QVERIFY(!qEnvironmentVariableIsSet("LD_LIBRARY_PATH"));
        if (!oldPath.isNull()) {
            qputenv("LD_LIBRARY_PATH", oldPath);
        }
    }

    void aThreadTakesShortTurns()
    {
        const auto turnUs = [] {
            std::array<quint64, 7>
                attributes{}; // of 64 bits; the fourth is the turn in nanoseconds
            syscall(SYS_sched_getattr, 0, attributes.data(), sizeof attributes, 0);
            return attributes[3] / 1000;
        };
        const auto turnOfChild = [&turnUs](base::ShortTurns which) {
            quint64 child = 0;
            std::thread([&] {
                base::takeShortTurns(which);
                QCOMPARE(turnUs(), quint64(200));
                std::thread([&] { child = turnUs(); }).join();
            }).join();
            return child;
        };
        const quint64 usual = turnUs();
        if (usual == 0) {
            QSKIP("this kernel has no turns of ordinary threads");
        }
        QCOMPARE(turnOfChild(base::ShortTurns::OfThisThread), usual);
        QCOMPARE(turnOfChild(base::ShortTurns::AlsoOfItsChildren), quint64(200));
        QCOMPARE(turnUs(), usual);
    }
};

QTEST_GUILESS_MAIN(TestStartup)
#include "tst_startup.moc"
