// SPDX-License-Identifier: MIT
#include "devicectl/callverb.h"

#include "devicectl/answers.h"
#include "devicectl/problems.h"
#include "devicectl/texts.h"

#include <QEventLoop>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>
#include <QTimer>
#include <QUrl>
#include <QWebSocket>

namespace {

/// One command on its way, from the connection to its end.
class Conversation
{
public:
    Conversation(const Call &call, QTextStream &out, QTextStream &error)
        : m_call(call)
        , m_out(out)
        , m_error(error)
        , m_socket(call.origin)
    {
        m_timer.setSingleShot(true);
        QObject::connect(&m_socket, &QWebSocket::connected, &m_loop, [this] {
            m_isConnected = true;
            m_socket.sendTextMessage(m_call.before.isEmpty() ? m_call.text : m_call.before);
        });
        QObject::connect(&m_socket, &QWebSocket::textMessageReceived, &m_loop,
                         [this](const QString &text) { take(text); });
        QObject::connect(&m_socket, &QWebSocket::disconnected, &m_loop, [this] { lost(); });
        QObject::connect(&m_timer, &QTimer::timeout, &m_loop, [this] { timeOver(); });
    }

    ExitCode hold()
    {
        QUrl url(QStringLiteral("ws://127.0.0.1:%1/").arg(m_call.port));
        if (!m_call.token.isEmpty()) {
            url.setQuery(QStringLiteral("token=")
                         + QString::fromLatin1(QUrl::toPercentEncoding(m_call.token)));
        }
        m_timer.start(m_call.answerSeconds * 1000);
        m_socket.open(url);
        m_loop.exec();
        m_socket.close();
        return m_code;
    }

    int framesCounted() const { return m_framesCounted; }

private:
    void end(ExitCode code)
    {
        m_code = code;
        m_isOver = true;
        m_loop.quit();
    }

    void lost()
    {
        if (!m_isOver) {
            complain(m_isConnected ? said({"the server closed the connection", "服务关闭了连接"})
                                   : said({"can't connect: ", "无法连接："}) + refusal());
            end(ExitCode::NoServer);
        }
    }

    QString refusal() const
    {
        const QString error = m_socket.errorString();
        return error.contains(QLatin1String(" 403 "))
            ? said({"the access policy refuses it; --origin and --token say who calls, the log why "
                    "it was refused",
                    "访问策略拒绝连接；可用 --origin 和 --token 说明身份，原因见日志"})
            : error;
    }

    void timeOver()
    {
        if (m_hasAnswer && m_call.until.isEmpty() && m_call.frameFile.isEmpty()) {
            end(m_code); // that was all that came
            return;
        }
        complain(said({"no answer came in time", "没有及时收到应答"}));
        end(m_isConnected ? ExitCode::NoAnswer : ExitCode::NoServer);
    }

    void complain(const QString &text) { printProblem(text, m_call.isJson, m_out, m_error); }

    /// The first one only starts the clock: the camera needs its time before it.
    void countFrame()
    {
        if (m_framesCounted < 0 && m_hasAnswer) {
            m_timer.start(m_call.countSeconds * 1000);
        }
        m_framesCounted += m_hasAnswer ? 1 : 0;
    }

    void take(const QString &text)
    {
        if (m_isOver) {
            return;
        }
        if (isFrame(text)) {
            if (m_call.countSeconds > 0) {
                countFrame();
            }
            if (!m_call.frameFile.isEmpty() && write(m_call.frameFile, bytesOf(text))) {
                m_hasFrame = true;
                endIfDone();
            }
            return;
        }
        const auto answer = answerFrom(text);
        if (!m_isBeforeDone) {
            takeBefore(text, answer);
            return;
        }
        const bool isOwn = answer && answer->name == m_call.name;
        if (isOwn && !m_hasAnswer) {
            m_hasAnswer = true;
            m_code = isFailure(*answer) ? ExitCode::Bad : ExitCode::Good;
            if (m_call.waitSeconds > 0) {
                m_timer.start(m_call.waitSeconds * 1000);
            }
        } else if (m_call.waitSeconds == 0 && m_call.until.isEmpty()) {
            return; // for another page
        }
        if (!show(text, answer)) {
            return;
        }
        m_hasEnd = m_hasEnd || (answer && answer->name == m_call.until);
        if (m_hasEnd && answer && isFailure(*answer)) {
            m_code = ExitCode::Bad;
        }
        endIfDone();
    }

