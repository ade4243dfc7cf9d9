// SPDX-License-Identifier: MIT
//
// The browser helper: shows pages on the customer's screen, as the server asks for them.

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
    const QString settings = QCoreApplication::applicationDirPath() + QLatin1String("/server.ini");
    BrowserHelper helper([settings] { return BrowserSettings::read(settings); },
                         [] { return hasDisplay() ? screenGeometries() : QVector<QRect>(); });
    if (!hasDisplay()) {
        // A display that comes later is only found by a new instance.
        qWarning() << "no display: every page will fail; DISPLAY is" << qgetenv("DISPLAY")
                   << "and Qt's platform" << QGuiApplication::platformName();
        QObject::connect(&helper, &BrowserHelper::idle, &application, &QCoreApplication::quit);
    }
    switch (helper.start()) {
    case RequestServer::Start::Listening:
        return QGuiApplication::exec();
    case RequestServer::Start::AnotherRuns:
        return 0;
    case RequestServer::Start::Failed:
        return 1;
    }
    return 1;
}
