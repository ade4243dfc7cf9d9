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
 * Carries out a request: reads the document, shows it, takes the signature, writes the signed
 * document. Destroying it closes the window and leaves nothing behind.
 *
 * The document is read once: the customer signs what is shown, even if the file changes.
 */
class SigningJob : public QObject
{
    Q_OBJECT

public:
    /**
     * \param type, json  the request
     * \param script      strokes to draw and confirm in place of a customer; without strokes it
     *                    cancels
     */
    SigningJob(int type, const QByteArray &json, const std::optional<Ink> &script);
    ~SigningJob() override;

    /// Starts; finished() reports the outcome.
    void start();

    /// Hides the window; finished() is no longer emitted.
    void stop();

Q_SIGNALS:
    /// Emitted once, whatever the outcome. \param reply  for the server's clients
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
