// SPDX-License-Identifier: MIT
// What all rooms of the portable library use: files, texts, background work.
#include "base/logtext.h"
#include "base/neighbor.h"
#include "portable/base/atomicfile.h"
#include "portable/base/backgroundjob.h"
#include "portable/base/base64text.h"
#include "portable/base/diskspace.h"
#include "portable/base/failure.h"
#include "portable/base/featuretext.h"
#include "portable/base/filereader.h"
#include "portable/base/inifile.h"
#include "portable/base/inputlimits.h"
#include "portable/base/texts.h"
#include "portable/base/writecheck.h"
#include "tests/fulldisk.h"
#include "tests/portabletest.h"

#include <QtTest>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <future>
#include <stdexcept>

using namespace portable;

class TestPortableBase : public PortableTest
{
    Q_OBJECT

private Q_SLOTS:
    void filesTogetherOrNot()
    {
        QString error;
        QVERIFY(writeWholeFiles({{path("new/a"), "one"}, {path("new/b"), ""}}, &error));
        QCOMPARE(contentOf(path("new/a")), QByteArray("one"));
        QVERIFY(QFileInfo(path("new")).permissions().testFlag(QFile::ExeOwner));
        QCOMPARE(everythingIn(path("new")), (QStringList{line("a"), line("b")}));

        // All can be written, but when "second" gets its name, it is the directory of the third.
        const QStringList before = everythingIn(m_folder->path());
        QVERIFY(!writeWholeFiles(
            {{path("first"), "1"}, {path("second"), "2"}, {path("second/third"), "3"}}, &error));
        QVERIFY2(error.startsWith(path("second: ")), qPrintable(error));
        QCOMPARE(everythingIn(m_folder->path()), before);
        QVERIFY(!writeWholeFiles({{path("first"), "1"}, {path("new"), "2"}}, &error));
        QCOMPARE(error, path("new") + line(": it is a directory"));
        QCOMPARE(everythingIn(m_folder->path()), before);
    }

    void writersWithAFileOfTheirOwn()
    {
        QString error;
        QString given;
        const QString target = path("new/film.mp4");
        QVERIFY(writeWholeFile(
            target,
            [&](const QString &temporary, QString *) {
                given = temporary;
                writeFile(temporary, "content");
                return true;
            },
            &error));
        QVERIFY(given.startsWith(path("new/.")) && given.endsWith(line(".mp4")));
        QCOMPARE(everythingIn(path("new")), QStringList{line("film.mp4")});
        QCOMPARE(contentOf(target), QByteArray("content"));
        QVERIFY(!writeWholeFile(
            path("other/film.mp4"),
            [&](const QString &temporary, QString *why) {
                writeFile(temporary, "half");
                *why = line("no codec");
                return false;
            },
            &error));
        QCOMPARE(error, path("other/film.mp4") + line(": no codec"));
        QVERIFY(!QFile::exists(path("other")));
        QVERIFY(!writeWholeFile(line("/dev/null"), "x", &error)); // would be replaced by a file
    }

    void namesOfFiles()
    {
        QString error;
        const QString longName = path("a.") + QString(20, QLatin1Char('x'));
        QString given;
        QVERIFY(writeWholeFile(
            longName,
            [&](const QString &temporary, QString *) {
                given = temporary;
                return true;
            },
            &error));
        QVERIFY(given.endsWith(line(".xxxxxxxx"))); // the extension, within reason
        QVERIFY(!given.endsWith(line(".xxxxxxxxx")));
        QVERIFY(!writeWholeFile(path("x/"), "1", &error));
        QVERIFY(!writeWholeFile(path("d/").repeated(3000), "1", &error));
        QVERIFY(error.size() < 400 && error.contains(line("...: ")));
        QFile::link(path("elsewhere"), path("link"));
        QVERIFY(writeWholeFile(path("link"), "1", &error));
        QVERIFY(!QFileInfo(path("link")).isSymLink() && !QFile::exists(path("elsewhere")));
        const QStringList before = everythingIn(m_folder->path());
        QVERIFY(canWriteFile(path("new/folder/file"), &error));
        QVERIFY(!canWriteFile(path("link/file"), &error));
        QVERIFY(error.startsWith(path("link/file: ")));
        QCOMPARE(everythingIn(m_folder->path()), before);
    }

