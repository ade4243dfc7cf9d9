// SPDX-License-Identifier: MIT
#include "app/singleinstance.h"
#include "companionclients/configini.h"
#include "tests/files.h"
#include "tests/rows.h"

#include <QCoreApplication>
#include <QSettings>
#include <QTemporaryDir>
#include <QtTest>

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
        const InstanceCount instances = countInstances();
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
        const InstanceCount unknown = countInstances();
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
};

QTEST_GUILESS_MAIN(TestStartup)
#include "tst_startup.moc"
