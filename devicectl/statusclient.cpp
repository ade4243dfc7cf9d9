// SPDX-License-Identifier: MIT
#include "devicectl/statusclient.h"

#include "base/neighbor.h"
#include "devicectl/servertexts.h"
#include "devicectl/texts.h"

#include <QJsonDocument>
#include <QLocalSocket>

std::optional<QJsonObject> askForStatus(const QString &path, QString *error)
{
    constexpr int patience = 3000; // ms
    constexpr int longest = 4 << 20; // a report has some kilobytes
    QLocalSocket socket;
    socket.connectToServer(path, QIODevice::ReadOnly);
    if (!socket.waitForConnected(patience)) {
        const bool isLeft = socket.error() == QLocalSocket::ConnectionRefusedError;
        const bool isMissing = socket.error() == QLocalSocket::ServerNotFoundError;
        *error = path + QStringLiteral(": ")
            + (isLeft          ? said({"the server has ended", "服务已退出"})
                   : isMissing ? said({"no server of this user runs", "当前用户的服务没有运行"})
                               : socket.errorString());
        return {};
    }
    *error = inUsersLanguage(base::peerProblem(socket.socketDescriptor()));
    if (!error->isEmpty()) {
        return {};
    }
    QByteArray text = socket.readAll();
    while (socket.state() == QLocalSocket::ConnectedState && text.size() < longest
           && socket.waitForReadyRead(patience)) {
        text += socket.readAll();
    }
    text += socket.readAll();
    const QJsonDocument report = QJsonDocument::fromJson(text);
    if (!report.isObject()) {
        *error = path + QStringLiteral(": ") + said({"no report came", "没有收到状态"});
        return {};
    }
    return report.object();
}