    void wholeFiles()
    {
        QCOMPARE(mkfifo(QFile::encodeName(path("pipe")).constData(), 0600), 0);
        QString error;
        writeFile(path("empty"), "");
        QVERIFY(!readWholeFile(path("empty"), 10, &error).isNull());
        writeFile(path("full"), QByteArray("\0x", 2));
        QCOMPARE(readWholeFile(path("full"), 2, &error), QByteArray("\0x", 2));
        QVERIFY(error.isEmpty());
        const std::pair<QString, const char *> bad[] = {
            {path("absent"), "there is no such file"},
            {m_folder->path(), "it is not a regular file"},
            {path("pipe"), "it is not a regular file"},
            {line("/dev/zero"), "it is not a regular file"},
            // No size, and no end that could be waited for.
            {line("/proc/self/pagemap"), "it is larger than 1048576 bytes"}};
        for (const auto &[file, reason] : bad) {
            QVERIFY(readWholeFile(file, 1 << 30, &error).isNull());
            QCOMPARE(error, line(reason));
        }
        QVERIFY(readWholeFile(path("full"), 1, &error).isNull());
        QCOMPARE(error, line("it is larger than 1 bytes"));
        QVERIFY(readWholeFile(line("/proc/self/status"), 1 << 20, &error).startsWith("Name:"));
        const QByteArray large(3'000'000, 'x');
        writeFile(path("large"), large);
        QCOMPARE(readWholeFile(path("large"), large.size(), &error), large);
    }

    void filesThatGrowWhileTheyAreRead()
    {
        QString error;
        writeFile(path("growing"), "ab");
        RegularFile file;
        QVERIFY(file.open(path("growing"), 2, &error) && (file.permissions() & 0600) == 0600);
        char bytes[8];
        QCOMPARE(file.read(bytes, 2, &error), qint64(2));
        QVERIFY(file.rewind()); // counts from the start again
        QCOMPARE(file.read(bytes, 2, &error), qint64(2));
        errno = EINTR; // of an earlier call
        QCOMPARE(file.read(bytes, 2, &error), qint64(0));
        writeFile(path("growing"), "abcdef");
        QCOMPARE(file.read(bytes, 8, &error), qint64(-1));
        QCOMPARE(error, line("it is larger than 2 bytes"));
    }

    void roomOnTheDisk()
    {
        QString error;
        QVERIFY2(hasRoomFor(0, path("none/yet"), &error), qPrintable(error));
        const FullDisk full(limits::diskReserve + 10 * limits::mebi);
        QVERIFY(hasRoomFor(10 * limits::mebi, path("none/yet"), &error));
        QVERIFY(!hasRoomFor(10 * limits::mebi + 1, path("none/yet"), &error));
        QCOMPARE(error,
                 line("the disk is nearly full: 266 MB are free, and 10 MB are needed besides "
                      "256 MB kept for others"));
        QVERIFY(writeWholeFile(path("small"), "1", &error));
        QVERIFY(!writeWholeFiles({{path("large"), QByteArray(11 << 20, 'x')}}, &error));
        QVERIFY2(error.startsWith(path("large: the disk is")), qPrintable(error));
        QVERIFY(areOnOneDisk(path("a"), path("b/c")) && !areOnOneDisk(path("a"), line("/proc/x")));
    }

    void base64_data()
    {
        // bytes: null where it is no base64
        const Rows<QByteArray, QByteArray> row("text", "bytes");
        row("padded", "YWI=", "ab");
        row("without padding", "YWI", "ab");
        row("two of padding", "YQ==", "a");
        row("all digits", "+/+/azAZ09", QByteArray::fromHex("fbffbf6b3019d3"));
        row("data URL", "data:image/png;base64,YWJj", "abc");
        row("white space", " YW\r\n\tJj\v\f", "abc");
        row("empty", "", {});
        row("one digit", "A", {});
        row("one digit too many", "YWJjA", {});
        row("other characters", "YW!j", {});
        row("other data URL", "data:text/plain;base64,YWJj", {});
        row("padding inside", "YQ==YQ==", {});
        row("too much padding", "Y===", {});
        row("something after the padding", "YWI=x", {});
    }

    void base64()
    {
        QFETCH(QByteArray, text);
        QString error;
        QTEST(bytesOfBase64(text.constData(), &error), "bytes");
        QCOMPARE(error.isEmpty(), !bytesOfBase64(text.constData(), &error).isEmpty());
    }

