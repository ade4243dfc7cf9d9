// SPDX-License-Identifier: MIT
// The cost of a preview frame from the camera's picture to the sockets, relative to its minimum:
// one JPEG compression and one write to each page's socket.
#include "bench/ratios.h"
#include "bench/rawclients.h"
#include "camera/captureimgthread.h"
#include "camera/frameencoder.h"
#include "transport/clientlink.h"
#include "transport/websocketservermanager.h"

#include <QCoreApplication>
#include <QImage>
#include <QTcpServer>
#include <QTcpSocket>
#include <jpeglib.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <functional>
#include <memory>
#include <vector>

namespace {

constexpr QSize previewSize{800, 600};

/// Roughly a sheet of text with a photograph, as document cameras see it.
QImage cameraPicture(QImage::Format format)
{
    QImage picture(1920, 1080, QImage::Format_RGB32);
    unsigned random = 1818;
    for (int y = 0; y < picture.height(); ++y) {
        auto *line = reinterpret_cast<QRgb *>(picture.scanLine(y));
        for (int x = 0; x < picture.width(); ++x) {
            random = random * 1664525U + 1013904223U;
            const int noise = int(random >> 28U);
            const bool photo = x > 1300 && y < 600;
            const bool ink = !photo && (y / 12) % 2 == 0 && (x / 5 + x / 37 + y / 24) % 3 == 0;
            line[x] = photo ? qRgb((x * y) % 200 + noise, (x + y) % 200 + noise, y % 200 + noise)
                : ink       ? qRgb(40 + noise, 40 + noise, 50 + noise)
                            : qRgb(225 + noise, 225 + noise, 220 + noise);
        }
    }
    return picture.convertToFormat(format);
}

/// Pages that only read. The server is in this thread, so that they can't wait for its answer.
std::unique_ptr<Readers> readersOf(quint16 port, int count, const char *greeting)
{
    std::vector<RawClient> clients{std::size_t(count)};
    for (RawClient &client : clients) {
        if (!client.connectTo(port) || !client.write(greeting)) {
            qFatal("can't connect");
        }
    }
    return std::make_unique<Readers>(std::move(clients));
}

/// The server with pages that only read.
class Server
{
public:
    explicit Server(int pages)
    {
        m_manager.websocke_server_start(QHostAddress::LocalHost, 0);
        m_readers = readersOf(m_manager.port(), pages, RawClient::handshake);
        while (m_manager.findChildren<ClientLink *>().size() < pages) {
            QCoreApplication::processEvents();
        }
        m_sockets = m_manager.findChildren<QTcpSocket *>();
    }

    void pushFrame(const QByteArray &text)
    {
        Q_EMIT CaptureImgThread::instance()->sig_frame(text);
        waitUntilWritten(m_sockets);
    }

    static void waitUntilWritten(const QList<QTcpSocket *> &sockets)
    {
        while (std::any_of(sockets.begin(), sockets.end(),
                           [](const QTcpSocket *socket) { return socket->bytesToWrite() > 0; })) {
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        }
    }

private:
    WebSocketServerManager m_manager{QStringLiteral("bench"), QWebSocketServer::NonSecureMode};
    std::unique_ptr<Readers> m_readers;
    QList<QTcpSocket *> m_sockets;
};

/// What can't be saved: libjpeg-turbo's compression of the picture, scaled.
class Compression
{
public:
    Compression()
    {
        m_jpeg.err = jpeg_std_error(&m_error);
        jpeg_create_compress(&m_jpeg);
    }
    ~Compression() { jpeg_destroy_compress(&m_jpeg); }
    Compression(const Compression &) = delete;
    Compression &operator=(const Compression &) = delete;

