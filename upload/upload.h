// SPDX-License-Identifier: MIT
#pragma once

#include <QObject>
#include <QPointer>
#include <QString>

#include <optional>

class MessageRun;
class QDialog;

/**
 * One upload with its progress dialog and result box. The device library's call runs in UploadPool;
 * when it is done, the reply goes to the page, then the result box is shown.
 *
 * There is no nested event loop: the dialogs are modal windows that this object opens and closes.
 * Meanwhile pages may connect, leave and send commands, including further uploads; each upload is
 * answered when it is done, in whatever order they started. Deletes itself after the reply. Main
 * thread only.
 */
class Upload : public QObject
{
    Q_OBJECT

public:
    /**
     * Starts an upload.
     * \param name  the command, for the reply
     * \param args  its nine fields; with fewer, the reply is "false" and nothing is uploaded
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
    std::optional<Outcome> m_outcome; // set from the end of the upload until the reply
    QPointer<QDialog> m_progress;
    bool m_resultWanted;
};
