// SPDX-License-Identifier: MIT
#include "base/statuspath.h"

#include "base/neighbor.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace base {

QString statusSocketPath()
{
    QString folder = QFile::decodeName(qgetenv("XDG_RUNTIME_DIR"));
    if (folder.isEmpty()) {
        folder = QStringLiteral("/run/user/%1").arg(ownUser());
    }
    if (QFileInfo(folder).isWritable()) {
        return folder + QStringLiteral("/rvowebsocketserver/status");
    }
    return QStringLiteral("%1/rvowebsocketserver-%2/status").arg(QDir::tempPath()).arg(ownUser());
}

} // namespace base