    void features()
    {
        FeatureWriter writer("mark");
        writer.put(4095, 2);
        writer.put(-5, 1);
        writer.put(70, 1);
        writer.put(1000, 3);
        const QByteArray text = writer.finish();
        QCOMPARE(text.size(), 4 + 2 + 1 + 1 + 3 + 3);
        const auto numbers = [](FeatureReader &reader) {
            return QList<int>{reader.take(2), reader.take(1), reader.take(1), reader.take(3)};
        };
        const QByteArray more = text + "more";
        FeatureReader reader(more.constData(), "mark");
        QCOMPARE(numbers(reader), (QList<int>{4095, 0, 63, 1000}));
        QVERIFY(reader.finish() && reader.isGood());
        QCOMPARE(reader.end(), more.constData() + text.size());
        for (int i = 0; i < text.size(); ++i) {
            QByteArray damaged = text;
            damaged[i] = damaged[i] == 'B' ? 'C' : 'B';
            for (const QByteArray &bad : {damaged, text.left(i), damaged.replace(i, 1, "-")}) {
                FeatureReader other(bad.constData(), "mark");
                numbers(other);
                QVERIFY(!other.finish() && !other.isGood());
            }
        }
        FeatureReader cut("mark", "mark"); // a NUL is no digit
        QCOMPARE(cut.take(1), 0);
        QVERIFY(!cut.isGood());
        FeatureReader none(nullptr, "mark");
        QVERIFY(!none.isGood());
        QCOMPARE(none.take(1), 0);
    }

    void oneJobAtATime()
    {
        BackgroundJob job;
        std::promise<void> started;
        std::atomic<bool> wasStopped{false};
        QVERIFY(job.begin([&](const BackgroundJob::Stop &stop) -> BackgroundJob::Answer {
            started.set_value();
            wasStopped = stop.sleepUntil(BackgroundJob::Clock::now() + std::chrono::seconds(30))
                && stop.isRequested();
            return {};
        }));
        started.get_future().wait();
        QVERIFY(!job.begin([](const BackgroundJob::Stop &) { return nullptr; }));
        QVERIFY(!job.run([](const BackgroundJob::Stop &) {}));
        job.stop();
        QVERIFY(wasStopped);

        // The next one isn't stopped, and its answer may begin another.
        std::promise<bool> answer;
        QVERIFY(job.begin([&](const BackgroundJob::Stop &stop) -> BackgroundJob::Answer {
            const bool isStopped = stop.isRequested();
            return [&, isStopped] {
                bool wasRun = false;
                job.run([&](const BackgroundJob::Stop &) { wasRun = true; });
                answer.set_value(wasRun && !isStopped);
            };
        }));
        QVERIFY(answer.get_future().get());
        job.stop();
        int runs = 0;
        QVERIFY(job.run([&](const BackgroundJob::Stop &stop) {
            runs += stop.sleepUntil(BackgroundJob::Clock::now()) ? 100 : 1;
        }));
        QCOMPARE(runs, 1);
        job.close();
        QVERIFY(!job.run([&](const BackgroundJob::Stop &) { ++runs; }));
        QVERIFY(!job.begin([](const BackgroundJob::Stop &) { return nullptr; }));
        QCOMPARE(runs, 1);
    }

    void jobEndsWithTheApplication()
    {
        BackgroundJob job;
        job.closeWithApplication();
        std::atomic<bool> wasStopped{false};
        QVERIFY(job.begin([&](const BackgroundJob::Stop &stop) -> BackgroundJob::Answer {
            wasStopped = stop.sleepUntil(BackgroundJob::Clock::now() + std::chrono::seconds(30));
            return {};
        }));
        QTimer::singleShot(0, QCoreApplication::instance(), &QCoreApplication::quit);
        QCoreApplication::exec();
        QVERIFY(wasStopped);
        QVERIFY(!job.run([](const BackgroundJob::Stop &) {}));
    }

    void failures()
    {
        QVERIFY(!logFailure("bSomething", QString(2000, QLatin1Char('x'))));
        QString error = line("reason");
        QVERIFY(!prefixError(line("file"), &error));
        QVERIFY(!logFailure(line("subject"), error));
        QCOMPARE(guarded("bThrows", []() -> int { throw std::runtime_error("too bad"); }), 0);
        QCOMPARE(guarded("bFine", [] { return 7; }), 7);
        const QString half(500, QLatin1Char('x'));
        QCOMPARE(m_log->takeLines(),
                 (QStringList{line("bSomething: ") + half + line("...") + half,
                              line("subject: file: reason"), line("bThrows: too bad")}));
    }

