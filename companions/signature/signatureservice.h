// SPDX-License-Identifier: MIT
#pragma once

#include "companions/common/requestserver.h"
#include "companions/signature/ink.h"

#include <QJsonObject>
#include <QObject>

#include <memory>
#include <optional>

class SigningJob;

/**
 * Handles the server's requests one at a time. A new request replaces the one on the screen, which
 * then gets no reply; a client that disconnects cancels its request.
 */
class SignatureService : public QObject
{
    Q_OBJECT

public:
    /// \param script  see SigningJob
    explicit SignatureService(const std::optional<Ink> &script);
    ~SignatureService() override;

    RequestServer::Start start() { return m_server.start(); }

    /// A framed reply: the length as 32 bits in native byte order, then the JSON text.
    static QByteArray frame(const QJsonObject &reply);

private:
    void takeRequest(int type, const QList<QByteArray> &parts);
    void endJob();

    const std::optional<Ink> m_script;
    RequestServer m_server;
    std::unique_ptr<SigningJob> m_job;
};
