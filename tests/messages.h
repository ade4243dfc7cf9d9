// SPDX-License-Identifier: MIT
#pragma once

#include "camera/captureimgthread.h"
#include "tests/waitfor.h"

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QtTest>

/**
 * Collects what a worker thread emits the way the transport gets it, through the event loop.
 * (A QSignalSpy would be written to by the worker's thread.)
 */
class Messages : public QObject
{
public:
    template <class Worker> explicit Messages(Worker *worker)
    {
        keep(worker, &Worker::sig_msg, m_results);
    }
    explicit Messages(CaptureImgThread *worker)
    {
        keep(worker, &CaptureImgThread::sig_msg, m_results);
        keep(worker, &CaptureImgThread::sig_frame, m_frames);
    }

    /// Results and frames received and not yet taken with next() or nextFrame().
    const QList<QByteArray> &list() const { return m_results; }
    const QList<QByteArray> &frames() const { return m_frames; }

    /// Waits for the next result; "nothing" if none comes.
    QByteArray next() { return takeFrom(m_results); }

    /// Waits for the next preview frame; "nothing" if none comes.
    QByteArray nextFrame() { return takeFrom(m_frames); }

private:
    template <class Worker, class Signal>
    void keep(Worker *worker, Signal signal, QList<QByteArray> &list)
    {
        connect(worker, signal, this, [&list](const QByteArray &text) { list << text; });
    }

    static QByteArray takeFrom(QList<QByteArray> &list)
    {
        const bool came = waitFor([&list] { return !list.isEmpty(); });
        return came ? list.takeFirst() : QByteArray("nothing");
    }

    QList<QByteArray> m_results;
    QList<QByteArray> m_frames;
};
