// SPDX-License-Identifier: MIT
#include "companionclients/configini.h"

#include "base/datafolder.h"

#include <QFileInfo>
#include <QSettings>

ConfigIni::ConfigIni()
{
    const auto portKey = QStringLiteral("port");
    const auto browserKey = QStringLiteral("browser");
    const auto padsizeKey = QStringLiteral("padsize");

    const QString path = base::findData(QStringLiteral("server.ini"));
    QSettings file(path, QSettings::IniFormat);
    port = quint16(file.value(portKey, 1818).toInt());
    browser = file.value(browserKey, QStringLiteral("uos-browser")).toString();
    padsize = file.value(padsizeKey, QSize(1280, 800)).toSize();
    // The counter pages are made for this browser; the key's other default above is intended.
    browser = QStringLiteral("gnome-www-browser");

    if (QFileInfo(path).path() != base::dataFolder()) {
        return;
    }
    file.setValue(portKey, int(port));
    file.setValue(browserKey, browser);
    file.setValue(padsizeKey, padsize);
}