    void run()
    {
        unsigned char *data = m_memory.data();
        unsigned long size = m_memory.size();
        jpeg_mem_dest(&m_jpeg, &data, &size);
        m_jpeg.image_width = JDIMENSION(m_picture.width());
        m_jpeg.image_height = JDIMENSION(m_picture.height());
        m_jpeg.input_components = 4;
        m_jpeg.in_color_space = JCS_EXT_BGRX;
        jpeg_set_defaults(&m_jpeg);
        jpeg_set_quality(&m_jpeg, 75, TRUE);
        jpeg_start_compress(&m_jpeg, TRUE);
        while (m_jpeg.next_scanline < m_jpeg.image_height) {
            auto *row = const_cast<JSAMPROW>(m_picture.constScanLine(int(m_jpeg.next_scanline)));
            jpeg_write_scanlines(&m_jpeg, &row, 1);
        }
        jpeg_finish_compress(&m_jpeg);
    }

private:
    const QImage m_picture =
        cameraPicture(QImage::Format_RGB32)
            .scaled(previewSize, Qt::IgnoreAspectRatio, Qt::FastTransformation);
    jpeg_error_mgr m_error{};
    jpeg_compress_struct m_jpeg{};
    std::vector<unsigned char> m_memory = std::vector<unsigned char>(1 << 20);
};

/// CPU time of this thread, in milliseconds.
double threadMs()
{
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return double(time.tv_sec) * 1e3 + double(time.tv_nsec) / 1e6;
}

/// Compression and frames take turns, one at a time: what else the machine does hits all alike.
void printFrameRatios()
{
    constexpr int rounds = 500;
    Compression compression;
    FrameEncoder encoder;
    Server server(1);
    const QImage rgb32 = cameraPicture(QImage::Format_RGB32);
    const QImage rgb888 = cameraPicture(QImage::Format_RGB888);
    const auto push = [&](const QImage &picture) {
        server.pushFrame(encoder.encode(picture, previewSize));
    };
    const std::function<void()> turns[] = {[&] { compression.run(); }, [&] { push(rgb32); },
                                           [&] { push(rgb888); }};
    std::vector<double> times[3];
    for (int i = 0; i < rounds; ++i) {
        for (std::size_t turn = 0; turn < 3; ++turn) {
            const double before = threadMs();
            turns[turn]();
            times[turn].push_back(threadMs() - before);
        }
    }
    const auto median = [](std::vector<double> &values) {
        std::nth_element(values.begin(), values.begin() + rounds / 2, values.end());
        return values[rounds / 2];
    };
    const double least = median(times[0]);
    printRow("RGB32 frame to one page / compression", median(times[1]), least, "ms", "<= 1.35");
    printRow("RGB888 frame to one page / compression", median(times[2]), least, "ms", "<= 1.35");
}

void BM_encode(benchmark::State &state)
{
    const QImage picture = cameraPicture(QImage::Format_RGB32);
    FrameEncoder encoder;
    for (auto _ : state) {
        benchmark::DoNotOptimize(encoder.encode(picture, previewSize).size());
    }
}
BENCHMARK(BM_encode);

QByteArray frameText()
{
    return FrameEncoder().encode(cameraPicture(QImage::Format_RGB32), previewSize);
}

void BM_pages(benchmark::State &state)
{
    const QByteArray text = frameText();
    Server server(int(state.range(0)));
    for (auto _ : state) {
        server.pushFrame(text);
    }
}
BENCHMARK(BM_pages)->Arg(8)->Arg(50);

void BM_plainWrites(benchmark::State &state)
{
    const QByteArray text = frameText();
    QTcpServer listener;
    listener.listen(QHostAddress::LocalHost);
    const int count = int(state.range(0));
    const auto readers = readersOf(listener.serverPort(), count, "x");
    QList<QTcpSocket *> sockets;
    while (sockets.size() < count) {
        QCoreApplication::processEvents();
        while (QTcpSocket *socket = listener.nextPendingConnection()) {
            sockets << socket;
        }
    }
    for (auto _ : state) {
        for (QTcpSocket *socket : qAsConst(sockets)) {
            socket->write(text);
            socket->flush();
        }
        Server::waitUntilWritten(sockets);
    }
}
BENCHMARK(BM_plainWrites)->Arg(8)->Arg(50);

} // namespace

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});
    CaptureImgThread::instance()->setPause(true);
    const RatioRun run(argc, argv);
    printFrameRatios();
    run.printRatio("8 pages / 8 plain writes", "BM_pages/8", "BM_plainWrites/8", 1.2);
    run.printRatio("50 pages / 50 plain writes", "BM_pages/50", "BM_plainWrites/50", 1.2);
    return 0;
}
