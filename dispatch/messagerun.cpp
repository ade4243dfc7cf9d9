// SPDX-License-Identifier: MIT
#include "dispatch/messagerun.h"

#include "base/mainthread.h"
#include "dispatch/arguments.h"
#include "dispatch/clientqueue.h"
#include "dispatch/commandfacts.h"
#include "dispatch/deviceguard.h"
#include "dispatch/failureresult.h"
#include "dispatch/loggedtext.h"
#include "log/longtext.h"

#include <QCoreApplication>
#include <QDebug>
#include <QThread>
#include <QTimer>
#include <QWebSocket>

#include <atomic>

QPointer<QWebSocket> gpWebSocket;

namespace {

// Written by the main thread, read by any: what it is carrying out, and since when.
std::atomic<const commands::Facts *> s_workingOn{nullptr};
std::atomic<std::chrono::steady_clock::rep> s_workingSince{0};

/// While it lives, underWay() names the command. A command within another one comes first.
class WorkingOn
{
public:
    explicit WorkingOn(const QString &name)
        : m_outer(s_workingOn.load(std::memory_order_relaxed))
        , m_outerSince(s_workingSince)
    {
        s_workingSince = std::chrono::steady_clock::now().time_since_epoch().count();
        s_workingOn.store(commands::factsOf(name), std::memory_order_release);
    }
    ~WorkingOn()
    {
        s_workingSince = m_outerSince;
        s_workingOn.store(m_outer, std::memory_order_release);
    }
    WorkingOn(const WorkingOn &) = delete;
    WorkingOn &operator=(const WorkingOn &) = delete;

private:
    const commands::Facts *const m_outer;
    const std::chrono::steady_clock::rep m_outerSince;
};

void sendTo(QWebSocket *client, const QString &text)
{
    Q_ASSERT(QThread::currentThread() == QCoreApplication::instance()->thread());
    if (client) {
        client->sendTextMessage(text);
    }
}

} // namespace

MessageRun::MessageRun(QObject *parent)
    : QObject(parent)
    , m_previewTimer(new QTimer(this))
    , m_clientQueue(new ClientQueue(this))
{
    connect(m_previewTimer, &QTimer::timeout, this, &MessageRun::OnSengImgMessage);
    connect(this, &MessageRun::handle_msg_signal, this, &MessageRun::handle_msg_slot);
    connect(this, &MessageRun::sig_sendmsg, this, &MessageRun::send_msg);
    InitCallBackMap();
}

void MessageRun::InitCallBackMap()
{
#define COMMAND(command, failure, ...)                                                             \
    m_commands.insert(QStringLiteral(#command), &MessageRun::command##_callback);
#include "dispatch/commandlist.h"
}

void MessageRun::recv_msg(QString msg, QWebSocket *)
{
    Q_EMIT handle_msg_signal(msg, nullptr);
}

void MessageRun::handle_msg_slot(QString msg, QObject *)
{
    qDebug() << LongText(loggedText(msg));
    const commands::Text text(msg);
    if (const Callback callback = m_commands.value(text.name)) {
        carryOut(callback, text.name, text.args);
    }
}

/// The one guard around all callbacks: an exception of the device library is answered as a failure.
void MessageRun::carryOut(Callback callback, const QString &name, const QString &args)
{
    const WorkingOn working(name);
    try {
        callback(name, args, this);
    } catch (...) {
        logException(name);
        if (const auto result = failureResult(name)) {
            reply(name, *result);
        }
    }
}

MessageRun::UnderWay MessageRun::underWay()
{
    using std::chrono::steady_clock;
    const commands::Facts *facts = s_workingOn.load(std::memory_order_acquire);
    if (!facts) {
        return {};
    }
    const steady_clock::time_point since{steady_clock::duration(s_workingSince.load())};
    return {facts->name,
            std::chrono::duration_cast<std::chrono::milliseconds>(steady_clock::now() - since)};
}

void MessageRun::send_msg(QString text)
{
    sendTo(gpWebSocket, text);
}

void MessageRun::send_json_msg(bool ok, QString funcname, QString data)
{
    send_msg(QStringLiteral("{\"code\":\"%1\",\"funcname\":\"%2\",\"data\":\"%3\"}")
                 .arg(ok ? QStringLiteral("1") : QStringLiteral("0"))
                 .arg(funcname)
                 .arg(data));
}

void MessageRun::sendmsg_thread(QString text)
{
    Q_EMIT sig_sendmsg(text);
}

void MessageRun::sendFromAnyThread(const QString &text)
{
    base::postToMainThread([text] { send_msg(text); });
}

QString MessageRun::framed(const QString &name, const QString &result)
{
    return QLatin1String("Begin") + name + result + QLatin1String("End") + name;
}

QString MessageRun::truth(bool value)
{
    return value ? QStringLiteral("true") : QStringLiteral("false");
}

QString MessageRun::reply(const QString &name, const QString &result)
{
    QString text = framed(name, result);
    send_msg(text);
    return text;
}

QString MessageRun::reply(const QString &name, bool result)
{
    return reply(name, truth(result));
}

QString MessageRun::reply(const QString &name)
{
    return reply(name, QString());
}

void MessageRun::replyTo(QWebSocket *client, const QString &name, const QString &result)
{
    sendTo(client, framed(name, result));
}

QString MessageRun::replyTwoTexts(const QString &name, const QString &args,
                                  bool (*call)(const char *first, const char *second))
{
    const Arguments fields(args);
    return reply(name, fields.count() >= 2 && call(fields.utf8(0), fields.utf8(1)));
}

void MessageRun::http_reply_slot(int, QString text)
{
    reply(QStringLiteral("sUpLoadImageEx2"), text);
}

void MessageRun::slot_zazfpRead(bool, QString) { }
