// SPDX-License-Identifier: MIT
#include "companions/browser/browsersettings.h"

#include <QDebug>
#include <QSettings>

BrowserSettings BrowserSettings::read(const QString &path)
{
    BrowserSettings settings;
    const QSettings file(path, QSettings::IniFormat);

    const QSize size = file.value(QStringLiteral("padsize")).toSize();
    if (size.width() > 0 && size.height() > 0) {
        settings.windowSize = size;
    }

    const QString browser = file.value(QStringLiteral("webbrowser/browser")).toString();
    if (!browser.isEmpty()) {
        settings.browsers = QStringList{browser};
    }
    settings.options = file.value(QStringLiteral("webbrowser/options")).toStringList();
    settings.options.removeAll(QString());

    const QString fullScreen = file.value(QStringLiteral("webbrowser/fullscreen")).toString();
    if (fullScreen == QLatin1String("auto")) {
        settings.fullScreen = FullScreen::Auto;
    } else if (fullScreen == QLatin1String("never")) {
        settings.fullScreen = FullScreen::Never;
    } else if (!fullScreen.isEmpty() && fullScreen != QLatin1String("always")) {
        qWarning() << "server.ini: fullscreen is always, auto or never, not" << fullScreen;
    }
    return settings;
}
