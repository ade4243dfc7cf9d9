// SPDX-License-Identifier: MIT
#pragma once

#include <QObject>
#include <QPointer>
#include <QString>

#include <optional>

class MessageRun;
class QDialog;

/**
 * One upload with its progress box and result box: the device library's call runs on the global
 * thread pool, the answer goes to the page when it is done, then the result box is shown.
 *
 * No event loop is nested for it: the boxes are modal windows that this object opens and closes,
 * so pages may come, leave and send commands meanwhile, further uploads among them, and each upload
 * is answered when it is done, whichever began first. Deletes itself after the answer. Main thread.
 */
class Upload : public QObject
{
    Q_OBJECT

public:
    /**
     * Starts an upload.
     * \param name  the command, for the answer
     * \param args  its nine fields (fewer: the answer is "false", nothing is uploaded)
     */
    static void start(const QString &name, const QString &args, MessageRun *dispatcher);

private:
    struct Outcome
    {
        bool success = false;
        QString answer;
    };

    Upload(const QString &name, const QString &args, MessageRun *dispatcher);

    void showProgress();
    void finishIfDone();
    void showResult(bool success);

    const QString m_name;
    std::optional<Outcome> m_outcome; // from the end of the upload until it is answered
    QPointer<QDialog> m_progress;
    bool m_resultWanted;
};
