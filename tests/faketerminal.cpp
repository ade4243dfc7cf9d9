// SPDX-License-Identifier: MIT
#include "tests/faketerminal.h"

#include "tests/accesspolicy.h"

#include <QJsonDocument>

QJsonObject object(const char *json)
{
    return QJsonDocument::fromJson(json).object();
}

QJsonObject healthyStatus()
{
    return object(R"({"version":"1.0.2","uptimeSeconds":12.5,"port":1818,
    "mainThread":{"answers":true,"command":"","forMs":0},"simulation":false,
    "camera":{"source":1,"paused":false,"framesPerSecond":25.5,"framesFetched":100,"fetchMs":2},
    "deviceProcess":{"pid":7,"restarts":0,"lastReason":"","missing":"","calls":[],
        "runningSeconds":3661,"residentKiB":1024},
    "pageCount":1,"queues":{"unreadBytes":3},
    "pages":[{"address":"127.0.0.1-5","origin":"https://b.example","bytesWaiting":3}],
    "access":{"mode":"enforce","file":"/etc/rvowebsocketserver/access.ini"},
    "memory":{"residentKiB":2048},"problems":[]})");
}

FakeTerminal::FakeTerminal()
{
    m_status = healthyStatus();
    auto policy = *policyOf(line("mode=enforce"));
    policy.file = line("/etc/rvowebsocketserver/access.ini");
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

void FakeTerminal::add(const QByteArray &path, int mode)
{
    FileFacts facts;
    facts.exists = facts.isReadable = facts.isWritable = true;
    facts.isExecutable = (mode & 0100) != 0;
    facts.mode = mode;
    facts.size = 10;
    m_files[QString::fromUtf8(path)] = facts;
}

QStringList FakeTerminal::entries(const QString &folder) const
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
