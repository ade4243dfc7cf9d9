// SPDX-License-Identifier: MIT
// devicectl: each check both ways, calls against a fake server, what leaves the machine.
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
#include "devicectl/systemenvironment.h"
#include "devicectl/texts.h"
#include "tests/accesspolicy.h"
#include "tests/files.h"
#include "tests/rows.h"

#include <QElapsedTimer>
#include <QJsonDocument>
#include <QLocalServer>
#include <QRegularExpression>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QWebSocket>
#include <QWebSocketServer>

#include <functional>

namespace {

QJsonObject object(const char *text)
{
    return QJsonDocument::fromJson(text).object();
}

const char *const healthyStatus = R"({"version":"1.0.2","uptimeSeconds":12.5,"port":1818,
    "mainThread":{"answers":true,"command":"","forMs":0},"simulation":false,
    "camera":{"source":1,"paused":false,"framesPerSecond":25.5,"framesFetched":100,"fetchMs":2},
    "deviceProcess":{"pid":7,"restarts":0,"lastReason":"","missing":"","calls":[],
        "runningSeconds":3661,"residentKiB":1024},
    "pageCount":1,"queues":{"unreadBytes":3},
    "pages":[{"address":"127.0.0.1-5","origin":"https://b.example","bytesWaiting":3}],
    "access":{"mode":"enforce","file":"/etc/rvowebsocketserver/access.ini"},
    "memory":{"residentKiB":2048},"problems":[]})";