    void linesCannotBeForged()
    {
        const QString forged = line("/tmp/a\n[2026-01-01] portable: \x1b[2Jforged\r.jpg");
        logFailure(forged, forged);
        logInfo() << line("scan") << forged << 3;
        logWarning() << "no" << line("quotes ");
        const QString shown = line("/tmp/a\\n[2026-01-01] portable: \\u001b[2Jforged\\r.jpg");
        QCOMPARE(m_log->takeLines(),
                 (QStringList{shown + line(": ") + shown, line("scan ") + shown + line(" 3"),
                              line("no quotes ")}));
        // A terminal shows nothing but what is here.
        QCOMPARE(base::oneLine(line("a\tb柜𠀀é")), line("a\\tb柜𠀀é"));
        QCOMPARE(base::oneLine(QString(QChar(0x202e)) + QChar(0x2028) + QChar(0x80) + QChar(0xffff)
                               + QChar(0)),
                 line("\\u202e\\u2028\\u0080\\uffff\\u0000"));
        const QString half = QChar(0xd840);
        QCOMPARE(base::oneLine(half + QChar(0x7f) + half), line("\\ud840\\u007f\\ud840"));
        QCOMPARE(base::oneLine(QString::fromUcs4(U"\U000e0001", 1)), line("\\U000e0001"));
    }

    void addressesWithoutSecrets()
    {
        QCOMPARE(
            base::withoutSecrets(line("opened http://teller:p@ss@bank/a?token=1 and ws://b/#x.")),
            line("opened http://bank/a?... and ws://b/?..."));
        QCOMPARE(base::withoutSecrets(line("not an address: bank/a?token=1")),
                 line("not an address: bank/a?..."));
        QCOMPARE(base::withoutSecrets(line("/tmp/a?b#c@d")), line("/tmp/a?b#c@d"));
    }

    void users()
    {
        QCOMPARE(base::userText(0), line("root (uid 0)"));
        QCOMPARE(base::userText(3999999999U), line("uid 3999999999"));
        writeFile(path("own"));
        QCOMPARE(base::squatterProblem(path("own")), QString());
        base::setOwnUser(geteuid() + 1);
        const QString owner = line(" belongs to ") + base::userText(geteuid());
        QVERIFY(base::squatterProblem(path("own")).endsWith(owner));
        QCOMPARE(base::squatterProblem(line("/etc")), line("/etc belongs to root (uid 0)"));
        QCOMPARE(base::squatterProblem(line("/none")), QString());
        base::setOwnUser(geteuid());
    }

    void texts()
    {
        QVERIFY(taken(heapText(QByteArray())).isNull());
        QCOMPARE(taken(heapText(QByteArray("ab"))), line("ab"));
        QCOMPARE(taken(heapText(QString())), line(""));
        QCOMPARE(taken(heapText(line("甲"))), line("甲"));
        QCOMPARE(logText(line("a\nb")), line("\"a\\nb\""));
        QCOMPARE(logText(QString(300, QLatin1Char('x'))).size(), 302);
        QCOMPARE(logText(QString(301, QLatin1Char('x'))),
                 logText(QString(300, QLatin1Char('x'))) + line("..."));
    }

    void valuesOfAnIni()
    {
        writeFile(path("x.ini"), "[g]\na= 甲, 乙 \nb=\n[h]\nc=1\n");
        IniFile ini(path("x.ini"));
        QCOMPARE(ini.text(line("g/a")), line("甲,乙"));
        QCOMPARE(ini.keys(line("g")), (QStringList{line("a"), line("b")}));
        QVERIFY(ini.contains(line("g/b")) && !ini.contains(line("g/c")));
        QCOMPARE(m_log->takeLines(), QStringList());
        writeFile(path("bad.ini"), "[g\nno value\n");
        IniFile bad(path("bad.ini"));
        QCOMPARE(m_log->takeLines(),
                 QStringList{path("bad.ini: there are lines in it without \"=\"")});
        writeFile(path("large.ini"), "[g]\na=1\n" + QByteArray(limits::settingsFile, '\n'));
        QCOMPARE(IniFile(path("large.ini")).text(line("g/a")), QString());
        QCOMPARE(m_log->takeLines(),
                 QStringList{path("large.ini: it is larger than 1048576 bytes")});
        IniFile absent(path("absent.ini"));
        QCOMPARE(absent.text(line("g/a")), QString());
        QCOMPARE(m_log->takeLines(), QStringList());
    }
};

QTEST_GUILESS_MAIN(TestPortableBase)
#include "tst_portablebase.moc"
