// SPDX-License-Identifier: MIT
#pragma once

#include "companions/signature/ink.h"
#include "companions/signature/signingrequest.h"

#include <QElapsedTimer>
#include <QJsonObject>
#include <QObject>
#include <QTimer>

#include <functional>
#include <memory>
#include <optional>

class PageRenderer;
class PdfDocument;
class SignWindow;

/**
 * One request: reads the document, shows it, takes the signature, writes the signed document.
 * Destroying it takes the window from the screen and leaves nothing behind.
 *
 * The document is read once: what the customer sees is what is signed, whatever becomes of the
 * file.
 */
class SigningJob : public QObject
{
    Q_OBJECT

public:
    /**
     * \param type, json  the request
     * \param script      draws these strokes and confirms, in place of a customer; one without
     *                    strokes cancels
     */
    SigningJob(int type, const QByteArray &json, const std::optional<Ink> &script);
    ~SigningJob() override;

    /// Begins; the answer comes by finished().
    void start();

    /// Takes the window away; no answer comes any more.
    void stop();

Q_SIGNALS:
    /// It is over, however it went. Comes once. \param reply  for the server's pages
    void finished(const QJsonObject &reply);

private:
    void attempt(const std::function<void()> &step);
    void open();
    void pageDrawn(int page, const QImage &image);
    void playScript();
    void playUpTo(double seconds);
    QJsonObject writeSigned();
    QByteArray record(const QByteArray &signedBytes, const QString &signedPath) const;
    void fail(int code, const QString &message);
    void finish(const QString &status, int code, const QString &message,
                QJsonObject details = QJsonObject());
    QJsonObject placeAsJson() const;

    const int m_type;
    const QByteArray m_json;
    const std::optional<Ink> m_script;
    SigningRequest m_request;
    QByteArray m_original;
    std::unique_ptr<PdfDocument> m_document;
    std::unique_ptr<PageRenderer> m_renderer;
    std::unique_ptr<SignWindow> m_window;
    bool m_opened = false;
    bool m_finished = false;

    QTimer m_scriptTimer;
    QElapsedTimer m_scriptClock;
    int m_scriptStroke = 0;
    int m_scriptPoint = 0;
};
