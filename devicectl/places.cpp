// SPDX-License-Identifier: MIT
#include "devicectl/places.h"

#include <QCoreApplication>
#include <QFileInfo>

Places findPlaces(const QString &programFolder, const QString &logFolder)
{
    Places places;
    places.program = programFolder;
    if (places.program.isEmpty()) {
        // Beside this program, as in a build; else where the package has it.
        const QString own = QCoreApplication::applicationDirPath();
        const bool isBeside = QFileInfo::exists(own + QStringLiteral("/rvowebSocketServer"));
        places.program = isBeside ? own : QStringLiteral("/usr/lib/rvowebsocketserver");
    }
    places.data = places.program;
    places.log = logFolder.isEmpty() ? places.data + QStringLiteral("/log") : logFolder;
    places.ownPolicy = places.data + QStringLiteral("/access.ini");
    return places;
}
