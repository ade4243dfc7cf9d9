// SPDX-License-Identifier: MIT
#pragma once

#include <QMap>
#include <QObject>
#include <QPointer>
#include <QString>

#include <chrono>
#include <type_traits>

class ClientQueue;
class QTimer;
class QWebSocket;

/**
 * The current client: the page that sent the latest command; null after any page has left, until
 * the next command. Replies and library events go to it. Main thread only. Set by the transport
 * alone.
 */
extern QPointer<QWebSocket> gpWebSocket;

/**
 * The dispatcher: turns each text from a page, `name(arguments)`, into a call of the command's
 * callback, and sends the replies.
 *
 * Lives in the main thread. Every callback runs there, one at a time, in the order in which the
 * texts arrived.
 */
class MessageRun : public QObject
{
    Q_OBJECT

public:
    /**
     * A command callback.
     * \param name  the command as received
     * \param args  the argument text: everything after the first "(" except the last character
     * \param self  the dispatcher
     * \return the reply that was sent; ignored
     */
    using Callback = QString (*)(QString name, QString args, MessageRun *self);

    explicit MessageRun(QObject *parent = nullptr);

    /// The registry: every command by its name.
    const QMap<QString, Callback> &commands() const { return m_commands; }

    /// The texts of all clients that wait to be carried out. The transport fills it.
    ClientQueue *clientQueue() const { return m_clientQueue; }

    /// A command that the main thread is carrying out.
    struct UnderWay
    {
        QString name; ///< empty: none
        std::chrono::milliseconds since{};
    };

    /// What the main thread is at. Any thread.
    static UnderWay underWay();

    /// Sends a text to the current client; drops it if there is none. Main thread only.
    static void send_msg(QString text);

    /**
     * Sends {"code":"1","funcname":...,"data":...} ("0" for a failure) to the current client.
     * The inserted texts are not escaped. Main thread only.
     */
    static void send_json_msg(bool ok, QString funcname, QString data);

    /// send_msg() from any thread. Another thread's text is sent later, by the main thread.
    void sendmsg_thread(QString text);

    /**
     * The same without a dispatcher, for the device library's callbacks: they run on its threads
     * and some get no context. Always sent later, to the client that is current then.
     */
    static void sendFromAnyThread(const QString &text);

    /**
     * \name Replies: compose the framed text, send it to the current client and return it.
     * @{
     */
    static QString reply(const QString &name, const QString &result);
    static QString reply(const QString &name, bool result);
    static QString reply(const QString &name); ///< acknowledges, with an empty result
    template <class Number, class = std::enable_if_t<std::is_integral_v<Number>>>
    static QString reply(const QString &name, Number result)
    {
        return reply(name, QString::number(result));
    }
    static QString reply(const QString &name, const char *) = delete; // would convert to bool
    /// @}

    /// The same to a client of which it is known that it asked; dropped if it has gone.
    static void replyTo(QWebSocket *client, const QString &name, const QString &result);

    /**
     * Calls a device function with the first two fields in UTF-8 and replies with its result. With
     * fewer than two fields, replies false without calling it; further fields are ignored.
     */
    static QString replyTwoTexts(const QString &name, const QString &args,
                                 bool (*call)(const char *first, const char *second));

    /// The framed text itself, "Begin<name><result>End<name>".
    static QString framed(const QString &name, const QString &result);

    /// "true" or "false".
    static QString truth(bool value);

#define COMMAND(command, failure, ...)                                                             \
    static QString command##_callback(QString name, QString args, MessageRun *self);
#include "dispatch/commandlist.h"

Q_SIGNALS:
    void handle_msg_signal(QString msg, QObject *);
    void sig_sendmsg(QString message);
    /// An upload is done; each Upload checks whether it is its own.
    void sig_sync_close();

public Q_SLOTS:
    /// Entry from the transport: one command text. The socket is ignored.
    void recv_msg(QString msg, QWebSocket *socket);
    /// Parses one command text and calls its callback; an unknown name gets no reply.
    void handle_msg_slot(QString msg, QObject *);
    /// Pushes one frame to the current client. The timer that calls it is never started.
    void OnSengImgMessage();
    /// A server's late answer to an upload, sent as a reply of sUpLoadImageEx2.
    void http_reply_slot(int retCode, QString text);
    /// An event of the automatic scan, sent as a reply of iAutoScan.
    void slot_iAutoshot(int pagenum);
    /// Slot for fingerprint modules to connect to; does nothing.
    void slot_zazfpRead(bool bOK, QString fileName);

private:
    void InitCallBackMap();
    void carryOut(Callback callback, const QString &name, const QString &args);

    QTimer *m_previewTimer;
    ClientQueue *m_clientQueue;
    bool m_pushImages = false;
    QMap<QString, Callback> m_commands;
};
