// SPDX-License-Identifier: MIT
// devicectl's doctor: each check both ways, on a fake terminal; what it asks of the machine itself.
#include "devicectl/doctor.h"
#include "devicectl/systemenvironment.h"
#include "devicectl/texts.h"
#include "tests/accesspolicy.h"
#include "tests/faketerminal.h"
#include "tests/rows.h"

#include <QElapsedTimer>
#include <QJsonDocument>
#include <QLocalServer>
#include <QTcpServer>
#include <QTemporaryDir>

#include <functional>

namespace {

using Change = std::function<void(FakeTerminal &)>;

/// Sets a member of an object of the status.
Change status(const char *part, const char *json)
{
    return [=](FakeTerminal &terminal) {
        QJsonObject changed = terminal.m_status->value(line(part)).toObject();
        const QJsonObject members = object(json);
        for (auto each = members.begin(); each != members.end(); ++each) {
            changed.insert(each.key(), each.value());
        }
        terminal.m_status->insert(line(part), changed);
    };
}

Change without(const char *file)
{
    return [=](FakeTerminal &terminal) {
        terminal.m_files.remove(line(file));
        terminal.m_contents.remove(line(file));
    };
}

Change content(const char *file, const char *text)
{
    return [=](FakeTerminal &terminal) { terminal.m_contents[line(file)] = text; };
}

Change mode(const char *file, int bits)
{
    return [=](FakeTerminal &terminal) {
        terminal.m_files[line(file)].mode = bits;
        terminal.m_files[line(file)].isWritable = (bits & 0200) != 0;
        terminal.m_files[line(file)].isExecutable = (bits & 0100) != 0;
    };
}

Change noProgram(const char *name)
{
    return [=](FakeTerminal &terminal) { terminal.m_programs.removeAll(line(name)); };
}

Change runs(const char *commandLine)
{
    return [=](FakeTerminal &terminal) {
        terminal.m_processes.append({99, line(commandLine)});
        terminal.m_holders[line("/dev/video0")] << 99;
    };
}

struct Problem
{
    const char *time;
    const char *level;
};

Change problems(const std::vector<Problem> &list)
{
    return [=](FakeTerminal &terminal) {
        QJsonArray all{object(R"({"time":"2026-11-20T23:59:59.000","level":"error"})")};
        for (const Problem &each : list) {
            all.append(
                QJsonObject{{line("time"), line(each.time)}, {line("level"), line(each.level)}});
        }
        terminal.m_status->insert(line("problems"), all);
    };
}

/// What the browser policy allows, one pattern or several with "\",\"" between.
Change allowed(const char *patterns)
{
    return [=](FakeTerminal &terminal) {
        terminal.m_contents[line("/etc/chromium/policies/managed/a.json")] =
            R"({"LoopbackNetworkAllowedForUrls":[")" + QByteArray(patterns) + R"("]})";
    };
}

struct FaultyTerminal
{
    const char *check;
    Change change;
    const char *level;
    const char *meaning; ///< a part of it
};

const std::vector<FaultyTerminal> &faultyTerminals()
{
    static const auto noStatus = [](FakeTerminal &t) { t.m_status.reset(); };
    static const auto isBusy = [](FakeTerminal &t) {
        t.m_status->insert(line("deviceProcess"), object(R"({"busy":true})"));
    };
    static const std::vector<FaultyTerminal> all = {
        {"process", [](FakeTerminal &t) { t.m_processes.clear(); }, "fault", "does not run"},
        {"port", content("/proc/net/tcp6", ""), "fault", "nobody"},
        {"port",
         [](FakeTerminal &t) {
             t.m_holders[line("socket:[4711]")] = {99};
             t.m_processes.append({99, line("/usr/bin/nginx -g"), line("www")});
         },
         "fault", "nginx, process 99 of www"},
        {"port", [](FakeTerminal &t) { t.m_holders.clear(); }, "warning", "uid 54321"},
        {"instance", [](FakeTerminal &t) { t.m_processes[0].user = line("josh"); }, "warning", "5"},
        {"instance", runs("vi /src/rvowebSocketServer/main.cpp"), "fault", "99"},
        {"status", noStatus, "fault", "no answer at the status socket (servers: 5"},
        {"main-thread", status("mainThread", R"({"command":"ReadCard","forMs":9000})"), "fault",
         "ReadCard (9 s)"},
        {"program-folder", mode("/p", 0777), "fault", "/p is writable"},
        {"data-folder", mode("/d", 0500), "fault", "/d"},
        {"log-folder", mode("/d/log", 0500), "fault", "can't be written"},
        {"log-folder", mode("/d/log", 0755), "warning", "other users"},
        {"disk", [](FakeTerminal &t) { t.m_free = 200 << 20; }, "fault", "200 MiB"},
        {"disk", [](FakeTerminal &t) { t.m_free = 500 << 20; }, "warning", "500 MiB"},
        {"log-size",
         [](FakeTerminal &t) {
             t.add("/d/log/x", 0600);
             t.m_files[line("/d/log/x")].size = qint64(6) << 30;
         },
         "warning", "6144 MiB"},
        {"log-errors", content("/d/log/vx_log_2026-11-21.txt", "capture error\n"), "warning", "1"},
        {"log-errors", content("/d/log/vx_log_2026-11-22-000102.txt", "x\ncapture error"),
         "warning", "1, \"capture error"},
        {"log-errors", problems({{"2026-11-21T01:00:00.000", "error"}}), "warning", "serious"},
        {"log-errors", problems(std::vector<Problem>(5, {"2026-11-22T01:00:00.000", "warning"})),
         "warning", "warnings in the log since yesterday: 5"},
        {"memory", content("/proc/meminfo", "MemAvailable: 1024 kB"), "warning", "1 MiB"},
        {"clock", without("/run/systemd/timesync/synchronized"), "warning", "clock"},
        {"clock", [](FakeTerminal &t) { t.m_now = QDateTime(QDate(1970, 1, 1), QTime(0, 0)); },
         "fault", "1970"},
        {"camera", without("/dev/video0"), "fault", "no camera"},
        {"camera",
         [](FakeTerminal &t) {
             t.m_files.remove(line("/dev/video0"));
             t.m_status->insert(line("simulation"), true);
         },
         "warning", "no camera"},
        {"camera", [](FakeTerminal &t) { t.m_decoders << line("/dev/video0"); }, "fault",
         "no camera"},
        {"camera-permission", mode("/dev/video0", 0400), "fault", "/dev/video0"},
        {"camera-busy", runs("cheese"), "fault", "99"},
        {"camera-frames", status("camera", R"({"framesPerSecond":0})"), "fault", "no frames"},
        {"camera-frames", status("camera", R"({"framesPerSecond":0,"waitingMs":3500})"), "fault",
         "no frames"},
        {"camera-frames", status("camera", R"({"framesPerSecond":2})"), "warning", "2.0"},
        {"camera-frames", [](FakeTerminal &t) { t.m_measured.emplace(); }, "fault", "no frames"},
        {"camera-frames",
         [](FakeTerminal &t) {
             t.m_measured = {25, line("refused")};
         },
         "fault", "started: refused"},
        {"pcscd", [](FakeTerminal &t) { t.m_listening.removeFirst(); }, "warning", "pcscd"},
        {"card-reader", [](FakeTerminal &t) { t.m_readers.reset(); }, "warning", "does not answer"},
        {"card-reader", [](FakeTerminal &t) { t.m_readers->clear(); }, "warning",
         "does not know it"},
        {"card-reader",
         [](FakeTerminal &t) {
             t.m_readers->clear();
             t.m_contents[line("/sys/bus/usb/devices/1-1:1.0/bInterfaceClass")] = "03\n";
         },
         "warning", "no card reader"},
        {"cups", [](FakeTerminal &t) { t.m_printer = {}; }, "warning", "no print service"},
        {"printer", [](FakeTerminal &t) { t.m_printer = {}; }, "warning", "no print service"},
        {"printer", [](FakeTerminal &t) { t.m_printer.name.clear(); }, "warning",
         "no default printer"},
        {"printer", content("/d/devices.ini", "[printing]\nprinter=bon\n"), "warning",
         "no printer bon"},
        {"printer",
         [](FakeTerminal &t) {
             t.m_printer = {true, line("a"), true, true, line("media-empty")};
         },
         "warning", "stopped: a (media-empty)"},
        {"printer", [](FakeTerminal &t) { t.m_printer.isAccepting = false; }, "warning",
         "no jobs: office"},
        {"display", [](FakeTerminal &t) { t.m_variables.clear(); }, "warning", "no display"},
        {"display", [](FakeTerminal &t) { t.m_listening.removeLast(); }, "warning",
         "nobody answers"},
        {"display", [](FakeTerminal &t) { t.m_variables[line("DISPLAY")] = line("far:0"); },
         "warning", "far:0"},
        {"display",
         [](FakeTerminal &t) {
             t.m_status->insert(line("pid"), 5);
             t.m_contents[line("/proc/5/environ")] = QByteArray("LANG=C\0XDISPLAY=:0\0", 19);
         },
         "warning", "no display"},
        {"display",
         [](FakeTerminal &t) {
             const auto text = object(R"({"text":"the display can't be used: windows"})");
             t.m_status->insert(line("problems"), QJsonArray{text});
         },
         "warning", "can't use its display"},
        {"display-authority", without("/home/t/.Xauthority"), "fault", "/home/t/.Xauthority"},
        {"customer-screen", content("/sys/class/drm/card0-HDMI-A-2/status", "disconnected"),
         "warning", "screens: 1"},
        {"browser", noProgram("chromium"), "warning", "no browser"},
        {"browser", content("/d/server.ini", "[webbrowser]\nbrowser=netscape\n"), "warning",
         "netscape"},
        {"browser-policy", content("/etc/chromium/policies/managed/a.json", "{}"), "warning",
         "no browser policy"},
        {"browser-policy", allowed("https://counter.bank.example"), "warning", "https://b.example"},
        {"browser-policy", allowed("http://b.example"), "warning", "https://b.example"},
        {"browser-policy", allowed("[*.]b.example:8443"), "warning", "https://b.example"},
        {"browser-policy", allowed("https://b.example\",\"https://counter.bank.example"), "warning",
         "sample page"},
        {"browser-policy",
         [](FakeTerminal &t) {
             t.m_policy.policy = policyOf(line("mode=enforce [grant.a] "
                                               "origin=https://*.a.example:8443, none, file, *"));
         },
         "warning", "connect: https://*.a.example:8443"},
        {"models", without("/d/models/face_landmark_68_model.bin"), "warning", "landmark"},
        {"fonts", [](FakeTerminal &t) { t.m_outputs.remove(line("fc-list")); }, "warning",
         "Chinese font"},
        {"fonts", [](FakeTerminal &t) { t.m_isLate = true; }, "warning", "fc-list did not end"},
        {"signature", without("/p/run-elecsign.sh"), "fault", "run-elecsign.sh"},
        {"browser-helper", mode("/p/webbrowser", 0644), "fault", "/p/webbrowser"},
        {"devicehost", without("/p/devicehost"), "fault", "devicehost"},
        {"ps", noProgram("ps"), "warning", "second server"},
        {"pdftoppm", noProgram("pdftoppm"), "warning", "signed"},
        {"xdg-open", noProgram("xdg-open"), "warning", "OpenFile"},
        {"certificates", without("/etc/ssl/certs/ca-certificates.crt"), "warning", "https"},
        {"device-process", status("deviceProcess", R"({"pid":0,"lastReason":"no file"})"), "fault",
         "no file"},
        {"device-process", status("deviceProcess", R"({"inside":true})"), "warning", "inside"},
        {"device-restarts", status("deviceProcess", R"({"restarts":1,"lastReason":"signal 11"})"),
         "warning", "1, signal 11"},
        {"device-restarts",
         status("deviceProcess", R"({"restarts":2,"lastReason":"the access policy"})"), "warning",
         "2"},
        {"device-restarts", status("deviceProcess", R"({"restarts":5})"), "fault", "5"},
        {"device-calls",
         status("deviceProcess", R"({"calls":[{"function":"readIDCard","forMs":6000}]})"),
         "warning", "readIDCard"},
        {"device-restarts", isBusy, "warning", "not known yet"},
        {"device-calls", isBusy, "warning", "not known yet"},
        {"library", isBusy, "warning", "not known yet"},
        {"library", status("deviceProcess", R"({"inside":true})"), "warning", "inside the server"},
        {"library", status("deviceProcess", R"({"missing":"bStartPlay9"})"), "warning",
         "no bStartPlay9"},
        {"library", status("deviceProcess", R"({"libraryError":"no such file"})"), "fault",
         "no such file"},
        {"simulation", [](FakeTerminal &t) { t.m_status->insert(line("simulation"), true); },
         "warning", "simulated"},
        {"pages",
         [](FakeTerminal &t) {
             t.m_status->insert(line("pages"),
                                QJsonArray{object(R"({"origin":"https://x","bytesWaiting":2e7})")});
         },
         "fault", "https://x"},
        {"policy",
         [](FakeTerminal &t) {
             t.m_policy = {nullptr, accesspolicy::PolicyError{line("/a.ini"), 3, line("bad")}};
         },
         "fault", "/a.ini:3: bad"},
        {"policy", [](FakeTerminal &t) { t.m_policy = {}; }, "warning", "any web page"},
        {"policy-mode", [](FakeTerminal &t) { t.m_policy.policy = policyOf(line("mode=report")); },
         "warning", "refuses nothing"},
        {"policy-in-force", status("access", R"({"file":"/other"})"), "warning", "another policy"},
    };
    return all;
}

Finding findingOf(const QString &id, const FakeTerminal &terminal)
{
    for (const Check &check : allChecks()) {
        if (id == QLatin1String(check.id)) {
            return check.look(terminal);
        }
    }
    return {Finding::Level::Fault, line("no such check"), {}};
}

} // namespace

Q_DECLARE_METATYPE(Change)

class TestDoctor : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { speakChinese(false); }

    void nothingIsWrongWithAGoodTerminal()
    {
        QStringList ids;
        const QJsonArray findings = examine(FakeTerminal());
        for (const QJsonValue &value : findings) {
            const QJsonObject finding = value.toObject();
            ids << finding.value(line("id")).toString();
            QVERIFY2(finding.value(line("level")) == line("ok"),
                     QJsonDocument(finding).toJson().constData());
        }
        QVERIFY(ids.size() >= 30);
        for (const FaultyTerminal &faulty : faultyTerminals()) {
            ids.removeAll(line(faulty.check));
        }
        QCOMPARE(ids, QStringList()); // each check has a row below
    }

    void aFaultIsFoundByItsCheck_data()
    {
        const Rows<int> row("index");
        int index = 0;
        for (const FaultyTerminal &faulty : faultyTerminals()) {
            row(QStringLiteral("%1 %2").arg(line(faulty.check)).arg(index), index);
            ++index;
        }
    }
    void aFaultIsFoundByItsCheck()
    {
        QFETCH(int, index);
        const FaultyTerminal &faulty = faultyTerminals()[std::size_t(index)];
        FakeTerminal terminal;
        faulty.change(terminal);
        const Finding found = findingOf(line(faulty.check), terminal);
        QCOMPARE(levelName(found.level), line(faulty.level));
        QVERIFY2(found.meaning.contains(line(faulty.meaning)), qPrintable(found.meaning));
        QVERIFY(!found.advice.isEmpty());
        speakChinese(true);
        const Finding chinese = findingOf(line(faulty.check), terminal);
        QVERIFY(chinese.meaning != found.meaning && chinese.advice != found.advice);
        QVERIFY(!chinese.meaning.contains(line("%1")));
    }

    void aGoodTerminalMayBeDifferent_data()
    {
        const Rows<QString, Change> row("check", "change");
        for (const char *pattern : {"*", "b.example", "https://b.example:443/", "[*.]example",
                                    "https://[*.]b.example", "*://b.example:*"}) {
            row(line("browser-policy ") + line(pattern), "browser-policy", allowed(pattern));
        }
        row("a local page", "browser-policy", [](FakeTerminal &t) {
            t.m_policy.policy = policyOf(line("[grant.a] origin=http://localhost:8080"));
        });
        row("old problems", "log-errors", problems({}));
        row("a decoder that may not be opened", "camera-permission", [](FakeTerminal &t) {
            t.add("/dev/video1", 0);
            t.m_files[line("/dev/video1")].isReadable = false;
            t.m_decoders << line("/dev/video1");
        });
        row("a preview that starts", "camera-frames",
            status("camera", R"({"framesPerSecond":0,"waitingMs":1500})"));
        row("a measured one", "camera-frames", [](FakeTerminal &t) { t.m_measured = {25}; });
        row("an abstract socket", "display",
            [](FakeTerminal &t) { t.m_listening = words("@/tmp/.X11-unix/X0"); });
        row("X over the network", "display", [](FakeTerminal &t) {
            t.m_variables[line("DISPLAY")] = line("far:1.0");
            t.m_listening = words("far:6001");
        });
        row("Wayland", "display", [](FakeTerminal &t) {
            t.m_variables = {{line("WAYLAND_DISPLAY"), line("w")},
                             {line("XDG_RUNTIME_DIR"), line("/r")}};
            t.m_listening = words("/r/w");
        });
    }
    void aGoodTerminalMayBeDifferent()
    {
        QFETCH(QString, check);
        QFETCH(Change, change);
        FakeTerminal terminal;
        change(terminal);
        const Finding found = findingOf(check, terminal);
        QVERIFY2(found.level == Finding::Level::Good, qPrintable(found.meaning));
    }

    /// The machine itself, by sockets and programs of the test.
    void servicesOfTheMachine()
    {
        const SystemEnvironment machine;
        const QTemporaryDir folder;
        const QString path = folder.filePath(line("socket"));
        QVERIFY(!machine.accepts(path));
        writeFile(path, "");
        QVERIFY(!machine.accepts(path)); // a file is no service
        QFile::remove(path);
        QLocalServer local;
        QVERIFY(local.listen(path) && machine.accepts(path));
        QTcpServer tcp;
        QVERIFY(tcp.listen(QHostAddress::LocalHost));
        const QString address = line("127.0.0.1:%1").arg(tcp.serverPort());
        QVERIFY(machine.accepts(address));
        tcp.close();
        QVERIFY(!machine.accepts(address) && !machine.accepts(line("@nobody")));
        QVERIFY(!machine.isCamera(line("/dev/null")) && !machine.isCamera(line("/dev/none")));
    }

    void programsShareTheirTime()
    {
        const SystemEnvironment machine(300);
        QVERIFY(machine.run(line("sleep"), {line("60")}).isLate);
        QElapsedTimer timer;
        timer.start();
        const auto second = machine.run(line("true"), {}); // no time is left to start it
        QVERIFY(second.isLate && !second.isStarted && timer.elapsed() < 60000);
    }

    void whatIsNotTakenForAnotherServer_data()
    {
        const Rows<QString> row("commandLine");
        for (const char *left : {"bash -c rvowebSocketServer", "less rvowebSocketServer.txt",
                                 "QtCreator rvowebSocketServer.pro", "sudo ./rvowebSocketServer"}) {
            row(left, left);
        }
    }
    void whatIsNotTakenForAnotherServer()
    {
        QFETCH(QString, commandLine);
        FakeTerminal terminal;
        terminal.m_processes.append({99, commandLine});
        QCOMPARE(levelName(findingOf(line("instance"), terminal).level), line("ok"));
    }
};

QTEST_GUILESS_MAIN(TestDoctor)
#include "tst_doctor.moc"