    /// What comes until the command that goes before is answered.
    void takeBefore(const QString &text, const std::optional<Answer> &answer)
    {
        if (!answer || answer->name != m_call.before.section(QLatin1Char('('), 0, 0)) {
            return;
        }
        m_isBeforeDone = true;
        if (isFailure(*answer)) {
            show(text, answer);
            end(ExitCode::Bad);
        } else {
            m_socket.sendTextMessage(m_call.text);
        }
    }

    void endIfDone()
    {
        const bool hasFrame = m_call.frameFile.isEmpty() || m_hasFrame || m_code == ExitCode::Bad;
        const bool hasEnd = m_call.until.isEmpty()
            ? m_call.waitSeconds == 0 || (m_call.countSeconds > 0 && m_code == ExitCode::Bad)
            : m_hasEnd;
        if (m_hasAnswer && hasFrame && hasEnd) {
            end(m_code);
        }
    }

    /// Prints a text, or puts its bytes into the file. \return false when that ended everything
    bool show(const QString &text, const std::optional<Answer> &answer)
    {
        QString result = answer ? answer->result : text;
        const QByteArray bytes = m_call.pictureFile.isEmpty() ? QByteArray() : bytesOf(result);
        if (!bytes.isEmpty()) {
            if (!write(m_call.pictureFile, bytes)) {
                return false;
            }
            result = m_call.pictureFile;
        }
        if (m_call.isJson) {
            const QJsonObject object{{QStringLiteral("name"), answer ? answer->name : QString()},
                                     {QStringLiteral("result"), result},
                                     {QStringLiteral("good"), answer ? !isFailure(*answer) : true}};
            m_out << QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
        } else {
            m_out << (answer && answer->name != m_call.name ? answer->name + QLatin1Char(' ')
                                                            : QString())
                  << result;
        }
        m_out << '\n';
        m_out.flush();
        return true;
    }

    bool write(const QString &path, const QByteArray &bytes)
    {
        QSaveFile file(path);
        if (file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() && file.commit()) {
            return true;
        }
        complain(path + QStringLiteral(": ") + file.errorString());
        end(ExitCode::Trouble);
        return false;
    }

    const Call &m_call;
    QTextStream &m_out;
    QTextStream &m_error;
    QEventLoop m_loop;
    QWebSocket m_socket;
    QTimer m_timer;
    ExitCode m_code = ExitCode::NoAnswer;
    bool m_isConnected = false;
    bool m_isBeforeDone = m_call.before.isEmpty();
    bool m_hasAnswer = false;
    int m_framesCounted = -1; // without the first one
    bool m_hasFrame = false;
    bool m_hasEnd = false;
    bool m_isOver = false;
};

} // namespace

ExitCode carryOut(const Call &call, QTextStream &out, QTextStream &error)
{
    return Conversation(call, out, error).hold();
}

Environment::MeasuredPreview measurePreview(const QString &origin, const QString &token,
                                            quint16 port)
{
    Call call;
    call.name = QStringLiteral("bStartPlay");
    call.text = call.name + QStringLiteral("()");
    call.port = port;
    call.origin = origin;
    call.token = token;
    call.answerSeconds = 10;
    call.waitSeconds = 5; // for the first frame
    call.countSeconds = 2;
    QString answer;
    QString problem;
    QTextStream out(&answer);
    QTextStream error(&problem);
    Conversation conversation(call, out, error);
    Environment::MeasuredPreview measured;
    if (conversation.hold() != ExitCode::Good) {
        out.flush();
        error.flush();
        measured.problem = problem.isEmpty()
            ? QStringLiteral("bStartPlay: ") + answer.section(QLatin1Char('\n'), 0, 0)
            : problem.trimmed();
    }
    measured.framesPerSecond = qMax(0, conversation.framesCounted()) / double(call.countSeconds);
    return measured;
}
