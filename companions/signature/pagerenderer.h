// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QImage>
#include <QMap>
#include <QObject>
#include <QProcess>
#include <QTimer>

#include <memory>

/**
 * Renders pages of a PDF with pdftoppm: in another process with limits on time and memory, since
 * documents come from anywhere.
 *
 * Renders one page at a time; a new request cancels the one in progress. Keeps a few rendered
 * pages. Main thread only.
 */
class PageRenderer : public QObject
{
    Q_OBJECT

public:
    /// \param document  the whole file, passed to the process on its standard input
    explicit PageRenderer(const QByteArray &document, QObject *parent = nullptr);
    ~PageRenderer() override;

    /// Requests a page, counted from 1. Answers with a signal, at once if the page is kept.
    void render(int page);

Q_SIGNALS:
    void rendered(int page, const QImage &image);
    /// \param reason  for a technician
    void failed(int page, const QString &reason);

private:
    void finish(int page, bool ended);
    void cancel();

    const QByteArray m_document;
    std::unique_ptr<QProcess> m_process;
    QTimer m_timeLimit;
    QMap<int, QImage> m_images;
};
