// SPDX-License-Identifier: MIT
#include "portable/base/deviceini.h"

#include "base/datafolder.h"
#include "portable/base/inifile.h"

#include <QDir>

namespace portable {

QString deviceConfigPath()
{
    return base::findData(QStringLiteral("devices.ini"));
}

QString deviceSetting(const QString &key)
{
    return IniFile(deviceConfigPath()).text(key);
}

QString deviceFolder(const QString &key, const QString &usual)
{
    const QString folder = deviceSetting(key);
    return QDir::isAbsolutePath(folder) ? folder
                                        : base::findData(folder.isEmpty() ? usual : folder);
}

} // namespace portable
