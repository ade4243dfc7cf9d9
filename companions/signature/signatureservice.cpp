// SPDX-License-Identifier: MIT
#include "companions/signature/signatureservice.h"

#include "companions/signature/signingjob.h"

#include <QDebug>
#include <QJsonDocument>

namespace {

constexpr int minReply = 101; // bytes: the server drops shorter ones

} // namespace

SignatureService::SignatureService(const std::optional<Ink> &script)
    : m_script(script)
    , m_server(QStringLiteral("SOUTHINTERFACE_ELECSIGNSERVER"), {{1, 1}, {2, 1}})
{
    connect(&m_server, &RequestServer::request, this, &SignatureService::takeRequest);
    connect(&m_server, &RequestServer::clientGone, this, [this] {
        if (m_job) {
            qInfo() << "client disconnected, its request is cancelled";
        }
        endJob();
    });
}

SignatureService::~SignatureService() = default;

QByteArray SignatureService::frame(const QJsonObject &reply)
{
    const QByteArray text =
        QJsonDocument(reply).toJson(QJsonDocument::Compact).leftJustified(minReply, ' ');
    const qint32 length = text.size();
    return QByteArray(reinterpret_cast<const char *>(&length), sizeof length) + text;
}

void SignatureService::takeRequest(int type, const QList<QByteArray> &parts)
{
    if (m_job) {
        qInfo() << "a new request replaces the one on the screen";
    }
    endJob();
    m_job = std::make_unique<SigningJob>(type, parts.value(0), m_script);
    connect(m_job.get(), &SigningJob::finished, this, [this](const QJsonObject &reply) {
        m_server.reply(frame(reply));
        endJob();
    });
    m_job->start();
}

/// Deletes the job later: it may be emitting the signal that led here.
void SignatureService::endJob()
{
    if (!m_job) {
        return;
    }
    m_job->disconnect(this);
    m_job->stop();
    m_job.release()->deleteLater();
}
