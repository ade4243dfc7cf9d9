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
 * Draws the pages of a PDF by the program pdftoppm: in a process of its own, with limits of time
 * and memory, for documents come from anywhere.
 *
 * One page is drawn at a time; asking for another one drops the one under way. Pages once drawn are
 * kept, the last few of them. Belongs to the main thread.
 */
class PageRenderer : public QObject
{
    Q_OBJECT

public:
    /// \param document  the whole file; the process gets it on its standard input
    explicit PageRenderer(const QByteArray &document, QObject *parent = nullptr);
    ~PageRenderer() override;

    /// Asks for a page, from 1. The answer comes by a signal, at once for a page that is kept.
    void render(int page);

Q_SIGNALS:
    void rendered(int page, const QImage &image);
    /// \param reason  for a technician
    void failed(int page, const QString &reason);

private:
    void finish(int page, bool ended);
    void drop();

    const QByteArray m_document;
    std::unique_ptr<QProcess> m_process;
    QTimer m_limit;
    QMap<int, QImage> m_images;
};
