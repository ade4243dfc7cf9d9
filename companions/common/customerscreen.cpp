// SPDX-License-Identifier: MIT
#include "companions/common/customerscreen.h"

#include <QGuiApplication>
#include <QScreen>

int smallestScreen(const QVector<QRect> &screens)
{
    int smallest = 0;
    for (int i = 1; i < screens.size(); ++i) {
        if (screens[i].width() < screens[smallest].width()
            && screens[i].height() < screens[smallest].height()) {
            smallest = i;
        }
    }
    return smallest;
}

QVector<QRect> screenGeometries()
{
    QVector<QRect> geometries;
    const auto screens = QGuiApplication::screens();
    for (const QScreen *screen : screens) {
        geometries << screen->geometry();
    }
    return geometries;
}

QScreen *customerScreen()
{
    return QGuiApplication::screens().value(smallestScreen(screenGeometries()));
}
