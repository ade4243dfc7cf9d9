// SPDX-License-Identifier: MIT
//
// What many pages do to each other: a reply beside eight previews, the frames of one page among
// fifty, replies to two hundred; and how long the status takes beside eight previews. Needs port
// 1818. Argument: replies in each measurement.

#include "bench/serverprocess.h"
#include "bench/table.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <cstring>

namespace {

constexpr int usualReplies = 2000;
constexpr int replyPauseUs = 3000; ///< so that replies meet all moments of a frame
constexpr int previews = 8;
constexpr int crowd = 50;
constexpr int allPages = 200;
constexpr int framesOfRate = 300;
constexpr int statuses = 200;
constexpr int statusPauseUs = 25000; ///< longer than an answer is given again

double percentile(std::vector<double> values, double share)
{
    const auto at = values.begin() + std::ptrdiff_t(share * double(values.size() - 1));
    std::nth_element(values.begin(), at, values.end());
    return *at;
}

struct Replies
{
    double half = 0; ///< ms; 50 % came in that time
    double nearlyAll = 0; ///< 99 %
};

Replies replies(ServerProcess &server, int count)
{
    std::vector<double> times;
    times.reserve(std::size_t(count));
    for (int i = 0; i < count; ++i) {
        times.push_back(server.call("sGetTempPath"));
        usleep(replyPauseUs);
    }
    return {percentile(times, 0.5), percentile(times, 0.99)};
}

std::vector<RawClient> pages(int count)
{
    std::vector<RawClient> clients;
    for (int i = 0; i < count; ++i) {
        clients.emplace_back();
        if (!clients.back().open(serverPort)) {
            fail("a page isn't let in");
        }
    }
    return clients;
}

/// The preview ends whenever a page leaves.
void startPreview(ServerProcess &server)
{
    if (!server.page.call("bStartPlay()", "BeginbStartPlaytrue")) {
        fail("no preview");
    }
}

/// Frames a second that one page gets, with others beside it.
double rateBeside(ServerProcess &server, int others)
{
    const Readers readers(pages(others));
    startPreview(server);
    server.frames(framesOfRate / 5);
    return framesOfRate / server.frames(framesOfRate);
}

int answered(int count)
{
    std::vector<RawClient> clients = pages(count);
    for (RawClient &client : clients) {
        client.send("sGetTempPath()");
    }
    return int(std::count_if(clients.begin(), clients.end(), [](RawClient &client) {
        return client.call("sGetTempPath()", "BeginsGetTempPath");
    }));
}

/// Asks once at the status socket. \return ms
double statusMs(const QByteArray &path)
{
    QElapsedTimer time;
    time.start();
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.constData(), sizeof address.sun_path - 1);
    const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (connect(socket, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0) {
        fail("no status socket");
    }
    std::array<char, 65536> text{};
    ssize_t total = 0;
    for (ssize_t got; (got = read(socket, text.data(), text.size())) > 0;) {
        total += got;
    }
    close(socket);
    if (total == 0) {
        fail("no status");
    }
    return double(time.nsecsElapsed()) / 1e6;
}

/// 99 % of the answers of the status socket.
double nearlyAllStatuses(const QByteArray &path)
{
    std::vector<double> times;
    for (int i = 0; i < statuses; ++i) {
        times.push_back(statusMs(path));
        usleep(statusPauseUs);
    }
    return percentile(times, 0.99);
}

} // namespace

int main(int argc, char **argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    const QCoreApplication application(argc, argv);
    const int count = argc > 1 ? std::max(100, std::atoi(argv[1])) : usualReplies;
    const Product product;
    product.configure("own");
    qputenv("XDG_RUNTIME_DIR", product.folder().toUtf8()); // of the status socket
    const QString bare = QCoreApplication::applicationDirPath() + QStringLiteral("/bareserver");

    const Replies idle = [&] {
        ServerProcess server(product.folder(), bare);
        return replies(server, count);
    }();
    ServerProcess server(product.folder(), product.program());
    const Replies atRest = replies(server, count);
    const double alone = rateBeside(server, 0);
    double status = 0;
    const Replies busy = [&] {
        const Readers readers(pages(previews - 1));
        startPreview(server);
        status = nearlyAllStatuses(product.folder().toUtf8() + "/rvowebsocketserver/status");
        return replies(server, count);
    }();
    const double amongMany = rateBeside(server, crowd - 1);
    const int heard = answered(allPages);

    printRow("a reply at rest, 50 % / bare echo", atRest.half, idle.half, "ms", "");
    printRow("a reply beside eight previews, 50 % / bare echo", busy.half, idle.half, "ms", "");
    printRow("a reply beside eight previews, 99 % / bare echo", busy.nearlyAll, idle.nearlyAll,
             "ms", "<= 2.5");
    printRow("the status beside eight previews, 99 %", status, "ms", "<= 5 ms");
    printRow("frames a second among 50 pages / alone", amongMany, alone, "/s", ">= 0.98");
    printRow("pages of 200 that got both replies", heard, allPages, "pages", "1");
    return 0;
}
