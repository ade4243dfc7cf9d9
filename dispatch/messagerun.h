// SPDX-License-Identifier: MIT
#pragma once

#include <QMap>
#include <QObject>
#include <QPointer>
#include <QString>

#include <type_traits>

class QTimer;
class QWebSocket;

/**
 * The current client: the page that sent the latest command; null after any page has left.
 * Replies and library events go to it. Main thread only. Written by the transport alone.
 */
extern QPointer<QWebSocket> gpWebSocket;

/**
 * The dispatcher: turns one text of a page, `name(arguments)`, into one call of the command's
 * callback, and is the door through which replies leave.
 *
 * Lives in the main thread; every callback runs there, one at a time, in the order in which the
 * texts arrived.
 */
class MessageRun : public QObject
{
    Q_OBJECT

public:
    /**
     * A command callback.
     * \param name  the command as received
     * \param args  the argument text: all after the first "(" but the last character
     * \param self  the dispatcher
     * \return the reply that it has sent; nobody looks at it
     */
    using Callback = QString (*)(QString name, QString args, MessageRun *self);

    explicit MessageRun(QObject *parent = nullptr);

    /// The registry: every command that exists, by name.
    const QMap<QString, Callback> &commands() const { return m_commands; }

    /// Sends a text to the current client; drops it when there is none. Main thread only.
    static void send_msg(QString text);

    /**
     * Sends {"code":"1","funcname":...,"data":...} ("0" for a failure) to the current client.
     * The inserted texts are not escaped. Main thread only.
     */
    static void send_json_msg(bool ok, QString funcname, QString data);

    /// send_msg from any thread: the text is sent by the main thread, later.
    void sendmsg_thread(QString text);

    /**
     * The same without a dispatcher at hand: for listeners of the device library that are called
     * on its threads and get no context. The page that is current at delivery gets it.
     */
    static void sendFromAnyThread(const QString &text);

    /**
     * \name Replies: compose the framed text, send it to the current client, return it.
     * @{
     */
    static QString reply(const QString &name, const QString &result);
    static QString reply(const QString &name, bool result);
    static QString reply(const QString &name); ///< the bare acknowledgement, no result
    template <class Number, class = std::enable_if_t<std::is_integral_v<Number>>>
    static QString reply(const QString &name, Number result)
    {
        return reply(name, QString::number(result));
    }
    static QString reply(const QString &name, const char *) = delete; // it would be a truth value
    /// @}

    /**
     * The reply of the many commands that hand two UTF-8 texts on: false, without the call, with
     * fewer than two fields; further fields are ignored.
     */
    static QString replyTwoTexts(const QString &name, const QString &args,
                                 bool (*call)(const char *first, const char *second));

    /// The framed text itself, "Begin<name><result>End<name>".
    static QString framed(const QString &name, const QString &result);

    /// "true" or "false".
    static QString truth(bool value);

#define COMMAND(command)                                                                           \
    static QString command##_callback(QString name, QString args, MessageRun *self);
#include "dispatch/commandlist.h"

Q_SIGNALS:
    void handle_msg_signal(QString msg, QObject *);
    void sig_sendmsg(QString message);
    /// Ends the wait of an upload.
    void sig_sync_close();

public Q_SLOTS:
    /// Entry from the transport: one command text. The socket is not looked at.
    void recv_msg(QString msg, QWebSocket *socket);
    /// Parses one command text and calls its callback; an unknown name gets no answer.
    void handle_msg_slot(QString msg, QObject *);
    /// Pushes one frame to the current client. Nothing starts the timer that would call it.
    void OnSengImgMessage();
    /// An answer of a server to an upload, arriving later: sent as a reply of sUpLoadImageEx2.
    void http_reply_slot(int retCode, QString text);
    /// An event of the automatic scan: sent as a reply of iAutoScan.
    void slot_iAutoshot(int pagenum);
    /// Part of the signal-slot table of the fingerprint modules; there is nothing to do.
    void slot_zazfpRead(bool bOK, QString fileName);

private:
    void InitCallBackMap();

    QTimer *m_previewTimer;
    bool m_pushImages = false;
    QMap<QString, Callback> m_commands;
};
