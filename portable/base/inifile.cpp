// SPDX-License-Identifier: MIT
#include "portable/base/inifile.h"

#include "portable/base/failure.h"
#include "portable/base/filereader.h"
#include "portable/base/inputlimits.h"

#include <QFileInfo>

namespace portable {

namespace {

/// The path for QSettings, which would wait for a FIFO and read a file of any size.
QString checked(const QString &path)
{
    QString error;
    RegularFile file;
    if (file.open(path, limits::settingsFile, &error) || !QFileInfo::exists(path)) {
        return path;
    }
    logFailure(path, error);
    return QStringLiteral("/dev/null");
}

} // namespace

IniFile::IniFile(const QString &path)
    : m_path(path)
    , m_settings(checked(path), QSettings::IniFormat)
{
    m_settings.setIniCodec("UTF-8");
    if (m_settings.status() == QSettings::AccessError) {
        logProblem(QStringLiteral("it can't be read"));
    } else if (m_settings.status() == QSettings::FormatError) {
        logProblem(QStringLiteral("there are lines in it without \"=\""));
    }
}

QStringList IniFile::keys(const QString &group)
{
    m_settings.beginGroup(group);
    QStringList result = m_settings.childKeys();
    m_settings.endGroup();
    return result;
}

QString IniFile::text(const QString &key) const
{
    // QSettings splits a value at unquoted commas; here commas are part of it.
    return m_settings.value(key).toStringList().join(QLatin1Char(',')).trimmed();
}

bool IniFile::isOn(const QString &key) const
{
    const QStringList on{QStringLiteral("true"), QStringLiteral("1"), QStringLiteral("yes"),
                         QStringLiteral("on")};
    const QStringList off{QString(), QStringLiteral("false"), QStringLiteral("0"),
                          QStringLiteral("no"), QStringLiteral("off")};
    const QString value = text(key).toLower();
    if (!on.contains(value) && !off.contains(value)) {
        logProblem(QStringLiteral("%1 must be true or false, not \"%2\"").arg(key, value));
    }
    return on.contains(value);
}

void IniFile::logProblem(const QString &what) const
{
    logFailure(m_path, what);
}

} // namespace portable
