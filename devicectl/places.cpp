// SPDX-License-Identifier: MIT
#include "devicectl/places.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QJsonObject>

namespace {

/// By what its link in /usr/bin leads to, if it isn't next to this program.
QString programFolder()
{
    const QString server =
        QFileInfo(QCoreApplication::applicationDirPath() + QStringLiteral("/rvowebSocketServer"))
            .canonicalFilePath();
    return server.isEmpty() ? QStringLiteral("/usr/lib/rvowebsocketserver")
                            : QFileInfo(server).path();
}

} // namespace

Places findPlaces(const QJsonObject &folders)
{
    const auto folder = [&folders](const char *name) {
        return folders.value(QLatin1String(name)).toString();
    };
    Places places;
    places.files.program = folder("program");
    places.files.data = folder("data");
    places.files.system = QStringLiteral("/etc/") + QLatin1String(base::dataFolderName);
    places.log = folder("log");
    if (places.files.program.isEmpty()) {
        places.files.program = programFolder();
    }
    if (places.files.data.isEmpty()) {
        const QString named = QFile::decodeName(qgetenv(base::dataFolderVariable));
        places.files.data = named.isEmpty() ? base::usualDataFolder(places.files.program) : named;
    }
    if (places.log.isEmpty()) {
        places.log = places.files.data + QStringLiteral("/log");
    }
    return places;
}
