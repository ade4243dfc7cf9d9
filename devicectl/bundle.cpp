// SPDX-License-Identifier: MIT
#include "devicectl/bundle.h"

#include "devicectl/doctor.h"
#include "devicectl/redaction.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QSysInfo>
#include <QTemporaryDir>

namespace {

constexpr qint64 mostOfAll = 5 << 20; ///< bytes of all logs: reading them takes a second or two
constexpr qint64 mostOfOne = 2 << 20;
constexpr int archiveTime = 10000; // ms

QByteArray versions(const Environment &environment)
{
    QString text = QStringLiteral("devicectl %1\nQt %2\n%3, %4\n")
                       .arg(QStringLiteral(DEVICECTL_VERSION), QLatin1String(qVersion()),
                            QSysInfo::prettyProductName(), QSysInfo::currentCpuArchitecture());
    text += environment.run(QStringLiteral("uname"), {QStringLiteral("-srm")}).output;
    text += environment
                .run(QStringLiteral("dpkg-query"),
                     {QStringLiteral("-W"), QStringLiteral("rvowebsocketserver*"),
                      QStringLiteral("libopencv-core*"), QStringLiteral("libqt5core5*"),
                      QStringLiteral("chromium*"), QStringLiteral("pcscd"), QStringLiteral("cups")})
                .output;
    return text.toUtf8();
}

/// The problems of the log have been cut to their beginning: a quoted text may lack its end.
QByteArray redactedJson(QJsonObject status)
{
    QJsonArray problems = status.value(QStringLiteral("problems")).toArray();
    for (auto &&each : problems) {
        QJsonObject problem = each.toObject();
        const QByteArray text = problem.value(QStringLiteral("text")).toString().toUtf8();
        problem.insert(QStringLiteral("text"), QString::fromUtf8(withoutPersonalData(text)));
        each = problem;
    }
    status.insert(QStringLiteral("problems"), problems);
    return QJsonDocument(status).toJson();
}

/// Newest first, until the room is used up.
void addLogs(const Environment &environment, QMap<QString, QByteArray> *files)
{
    const QString folder = environment.places().log;
    QStringList names = environment.entries(folder).filter(QStringLiteral("vx_log_"));
    names += environment.entries(folder).filter(QStringLiteral(".log"));
    qint64 room = mostOfAll;
    for (auto name = names.crbegin(); name != names.crend() && room > 0; ++name) {
        if (!name->startsWith(QLatin1String("audit"))) {
            const qint64 most = qMin(room, mostOfOne);
            QByteArray log = environment.end(folder + QLatin1Char('/') + *name, most);
            room -= log.size();
            if (log.size() == most) { // it may begin within a quoted text
                log.remove(0, log.indexOf('\n') + 1);
            }
            files->insert(QStringLiteral("log/") + *name, withoutPersonalData(log));
        }
    }
}

void addSettings(const Environment &environment, const QString &folder, const QString &prefix,
                 QMap<QString, QByteArray> *files)
{
    for (const char *name : {"server.ini", "devices.ini", "access.ini"}) {
        const QByteArray content = environment.end(folder + QLatin1Char('/') + QLatin1String(name));
        if (!content.isEmpty()) {
            files->insert(prefix + QLatin1String(name), withoutSecretSettings(content));
        }
    }
}

} // namespace

QMap<QString, QByteArray> bundleFiles(const Environment &environment)
{
    speakChinese(false); // whoever gets it may not read Chinese, which is left out of the logs
    const Places places = environment.places();
    QMap<QString, QByteArray> files;
    files.insert(QStringLiteral("versions.txt"), versions(environment));
    QByteArray doctor;
    const QJsonArray findings = examine(environment);
    for (const QJsonValue &value : findings) {
        const QJsonObject finding = value.toObject();
        const auto text = [&finding](const char *name) {
            return finding.value(QLatin1String(name)).toString().toUtf8();
        };
        doctor +=
            text("level") + ' ' + text("id") + ": " + withoutPersonalData(text("meaning")) + '\n';
    }
    files.insert(QStringLiteral("doctor.txt"), doctor);
    if (const auto status = environment.status()) {
        files.insert(QStringLiteral("status.json"), redactedJson(*status));
    }
    addSettings(environment, places.files.data, QStringLiteral("settings/"), &files);
    addSettings(environment, places.files.system, QStringLiteral("settings/etc/"), &files);
    addLogs(environment, &files);
    const auto journal = environment.run(
        QStringLiteral("journalctl"),
        {QStringLiteral("--user"), QStringLiteral("-n500"), QStringLiteral("--no-pager"),
         QStringLiteral("-tdevicehost"), QStringLiteral("-trvowebSocketServer")});
    files.insert(QStringLiteral("journal.txt"), withoutPersonalData(journal.output.toUtf8()));
    return files;
}

QString writeBundle(const QMap<QString, QByteArray> &files, const QString &archive)
{
    const QTemporaryDir folder; // for this user only
    for (auto file = files.cbegin(); file != files.cend(); ++file) {
        const QString path = folder.filePath(file.key());
        QDir().mkpath(QFileInfo(path).path());
        QFile target(path);
        if (!target.open(QIODevice::WriteOnly) || target.write(file.value()) < 0) {
            return target.errorString();
        }
    }
    // Made first, so that nobody else can read it at any time.
    QFile made(archive);
    if (!made.open(QIODevice::WriteOnly)
        || !made.setPermissions(QFile::ReadOwner | QFile::WriteOwner)) {
        return QStringLiteral("%1: %2").arg(archive, made.errorString());
    }
    made.close();
    QProcess tar;
    tar.start(QStringLiteral("tar"),
              {QStringLiteral("-czf"), archive, QStringLiteral("-C"), folder.path(),
               QStringLiteral(".")});
    if (!tar.waitForFinished(archiveTime) || tar.exitCode() != 0) {
        return QStringLiteral("tar: %1 %2")
            .arg(tar.errorString(), QString::fromLocal8Bit(tar.readAllStandardError()));
    }
    return {};
}