/// A terminal on which everything is right, until a test changes something.
class FakeTerminal : public Environment
{
public:
    FakeTerminal()
    {
        m_status = object(healthyStatus);
        m_policy.policy = policyOf(QStringLiteral("mode=enforce"));
        auto policy = *m_policy.policy;
        policy.file = QStringLiteral("/etc/rvowebsocketserver/access.ini");
        m_policy.policy = std::make_shared<const accesspolicy::Policy>(policy);
        m_processes = {{5, line("./rvowebSocketServer")}, {7, line("devicehost")}};
        m_holders = {{line("socket:[4711]"), {5}}, {line("/dev/video0"), {7}}};
        for (const char *folder : {"/p", "/d", "/d/log"}) {
            add(folder, 0700);
        }
        for (const char *program :
             {"elecsign", "run-elecsign.sh", "webbrowser", "run-webbrowser.sh", "devicehost"}) {
            add(QByteArray("/p/") + program, 0755);
        }
        for (const char *model : {"tiny_face_detector_model.bin", "face_landmark_68_model.bin",
                                  "face_recognition_model.bin"}) {
            add(QByteArray("/d/models/") + model, 0644);
        }
        for (const char *file :
             {"/dev/video0", "/home/t/.Xauthority", "/run/systemd/timesync/synchronized",
              "/etc/ssl/certs/ca-certificates.crt", "/sys/class/drm/card0-HDMI-A-1",
              "/sys/class/drm/card0-HDMI-A-2", "/sys/bus/usb/devices/1-1:1.0"}) {
            add(file, 0700);
        }
        m_contents = {
            {line("/proc/net/tcp6"),
             "  sl  local_address\n   0: 00000000000000000000000000000000:071A "
             "00000000000000000000000000000000:0000 0A 00000000:00000000 00:00000000 00000000 54321"
             "        0 4711 1 0000000000000000 100 0 0 10 0\n"},
            {line("/proc/meminfo"), "MemTotal: 8000000 kB\nMemAvailable:    4000000 kB\n"},
            {line("/sys/class/drm/card0-HDMI-A-1/status"), "connected\n"},
            {line("/sys/class/drm/card0-HDMI-A-2/status"), "connected\n"},
            {line("/sys/bus/usb/devices/1-1:1.0/bInterfaceClass"), "0b\n"},
            {line("/etc/chromium/policies/managed/a.json"),
             R"({"LoopbackNetworkAllowedForUrls":["https://b.example"]})"},
            {line("/d/log/vx_log_2026-11-22.txt"), "a line\n"},
        };
    }

    void add(const QByteArray &path, int mode)
    {
        FileFacts facts;
        facts.exists = facts.isReadable = facts.isWritable = true;
        facts.isExecutable = (mode & 0100) != 0;
        facts.mode = mode;
        facts.size = 10;
        m_files[QString::fromUtf8(path)] = facts;
    }

    Places places() const override
    {
        return {{line("/d"), line("/etc/x"), line("/p")}, line("/d/log")};
    }
    std::optional<QJsonObject> status() const override { return m_status; }
    accesspolicy::FoundPolicy policy() const override { return m_policy; }
    QDateTime now() const override { return m_now; }
    QString variable(const char *name) const override { return m_variables.value(line(name)); }
    FileFacts facts(const QString &path) const override { return m_files.value(path); }
    QByteArray end(const QString &path, qint64 most) const override
    {
        return m_contents.value(path).right(int(most));
    }
    QStringList entries(const QString &folder) const override
    {
        QStringList names;
        for (const QString &path : m_files.keys() + m_contents.keys()) {
            if (path.startsWith(folder + QLatin1Char('/'))) {
                names << path.mid(folder.size() + 1).section(QLatin1Char('/'), 0, 0);
            }
        }
        names.removeDuplicates();
        return names;
    }
    qint64 freeBytes(const QString &) const override { return m_free; }
    QVector<Process> processes() const override { return m_processes; }
    QVector<qint64> holders(const QString &file) const override { return m_holders.value(file); }
    bool isRoot() const override { return false; }
    bool accepts(const QString &address) const override { return m_listening.contains(address); }
    std::optional<QStringList> cardReaders() const override { return m_readers; }
    Printer printer(const QString &name) const override
    {
        return name.isEmpty() ? m_printer : Printer{m_printer.isAnswered};
    }
    bool isCamera(const QString &node) const override { return !m_decoders.contains(node); }
    std::optional<MeasuredPreview> measuredPreview() const override { return m_measured; }
    bool hasProgram(const QString &name) const override { return m_programs.contains(name); }
    Outcome run(const QString &program, const QStringList &) const override
    {
        return {m_outputs.contains(program), m_isLate, 0, m_outputs.value(program)};
    }

    std::optional<QJsonObject> m_status;
    accesspolicy::FoundPolicy m_policy;
    QDateTime m_now{QDate(2026, 11, 22), QTime(12, 0)};
    QMap<QString, QString> m_variables{{line("DISPLAY"), line(":0")},
                                       {line("XAUTHORITY"), line("/home/t/.Xauthority")}};
    QMap<QString, FileFacts> m_files;
    QMap<QString, QByteArray> m_contents;
    qint64 m_free = qint64(20) << 30;
    QVector<Process> m_processes;
    QMap<QString, QVector<qint64>> m_holders;
    QStringList m_programs = words("ps pdftoppm xdg-open chromium");
    QMap<QString, QString> m_outputs{{line("fc-list"), line("/usr/share/fonts/wqy.ttc")}};
    bool m_isLate = false;
    QStringList m_listening = words("/run/pcscd/pcscd.comm /tmp/.X11-unix/X0");
    std::optional<QStringList> m_readers{words("CCID")};
    Printer m_printer{true, line("office")};
    QStringList m_decoders;
    std::optional<MeasuredPreview> m_measured;
};

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

Q_DECLARE_METATYPE(Change)

class TestDevicectl : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        speakChinese(false);
        qputenv("XDG_RUNTIME_DIR", QFile::encodeName(m_folder.path())); // no server there
    }

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
        const QString path = m_folder.filePath(line("socket"));
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

    void prometheusReadsTheFigures()
    {
        QJsonObject report = object(healthyStatus);
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
        const QString text = statusLines(object(healthyStatus)).join(QLatin1Char('\n'));
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
