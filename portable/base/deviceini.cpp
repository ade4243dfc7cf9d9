// SPDX-License-Identifier: MIT
#include "portable/base/deviceini.h"

#include "portable/base/inifile.h"

#include <QCoreApplication>
#include <QDir>

namespace portable {

QString deviceConfigPath()
{
    return QCoreApplication::applicationDirPath() + QStringLiteral("/devices.ini");
}

QString deviceSetting(const QString &key)
{
    return IniFile(deviceConfigPath()).text(key);
}

QString deviceFolder(const QString &key, const QString &usual)
{
    const QString folder = deviceSetting(key);
    return QDir(QCoreApplication::applicationDirPath())
        .absoluteFilePath(folder.isEmpty() ? usual : folder);
}

} // namespace portable
