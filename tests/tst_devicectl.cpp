// SPDX-License-Identifier: MIT
// devicectl: its verbs, calls against a fake server, what leaves the machine.
#include "devicectl/answers.h"
#include "devicectl/bundle.h"
#include "devicectl/callverb.h"
#include "devicectl/commandline.h"
#include "devicectl/doctor.h"
#include "devicectl/policyadvice.h"
#include "devicectl/prometheus.h"
#include "devicectl/redaction.h"
#include "devicectl/servertexts.h"
#include "devicectl/statustext.h"
#include "devicectl/texts.h"
#include "tests/accesspolicy.h"
#include "tests/faketerminal.h"
#include "tests/rows.h"

#include <QJsonDocument>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QWebSocket>
#include <QWebSocketServer>

namespace {

/// What a command line prints.
struct Printed
{
    ExitCode code;
    QString out;
    QString error;
};

Printed devicectl(const QStringList &commandLine)
{
    Printed printed;
    QTextStream out(&printed.out);
    QTextStream error(&printed.error);
    printed.code = runDevicectl(commandLine, out, error);
    return printed;
}

} // namespace

class TestDevicectl : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        speakChinese(false);
        qputenv("XDG_RUNTIME_DIR", QFile::encodeName(m_folder.path())); // no server there
    }

    void prometheusReadsTheFigures()
    {
        QJsonObject report = healthyStatus();
        report.insert(line("version"), line("1\"\\\n2"));
        const QString text = QString::fromUtf8(prometheusText(report));
        static const QRegularExpression comment(
            line("^# (HELP|TYPE) ([a-z_]+) (?:(gauge|counter)|[A-Z].*)$"));
        static const QRegularExpression sample(
            line("^([a-z_]+)(\\{([a-z]+=\"([^\"\\\\\\n]|\\\\[\"\\\\n])*\",?)+\\})? [-0-9.e+]+$"));
        QString head;
        const QStringList lines = text.split(QLatin1Char('\n'));
        QCOMPARE(lines.last(), QString());
        for (const QString &each : lines.mid(0, lines.size() - 1)) {
            const auto match = (each.startsWith(QLatin1Char('#')) ? comment : sample).match(each);
            QVERIFY2(match.hasMatch(), qPrintable(each));
            if (each.startsWith(line("# HELP"))) {
                head = match.captured(2);
                QCOMPARE(text.count(each + QLatin1Char('\n')), 1);
            } else {
                QVERIFY(each.contains(head)); // samples follow their own head
            }
        }
        for (const char *expected :
             {"_up 1\n", "_camera_frames_per_second 25.5\n", "_camera_frames_total 100\n",
              "_resident_bytes 2097152\n", "_frame_fetch_seconds 0.002\n", "_pages 1\n",
              "_unread_bytes 3\n", "_device_process_up 1\n", "_main_thread_answers 1\n",
              "version=\"1\\\"\\\\\\n2\",policy=\"enforce\"} 1\n"}) {
            QVERIFY2(text.contains(line(expected)), expected);
        }
        QVERIFY(prometheusText({}).endsWith("rvowebsocketserver_up 0\n"));
    }

    void statusInWords()
    {
        const QString text = statusLines(healthyStatus()).join(QLatin1Char('\n'));
        for (const char *part :
             {"server 1.0.2", "25.5 frames a second", "https://b.example",
              "device process: ", "process 7, running for 1 h 1 min", "enforce"}) {
            QVERIFY2(text.contains(line(part)), qPrintable(text));
        }
    }

    void noPersonalDataLeavesTheMachine_data()
    {
        const Rows<QString, QString> row("logged", "kept");
        row("a name in a card command", "41 f t \"SetPersonInfo(MARK,1)\"", "41 f t ");
        row("an ID number", "card 110101199003070011 read", "card");
        row("with an X, in groups", "1101 0119 9003 0700 1X", "");
        row("a Chinese name", "customer 张三丰 came", "customer");
        row("a token", "page ws://127.0.0.1:1818/?token=MARK came", "page ws://");
        row("a password", "upload: user: u Password: MARK", "upload");
        row("a file's name", "\"bSaveJPG(/home/t,MARK)\"", "bSaveJPG(");
        row("an unknown text", R"("hello MARK")", "characters left out");
        row("an escaped quote", "\"#\\\" MARK\"", "characters left out");
        row("a quote without its end", "x \"MARK", "x");
        row("base64", QString(100, QLatin1Char('Q')) + line("MARK"), "characters left out");
        row("an answer", "BeginReadCardMARKEndReadCard", "");
        row("unquoted arguments", "ReadCard(MARK", "");
        row("plain numbers stay", "\"vSetPreViewSize(1024,768)\"", "vSetPreViewSize(1024,768)");
        row("the program's own words stay", "portable: camera 1 started", "camera 1 started");
    }
    void noPersonalDataLeavesTheMachine()
    {
        QFETCH(QString, logged);
        QFETCH(QString, kept);
        FakeTerminal terminal;
        terminal.m_contents[line("/d/log/vx_log_2026-11-22.txt")] = logged.toUtf8() + '\n';
        terminal.m_contents[line("/d/log/audit.log")] = "MARK";
        terminal.m_contents[line("/d/cards/1.json")] = "MARK";
        terminal.m_contents[line("/d/devices.ini")] = "[a]\npassword=MARK\nsize=1\n";
        terminal.m_contents[line("/etc/x/server.ini")] = "url=https://u:MARK@h/?id=MARK\n";
        terminal.m_outputs[line("journalctl")] = logged;
        terminal.m_status->insert(line("problems"),
                                  QJsonArray{QJsonObject{{line("text"), logged}}});
        const auto files = bundleFiles(terminal);
        for (auto file = files.cbegin(); file != files.cend(); ++file) {
            for (const char *mark : {"MARK", "张三", "1101011990", "9003 0700"}) {
                QVERIFY2(!file->contains(mark), file->constData());
            }
        }
        QVERIFY(files[line("log/vx_log_2026-11-22.txt")].contains(kept.toUtf8()));
        QVERIFY(files[line("settings/devices.ini")].contains("size=1"));
        QVERIFY(files[line("doctor.txt")].contains("ok process: "));
    }

    void aBundleIsSmallAndPrivate()
    {
        FakeTerminal terminal;
        QByteArray noise; // hardly compressible
        for (int i = 0; noise.size() < (2 << 20); ++i) {
            noise += QByteArray::number(qHash(i, 7), 36).left(7) + (i % 10 == 0 ? '\n' : ' ');
        }
        terminal.m_contents[line("/d/log/vx_log_2026-11-22.txt")] =
            '"' + QByteArray(2 << 20, ' ').replace(1 << 20, 4, "MARK") + "\"\nthe end\n";
        for (int i = 1; i < 8; ++i) {
            const QString path = QStringLiteral("/d/log/vx_log_2026-11-%1.txt").arg(i + 10);
            terminal.m_contents[path] = noise + "\nlast line\n";
        }
        const QString archive = m_folder.filePath(line("b.tar.gz"));
        const auto files = bundleFiles(terminal);
        QCOMPARE(files[line("log/vx_log_2026-11-22.txt")], QByteArray("the end\n"));
        QCOMPARE(writeBundle(files, archive), QString());
        QVERIFY(QFileInfo(archive).size() < 10 << 20);
        QCOMPARE(QFileInfo(archive).permissions() & 0x77, QFile::Permissions());
        const QByteArray names = outputOf("tar", {line("-tzf"), archive});
        QVERIFY(names.contains("./versions.txt\n"));
        QVERIFY(names.contains("./log/vx_log_2026-11-17.txt\n")); // the newest ones
        QVERIFY(!names.contains("2026-11-11"));
        QVERIFY(!writeBundle({}, line("/nowhere/b.tar.gz")).isEmpty());
    }

    void answersAreTakenApart_data()
    {
        const Rows<QString, QString, QString, bool> row("text", "name", "result", "isFailure");
        row("true", "BeginbStartPlaytrueEndbStartPlay", "bStartPlay", "true", false);
        row("false", "BeginbStartPlayfalseEndbStartPlay", "bStartPlay", "false", true);
        row("empty", "BeginReadCardEndReadCard", "ReadCard", "", true);
        row("End in it", "BeginbSavePDFEndtrueEndbSavePDFEnd", "bSavePDFEnd", "true", false);
        row("a constant", "BegingetVersionV1.0.2EndgetVersion", "getVersion", "V1.0.2", false);
        row("JSON", R"({"code":"1","funcname":"ReadCard","data":"x"})", "ReadCard", "x", false);
        row("JSON failure", R"({"code":"0","funcname":"ReadCard","data":"x"})", "ReadCard", "false",
            true);
        row("none", "BeginbStartPlaytrueEndother", "", "", false);
    }
    void answersAreTakenApart()
    {
        QFETCH(QString, text);
        QFETCH(QString, name);
        QFETCH(QString, result);
        QFETCH(bool, isFailure);
        const auto answer = answerFrom(text).value_or(Answer());
        QCOMPARE(answer.name, name);
        QCOMPARE(answer.result, result);
        QCOMPARE(!name.isEmpty() && ::isFailure(answer), isFailure);
    }

    void aCallPrintsWhatComes_data()
    {
        const Rows<QString, QString, QStringList, int, QString> row("line", "sent", "texts", "code",
                                                                    "printed");
        row("good", "call bDeleteFile /tmp/a", "bDeleteFile(/tmp/a)",
            {line("/9j/AAAA"), line("BeginotherxEndother"),
             line("BeginbDeleteFiletrueEndbDeleteFile")},
            0, "true\n");
        row("failed", "call vSetPreViewSize -1 2", "vSetPreViewSize(-1,2)",
            {line("BeginvSetPreViewSizefalseEndvSetPreViewSize")}, 1, "false\n");
        row("pushed", "call --until iAutoScan bStartPlay", "bStartPlay()",
            {line("BeginbStartPlaytrueEndbStartPlay"), line("BeginiAutoScan1EndiAutoScan")}, 0,
            "true\niAutoScan 1\n");
        row("before", "call --before bStopPlay bStartPlay", "bStopPlay()bStartPlay()",
            {line("BeginotherxEndother"), line("BeginbStopPlaytrueEndbStopPlay"),
             line("BeginbStartPlaytrueEndbStartPlay")},
            0, "true\n");
        row("before failed", "call --before bStopPlay bStartPlay", "bStopPlay()",
            {line("BeginbStopPlayfalseEndbStopPlay")}, 1, "bStopPlay false\n");
        row("waited", "call --wait 1 bStartPlay", "bStartPlay()",
            {line("BeginbStartPlaytrueEndbStartPlay"), line("late")}, 0, "true\nlate\n");
        row("JSON", "call bStartPlay --json", "bStartPlay()",
            {line("BeginbStartPlaytrueEndbStartPlay")}, 0,
            "{\"good\":true,\"name\":\"bStartPlay\",\"result\":\"true\"}\n");
        row("picture", "call --output FILE sGetJpgBase64 1", "sGetJpgBase64(1)",
            {line("BeginsGetJpgBase64/9j/4AAQSkZJRgABEndsGetJpgBase64")}, 0, "FILE\n");
        row("counted frames", "", "bStartPlay()",
            QStringList{line("BeginbStartPlaytrueEndbStartPlay")}
                + QVector<QString>(21, line("/9j/AAAA")).toList(),
            0, "10 ");
        row("refused", "", "bStartPlay()", {line("BeginbStartPlayfalseEndbStartPlay")}, 0,
            "0 bStartPlay: false");
        row("frame", "call --frame FILE bStartPlay", "bStartPlay()",
            {line("BeginbStartPlaytrueEndbStartPlay"), line("/9j/4AAQSkZJRgAB")}, 0, "true\n");
        row("silent", "call --timeout 1 bStartPlay", "bStartPlay()", {}, 4, "");
    }
    void aCallPrintsWhatComes()
    {
        QFETCH(QString, line);
        QFETCH(QString, sent);
        QFETCH(QStringList, texts);
        QFETCH(int, code);
        QFETCH(QString, printed);
        QWebSocketServer server(QStringLiteral("fake"), QWebSocketServer::NonSecureMode);
        QVERIFY(server.listen(QHostAddress::LocalHost));
        QString received;
        int next = 0; // of the texts
        connect(&server, &QWebSocketServer::newConnection, this, [&] {
            QWebSocket *page = server.nextPendingConnection();
            page->setParent(&server);
            connect(page, &QWebSocket::textMessageReceived, page, [&, page](const QString &text) {
                received += text;
                const QString answer = QLatin1String("End") + text.section(QLatin1Char('('), 0, 0);
                bool goesOn = true; // until the answer, or beyond that of the last one
                while (goesOn && next < texts.size()) {
                    page->sendTextMessage(texts[next]);
                    const bool isAnswer = texts[next++].endsWith(answer);
                    goesOn = !isAnswer || received == sent;
                }
            });
        });
        const QString file = m_folder.filePath(QStringLiteral("picture.jpg"));
        QFile::remove(file);
        line.replace(QLatin1String("FILE"), file);
        printed.replace(QLatin1String("FILE"), file);
        QStringList commandLine = line.split(QLatin1Char(' '));
        commandLine.insert(1, QStringLiteral("--port=%1").arg(server.serverPort()));
        Printed result{ExitCode::Good, {}, {}};
        if (line.isEmpty()) {
            const auto measured = measurePreview({}, {}, server.serverPort());
            result.out =
                QStringLiteral("%1 %2").arg(measured.framesPerSecond).arg(measured.problem);
        } else {
            result = devicectl(commandLine);
        }
        QCOMPARE(received, sent);
        QCOMPARE(result.out, printed);
        QCOMPARE(int(result.code), code);
        if (line.contains(file)) {
            QCOMPARE(contentOf(file), QByteArray::fromBase64("/9j/4AAQSkZJRgAB"));
        }
    }

    void exitCodesOfTheCommandLine_data()
    {
        const Rows<QString, int, QString> row("commandLine", "code", "said");
        row("no verb", "", 2, "usage");
        row("unknown verb", "fly", 2, "no verb fly");
        row("unknown option", "status --fly", 2, "no option --fly");
        row("no value", "call --wait", 2, "needs a value");
        row("no number", "call --wait=x bStartPlay", 2, "x is no number");
        row("no command", "call", 2, "NAME is missing");
        row("a value too many", "status --json=1", 2, "takes no value");
        row("nothing to try", "policy --try https://a.example", 2, "missing");
        row("unknown command", "call startPlay", 2, "similar ones: bStartPlay,");
        row("two formats", "status --json --prometheus", 2, "exclude each other");
        row("too much", "status now", 2, "now is too much");
        row("help", "call --help", 0, "--until NAME");
        row("no server", "status", 3, "does not answer");
        row("no server to call", "call --port 9 bStartPlay", 3, "can't connect");
        row("figures without a server", "status --prometheus", 3, "_up 0");
    }
    void exitCodesOfTheCommandLine()
    {
        QFETCH(QString, commandLine);
        QFETCH(int, code);
        QFETCH(QString, said);
        const Printed printed =
            devicectl(commandLine.isEmpty() ? QStringList() : commandLine.split(QLatin1Char(' ')));
        QCOMPARE(int(printed.code), code);
        QVERIFY2((printed.out + printed.error).contains(said), qPrintable(printed.error));
    }

    void programsAreAnsweredInJson_data()
    {
        const Rows<QString, int> row("commandLine", "code");
        row("status", "status --json", 3);
        row("policy", "policy --json", 1);
        row("command", "call --json nope", 2);
        row("call", "call --json --port 9 bStartPlay", 3);
        row("proposal", "policy --json --propose FILE", 0);
        row("bundle", "bundle --json /nowhere/b.tar.gz", 6);
        row("option", "doctor --json --fly", 2);
        row("verb", "fly --json", 2);
    }
    void programsAreAnsweredInJson()
    {
        QFETCH(QString, commandLine);
        QFETCH(int, code);
        const QString file = m_folder.filePath(line("draft.ini"));
        writeFile(file, policyText(line("mode=report")));
        const Printed printed =
            devicectl(commandLine.replace(line("FILE"), file).split(QLatin1Char(' ')));
        QCOMPARE(int(printed.code), code);
        QCOMPARE(printed.error, QString());
        const auto answer = QJsonDocument::fromJson(printed.out.toUtf8()).object();
        QVERIFY(!answer.value(line(code == 0 ? "proposal" : "error")).toString().isEmpty());
    }

    /// What the shared code of the server gives as a reason.
    void reasonsAreInChinese()
    {
        speakChinese(true);
        static const QRegularExpression given(
            line("(?:Fault\\{|refusal\\(|refused\\(|failed\\()[^;]*?\"((?:[^\"]|\"\\s*\")+)\"\\)"));
        static const QRegularExpression chinese(line("^[^（]*[\\x{4e00}-\\x{9fff}].*（"));
        int count = 0;
        for (const char *file :
             {"policyparser", "doorkeeper", "argumentrules", "pathrules", "realpath"}) {
            const QString source =
                QString::fromUtf8(contentOf(line(SOURCE_DIR "/access/%1.cpp").arg(line(file))));
            auto each = given.globalMatch(source);
            while (each.hasNext()) {
                const QString reason =
                    each.next().captured(1).remove(QRegularExpression(line("\"\\s*\"")));
                const bool isSystems = reason == line("%1: %2"); // a path and the system's words
                QVERIFY2(isSystems || chinese.match(inUsersLanguage(reason)).hasMatch(),
                         qPrintable(reason));
                ++count;
            }
        }
        QVERIFY(count > 40);
        QCOMPARE(inUsersLanguage(line("mode is one of off, on")),
                 QString::fromUtf8("mode 只能是：off, on（mode is one of off, on）"));
        QCOMPARE(inUsersLanguage(line("anything")), line("anything"));
    }

    void everyVerbIsDocumented()
    {
        const QByteArray manual = contentOf(line(SOURCE_DIR "/docs/man/devicectl.1"));
        const QByteArray chinese = contentOf(line(SOURCE_DIR "/docs/man/zh_CN/devicectl.1"));
        const QByteArray page = contentOf(line(SOURCE_DIR "/docs/devicectl.md"));
        const QString help = devicectl({line("--help")}).out;
        for (const QString &verb : verbNames()) {
            QVERIFY2(manual.contains(".B " + verb.toLatin1()), qPrintable(verb));
            QVERIFY2(page.contains("devicectl " + verb.toLatin1()), qPrintable(verb));
            QVERIFY(help.contains(verb));
            const QString options = devicectl({verb, line("--help")}).out;
            static const QRegularExpression name(line("^  (--[a-z]+)"),
                                                 QRegularExpression::MultilineOption);
            auto each = name.globalMatch(options);
            while (each.hasNext()) {
                const QByteArray option = each.next().captured(1).toLatin1();
                for (QByteArray text : {manual, chinese}) {
                    QVERIFY2(text.replace("\\-", "-").contains(option), option.constData());
                }
            }
        }
        for (const Check &check : allChecks()) {
            QVERIFY2(page.contains(QByteArray("`") + check.id + '`'), check.id);
        }
    }

    void bashCompletes_data()
    {
        const Rows<QString, QString> row("typed", "offered");
        row("verbs", "devicectl sta", "status");
        row("options", "devicectl status --pro", "--prometheus");
        row("commands", "devicectl call bStartPlayRo", "bStartPlayRotate");
    }
    void bashCompletes()
    {
        QFETCH(QString, typed);
        QFETCH(QString, offered);
        const QString program = bashCompletion()
            + QStringLiteral("COMP_WORDS=(%1); COMP_CWORD=$((${#COMP_WORDS[@]}-1)); _devicectl; "
                             "echo \"${COMPREPLY[@]}\"")
                  .arg(typed);
        QCOMPARE(outputOf("bash", {line("-c"), program}).trimmed(), offered.toUtf8());
    }

    void aProposalAllowsWhatWasRefused()
    {
        const auto policy = policyOf(
            line("mode=report [grant.a] origin=https://a.example|allow=camera, bDeleteFile"));
        QJsonArray report;
        for (const char *row :
             {"{\"origin\":\"https://"
              "a.example\",\"rule\":\"grant.a\",\"what\":\"ReadCard\",\"count\":3}",
              "{\"origin\":\"none\",\"rule\":\"no grant has this "
              "origin\",\"what\":\"#\",\"count\":1}",
              "{\"origin\":\"https://"
              "a.example\",\"rule\":\"files.read\",\"what\":\"bSaveJPG\",\"count\":9}",
              "{\"origin\":\"an unreadable origin\",\"rule\":\"x\",\"what\":\"the "
              "handshake\",\"count\":1}"}) {
            report.append(object(row));
        }
        QCOMPARE(reportLines(report).first(), line("9 x https://a.example bSaveJPG: files.read"));
        const QString text = proposal(*policy, report);
        accesspolicy::PolicyError error;
        const auto proposed =
            accesspolicy::parsePolicy(text.toUtf8(), line("access.ini"), {}, &error);
        QVERIFY2(proposed, qPrintable(error.text() + text));
        const auto shared = std::make_shared<const accesspolicy::Policy>(*proposed);
        const auto refused = [&](const char *origin, const char *command) {
            return refusalOf(shared, line(origin), line(command), line("/w"));
        };
        QCOMPARE(refused("https://a.example", "ReadCard()"), QString());
        QCOMPARE(refused("https://a.example", "bStopPlay()"), QString()); // as before
        QCOMPARE(refused("none", "#text"), QString());
        QVERIFY(!refused("none", "ReadCard()").isEmpty());
        QVERIFY(!refused("https://b.example", "ReadCard()").isEmpty());
        QVERIFY(!refused("no origin", "ReadCard()").isEmpty());
        QVERIFY(text.contains(line("; 9 x https://a.example bSaveJPG")));
        QVERIFY(explained(*policy).join(QLatin1Char(' ')).contains(line("grant.a")));
    }

private:
    QTemporaryDir m_folder;
};

QTEST_GUILESS_MAIN(TestDevicectl)
#include "tst_devicectl.moc"
