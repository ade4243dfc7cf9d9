// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QtTest>

/**
 * Keeps what a worker thread emits, received like the server's transport does: in the event loop.
 * (A QSignalSpy would be written to by the worker's thread.)
 */
class Messages : public QObject
{
public:
    template <class Worker> explicit Messages(Worker *worker)
    {
        connect(worker, &Worker::sig_msg, this, [this](const QByteArray &text) { m_list << text; });
    }

    const QList<QByteArray> &list() const { return m_list; }
    void clear() { m_list.clear(); }

    /// Waits for the next message; "nothing" if none comes.
    QByteArray next()
    {
        const bool came = QTest::qWaitFor([this] { return !m_list.isEmpty(); }, 30000);
        return came ? m_list.takeFirst() : QByteArray("nothing");
    }

    /// Waits for the next message that is not a preview frame.
    QByteArray nextReply()
    {
        QByteArray text = next();
        while (text.startsWith("/9j/")) {
            text = next();
        }
        return text;
    }

private:
    QList<QByteArray> m_list;
};
