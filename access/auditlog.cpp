// SPDX-License-Identifier: MIT
#include "access/auditlog.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QDebug>
#include <QJsonDocument>
#include <QJsonObject>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <utility>

namespace accesspolicy {

namespace {

constexpr qint64 longestLine = qint64(64) * 1024;

QByteArray hashOf(const QByteArray &line)
{
    return QCryptographicHash::hash(line, QCryptographicHash::Sha256).toHex();
}

QString rotated(const QString &path, int number)
{
    return QStringLiteral("%1.%2").arg(path).arg(number);
}

} // namespace

bool AuditLog::Settings::operator==(const Settings &other) const
{
    return path == other.path && longest == other.longest && keep == other.keep
        && isChained == other.isChained;
}

void AuditLog::open(const Settings &settings)
{
    if (settings == m_settings) {
        return;
    }
    const bool isOther = settings.path != m_settings.path;
    m_settings = settings;
    if (isOther) {
        m_file.close();
        m_isBroken = false;
        if (!settings.path.isEmpty()) {
            openFile();
        }
    }
}

void AuditLog::openFile()
{
    m_file.setFileName(m_settings.path);
    const QByteArray name = QFile::encodeName(m_settings.path);
    const int descriptor =
        ::open(name.constData(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC | O_NOFOLLOW, 0600);
    struct stat status = {};
    if (descriptor < 0 || fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)
        || status.st_uid != geteuid() || fchmod(descriptor, 0600) != 0
        || !m_file.open(descriptor, QIODevice::ReadWrite | QIODevice::Unbuffered,
                        QFileDevice::AutoCloseHandle)) {
        if (!std::exchange(m_isBroken, true)) {
            qCritical().noquote() << "access: the audit can't be written:" << m_settings.path << "-"
                                  << qt_error_string();
        }
        return;
    }
    m_isBroken = false;
    m_size = m_file.size();
    takeUpChain();
}

/// Finds out number and hash of the last line. What a crash left of one stays, as a line.
void AuditLog::takeUpChain()
{
    if (m_size == 0) {
        return; // of a rotated one, which this object has written
    }
    m_file.seek(qMax(qint64(0), m_size - longestLine));
    const QByteArray end = m_file.readAll();
    const int torn = end.size() - end.lastIndexOf('\n') - 1;
    QByteArray last = end.left(end.size() - torn);
    last.chop(1);
    last.remove(0, last.lastIndexOf('\n') + 1);
    m_previous = hashOf(last);
    m_number =
        qMax(m_number,
             qint64(QJsonDocument::fromJson(last).object().value(QLatin1String("n")).toDouble()));
    if (torn > 0) {
        const QByteArray intact = m_previous;
        m_previous = hashOf(end.right(torn));
        m_file.write("\n");
        writeNow(AuditEvent("resumed").with("intact", intact));
    }
    qInfo().noquote() << "access: the audit goes on behind line" << m_number << m_previous;
}

/// Now, in UTC, as in ISO 8601, to the millisecond.
QByteArray AuditLog::timeText()
{
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    if (now / 1000 != m_timeSecond) {
        m_timeSecond = now / 1000;
        m_time = QDateTime::fromSecsSinceEpoch(m_timeSecond, Qt::UTC)
                     .toString(QStringLiteral("yyyy-MM-ddThh:mm:ss"))
                     .toLatin1();
    }
    return m_time + '.' + QByteArray::number(now % 1000).rightJustified(3, '0') + 'Z';
}

void AuditLog::rotate()
{
    m_file.close();
    QFile::remove(rotated(m_settings.path, m_settings.keep));
    for (int number = m_settings.keep - 1; number >= 1; --number) {
        QFile::rename(rotated(m_settings.path, number), rotated(m_settings.path, number + 1));
    }
    QFile::rename(m_settings.path, rotated(m_settings.path, 1));
    openFile();
}

void AuditLog::write(AuditEvent event)
{
    if (m_settings.path.isEmpty()) {
        return;
    }
    const auto now = base::Clock::shared().now();
    if (now - m_second >= std::chrono::seconds(1)) {
        m_second = now;
        m_lines = 0;
        if (m_leftOut > 0) {
            writeNow(AuditEvent("left out").with("lines", std::exchange(m_leftOut, 0)));
        }
    }
    if (++m_lines > linesPerSecond) {
        ++m_leftOut;
        return;
    }
    writeNow(std::move(event));
}

void AuditLog::writeNow(AuditEvent event)
{
    if (m_file.isOpen() && m_size >= m_settings.longest) {
        rotate();
    } else if (!m_file.isOpen()) {
        openFile();
    }
    if (!m_file.isOpen()) {
        return;
    }
    event.with("n", ++m_number).with("time", timeText());
    if (m_settings.isChained) {
        event.with("prev", m_previous);
    }
    const QByteArray line = event.line();
    if (m_file.write(line + '\n') == line.size() + 1) {
        m_isBroken = false;
        m_previous = hashOf(line);
        m_size += line.size() + 1;
        return;
    }
    if (!std::exchange(m_isBroken, true)) {
        qCritical().noquote() << "access: the audit can't be written:" << m_file.errorString();
    }
    m_file.close(); // opening it again finds what was written of the line
}

} // namespace accesspolicy
