// SPDX-License-Identifier: MIT
#include "devicectl/systemenvironment.h"

#include "base/statuspath.h"
#include "devicectl/services.h"
#include "devicectl/statusclient.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>

namespace {

constexpr int longest = 2000; ///< of one program or service, in ms

QByteArray encoded(const QString &path)
{
    return QFile::encodeName(path);
}

QVector<qint64> processIds()
{
    QVector<qint64> ids;
    const auto names = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs);
    for (const QString &name : names) {
        bool isNumber = false;
        const qint64 id = name.toLongLong(&isNumber);
        if (isNumber && id != QCoreApplication::applicationPid()) {
            ids << id;
        }
    }
    return ids;
}

/// readlink, not QFile: the target of a socket is no path.
QString linkTarget(const QString &link)
{
    char target[4096];
    const ssize_t length = ::readlink(encoded(link).constData(), target, sizeof target);
    return length <= 0 ? QString() : QFile::decodeName(QByteArray(target, int(length)));
}

} // namespace

Environment::~Environment() = default;

SystemEnvironment::SystemEnvironment(int patience)
    : m_deadline(patience)
    , m_status(askForStatus(base::statusSocketPath(), &m_statusError))
{
    m_places =
        findPlaces(m_status.value_or(QJsonObject()).value(QStringLiteral("folders")).toObject());
}

accesspolicy::FoundPolicy SystemEnvironment::policy() const
{
    return accesspolicy::findPolicy(
        accesspolicy::PolicyPlaces::of(m_places.files.program, m_places.files.data));
}

QString SystemEnvironment::variable(const char *name) const
{
    return QString::fromLocal8Bit(qgetenv(name));
}

Environment::FileFacts SystemEnvironment::facts(const QString &path) const
{
    FileFacts facts;
    struct stat status = {};
    const QByteArray name = encoded(path);
    if (::stat(name.constData(), &status) != 0) {
        return facts;
    }
    facts.exists = true;
    facts.isReadable = ::access(name.constData(), R_OK) == 0;
    facts.isWritable = ::access(name.constData(), W_OK) == 0;
    facts.isExecutable = ::access(name.constData(), X_OK) == 0;
    facts.mode = int(status.st_mode & 07777);
    facts.owner = status.st_uid;
    facts.size = S_ISREG(status.st_mode) ? qint64(status.st_size) : 0;
    return facts;
}

QByteArray SystemEnvironment::end(const QString &path, qint64 most) const
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return {};
    }
    if (file.size() > most) {
        file.seek(file.size() - most);
    }
    return file.read(most);
}

QStringList SystemEnvironment::entries(const QString &folder) const
{
    return QDir(folder).entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot,
                                  QDir::Name);
}

qint64 SystemEnvironment::freeBytes(const QString &folder) const
{
    QString existing = folder;
    while (!QFileInfo::exists(existing) && existing.size() > 1) {
        existing = QFileInfo(existing).path();
    }
    struct statvfs disk = {};
    return ::statvfs(encoded(existing).constData(), &disk) == 0
        ? qint64(disk.f_bavail) * qint64(disk.f_frsize)
        : 0;
}

QVector<Environment::Process> SystemEnvironment::processes() const
{
    QVector<Process> list;
    const auto ids = processIds();
    for (const qint64 id : ids) {
        QByteArray line = end(QStringLiteral("/proc/%1/cmdline").arg(id), 1 << 16);
        line.replace('\0', ' ');
        if (!line.isEmpty()) { // threads of the kernel have none
            list.append({id, QString::fromLocal8Bit(line).trimmed(),
                         QFileInfo(QStringLiteral("/proc/%1").arg(id)).owner()});
        }
    }
    return list;
}

QVector<qint64> SystemEnvironment::holders(const QString &file) const
{
    QVector<qint64> found;
    const auto ids = processIds();
    for (const qint64 id : ids) {
        const QString folder = QStringLiteral("/proc/%1/fd/").arg(id);
        const QStringList names = entries(folder); // empty for those of other users
        if (std::any_of(names.begin(), names.end(),
                        [&](const QString &name) { return linkTarget(folder + name) == file; })) {
            found << id;
        }
    }
    return found;
}

int SystemEnvironment::timeLeft() const
{
    return int(qBound<qint64>(0, m_deadline.remainingTime(), longest));
}

bool SystemEnvironment::isRoot() const
{
    return ::geteuid() == 0;
}

bool SystemEnvironment::accepts(const QString &address) const
{
    return acceptsConnections(address, timeLeft());
}

std::optional<QStringList> SystemEnvironment::cardReaders() const
{
    return cardReaderNames(timeLeft());
}

Environment::Printer SystemEnvironment::printer(const QString &name) const
{
    return printerState(name, timeLeft());
}

bool SystemEnvironment::isCamera(const QString &node) const
{
    return isCaptureNode(node);
}

bool SystemEnvironment::hasProgram(const QString &name) const
{
    return !QStandardPaths::findExecutable(name).isEmpty()
        || !QStandardPaths::findExecutable(name,
                                           {QStringLiteral("/usr/sbin"), QStringLiteral("/sbin")})
                .isEmpty();
}

Environment::Outcome SystemEnvironment::run(const QString &program,
                                            const QStringList &arguments) const
{
    Outcome outcome;
    const int patience = timeLeft();
    outcome.isLate = patience == 0;
    if (outcome.isLate) {
        return outcome;
    }
    QProcess process;
    process.start(program, arguments, QIODevice::ReadOnly);
    if (process.waitForFinished(patience)) {
        outcome.isStarted = process.exitStatus() == QProcess::NormalExit;
        outcome.status = process.exitCode();
    } else {
        outcome.isLate = process.error() == QProcess::Timedout;
        process.kill();
        process.waitForFinished(longest);
    }
    outcome.output = QString::fromLocal8Bit(process.readAllStandardOutput());
    return outcome;
}
