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
 * Takes the server's requests, one at a time: a new one replaces the one on the screen, which gets
 * no reply then, and so does a client that leaves.
 */
class SignatureService : public QObject
{
    Q_OBJECT

public:
    /// \param script  see SigningJob
    explicit SignatureService(const std::optional<Ink> &script);
    ~SignatureService() override;

    RequestServer::Start start() { return m_server.start(); }

    /// A reply's frame: the length in 32 bits of native byte order, the JSON text.
    static QByteArray frame(const QJsonObject &reply);

private:
    void takeRequest(int type, const QList<QByteArray> &parts);
    void endJob();

    const std::optional<Ink> m_script;
    RequestServer m_server;
    std::unique_ptr<SigningJob> m_job;
};
