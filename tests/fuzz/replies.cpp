// SPDX-License-Identifier: MIT
//
// Both ends of the companions' sockets, as the server sees them: the requests that it writes, which
// a companion must find again, and whatever comes back. The first byte says from which companion,
// the second in pieces of what size; two fields are the texts of the request.
#include "base/neighbor.h"
#include "companionclients/signsouthinterface.h"
#include "companionclients/webbrowsersouthinterface.h"
#include "companions/common/framereader.h"
#include "dispatch/devicetext.h"
#include "tests/fuzz/device.h"
#include "tests/fuzz/fuzztarget.h"
#include "tests/waitfor.h"

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <functional>
#include <thread>

namespace {

const QMap<int, int> partsOfSigning{{1, 1}, {2, 1}};
const QMap<int, int> partsOfPages{{1, 1}, {2, 2}};

/// A companion's socket; the client connects without being accepted.
class Companion
{
public:
    explicit Companion(const char *name)
        : m_listener(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0))
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        const QByteArray path = QFile::encodeName(base::localSocketPath(QLatin1String(name)));
        qstrncpy(address.sun_path, path.constData(), sizeof address.sun_path);
        fuzz::require(bind(m_listener, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0
                          && listen(m_listener, 16) == 0,
                      "the fuzz target's companion listens");
    }

    /// The latest connection; earlier ones are closed.
    void acceptClient()
    {
        for (int client; (client = ::accept(m_listener, nullptr, nullptr)) >= 0;) {
            ::close(m_client);
            m_client = client;
        }
        fuzz::require(m_client >= 0, "the client has connected");
    }

    /// The request that has come; there must be one, and no more.
    Request takeRequest(const QMap<int, int> &partsOfType)
    {
        FrameReader reader(partsOfType);
        QList<Request> requests;
        const bool came = waitFor([&] {
            QByteArray bytes(1 << 16, '\0');
            const auto count =
                ::recv(m_client, bytes.data(), std::size_t(bytes.size()), MSG_DONTWAIT);
            requests += reader.feed(bytes.left(std::max(0, int(count))));
            return !requests.isEmpty() || !reader.error().isEmpty();
        });
        fuzz::require(came && requests.size() == 1, "a request is read as one request");
        return requests.first();
    }

    /// Sends the bytes and hangs up, on a thread of its own: the client blocks while it reads.
    void answer(const QByteArray &bytes, int piece, const std::function<bool()> &hasHungUp)
    {
        std::thread sender([this, bytes, piece] {
            for (int at = 0; at < bytes.size(); at += piece) {
                const QByteArray part = bytes.mid(at, piece);
                const auto size = std::size_t(part.size());
                if (::send(m_client, part.constData(), size, MSG_NOSIGNAL) < 0) {
                    break;
                }
            }
            ::shutdown(m_client, SHUT_WR);
        });
        const bool hungUp = waitFor(hasHungUp);
        sender.join();
        ::close(std::exchange(m_client, -1));
        fuzz::require(hungUp, "the client comes back from a companion that has gone");
    }

private:
    const int m_listener;
    int m_client = -1;
};

Companion &signing()
{
    static auto &companion = *new Companion("SOUTHINTERFACE_ELECSIGNSERVER");
    return companion;
}

Companion &browser()
{
    static auto &companion = *new Companion("SOUTHINTERFACE_BROWSER");
    return companion;
}

QByteArray signingReply; // the one that came last

void sign(const QString &first, const QString &second, const QByteArray &replies, int piece)
{
    auto *client = SignSouthInterface::instance();
    fuzz::require(client->start(), "the client connects");
    signing().acceptClient();
    client->DoGWQ_StartSignEx(first, second, QStringLiteral("1,2,3,4"), second, 60);
    const Request request = signing().takeRequest(partsOfSigning);
    const QJsonObject json = QJsonDocument::fromJson(request.parts.first()).object();
    fuzz::require(request.type == 2 && json.value(QLatin1String("pdfpath")) == first
                      && json.value(QLatin1String("xmlpath")) == second,
                  "a request keeps its texts");
    signingReply.clear();
    signing().answer(replies, piece, [client] { return !client->isConnected(); });
    fuzz::require(signingReply.isEmpty()
                      || (signingReply.size() > 100 && replies.contains(signingReply)),
                  "a reply is part of what came");
}

void showPage(const QString &first, const QString &second, const QByteArray &replies, int piece)
{
    auto *client = Webbrowsersouthinterface::instance();
    fuzz::require(client->start(), "the client connects");
    browser().acceptClient();
    fuzz::require(client->openURL(first, second), "the request is sent");
    const Request request = browser().takeRequest(partsOfPages);
    fuzz::require(request.parts
                      == QList<QByteArray>{upToNul(first.toUtf8()), upToNul(second.toUtf8())},
                  "a request keeps its texts");
    browser().answer(replies, piece, [client] { return !client->isConnected(); });
}

} // namespace

void fuzz::prepare()
{
    useOwnClock();
    signing();
    browser();
    QObject::connect(SignSouthInterface::instance(), &SignSouthInterface::sig_msg,
                     [](const QByteArray &payload) { signingReply = payload; });
}

void fuzz::run(const QByteArray &input)
{
    Fields fields(input);
    const bool isSigning = fields.byte() % 2 == 0;
    const int piece = 1 + fields.byte();
    const QString first = QString::fromUtf8(fields.part());
    const QString second = QString::fromUtf8(fields.part());
    (isSigning ? sign : showPage)(first, second, fields.rest(), piece);
}

QList<QByteArray> fuzz::seeds()
{
    const auto reply = [](const QByteArray &payload) {
        const qint32 size = payload.size();
        return QByteArray(reinterpret_cast<const char *>(&size), sizeof size) + payload;
    };
    const QByteArray result = R"({"code":"1","data":")" + QByteArray(120, 'a') + "\"}";
    const QByteArray start = QByteArray("\0\xFF", 2) + field("/tmp/a.pdf") + field("b.xml");
    return {
        start + reply(result),
        start + reply(result) + reply("short"),
        start + reply("short"),
        QByteArray("\0\7", 2) + field("a") + field("b") + reply(result).chopped(3),
        "\1\3" + field("https://example.org/?a=b") + field("{\"no\":\"A 17\"}") + "a text",
    };
}
