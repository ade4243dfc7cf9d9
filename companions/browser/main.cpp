// SPDX-License-Identifier: MIT
//
// The browser helper: shows pages on the customer's screen, at the server's request.

#include "base/datafolder.h"
#include "companions/browser/browserhelper.h"
#include "companions/common/companionprogram.h"
#include "companions/common/customerscreen.h"

#include <QDebug>
#include <QGuiApplication>

int main(int argc, char *argv[])
{
    prepareCompanion();
    QGuiApplication application(argc, argv);
    QGuiApplication::setQuitOnLastWindowClosed(false);
    BrowserHelper helper(
        [] { return BrowserSettings::read(base::findData(QStringLiteral("server.ini"))); },
        [] { return hasDisplay() ? screenGeometries() : QVector<QRect>(); });
    if (!hasDisplay()) {
        // Only a new instance finds a display that appears later.
        qWarning() << "no display: every page will fail; DISPLAY is" << qgetenv("DISPLAY")
                   << "and Qt's platform" << QGuiApplication::platformName();
        QObject::connect(&helper, &BrowserHelper::idle, &application, &QCoreApplication::quit);
    }
    return runCompanion(helper.start());
}
