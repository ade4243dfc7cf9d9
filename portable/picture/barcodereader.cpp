// SPDX-License-Identifier: MIT
#include "portable/picture/barcodereader.h"

#include "portable/picture/barcodeprocess.h"

#include <QDebug>
#include <QTextCodec>
#include <opencv2/imgproc.hpp>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>

namespace portable {

namespace {

using Clock = BarcodeProcess::Clock;
using std::chrono::milliseconds;

constexpr milliseconds shortestSearch{1000}; // after one that failed

/// A grey copy of a picture, in memory that a worker can map.
class SharedPicture
{
public:
    explicit SharedPicture(const cv::Mat &picture)
        : m_file(::memfd_create("barcodes", MFD_CLOEXEC))
    {
        if (m_file < 0 || ::ftruncate(m_file, off_t(picture.total())) != 0 || !copy(picture)) {
            const int error = errno;
            close();
            throw std::runtime_error(std::string("a copy of the picture: ") + std::strerror(error));
        }
    }
    ~SharedPicture() { close(); }
    SharedPicture(const SharedPicture &) = delete;
    SharedPicture &operator=(const SharedPicture &) = delete;

    int file() const { return m_file; }

private:
    bool copy(const cv::Mat &picture) const
    {
        void *memory =
            ::mmap(nullptr, picture.total(), PROT_READ | PROT_WRITE, MAP_SHARED, m_file, 0);
        if (memory == MAP_FAILED) {
            return false;
        }
        const std::shared_ptr<void> mapped(
            memory, [size = picture.total()](void *start) { ::munmap(start, size); });
        cv::Mat grey(picture.size(), CV_8U, memory); // of the right size: it is written in place
        if (picture.channels() == 1) {
            picture.copyTo(grey);
        } else {
            cv::cvtColor(picture, grey, cv::COLOR_BGR2GRAY);
        }
        return true;
    }

    void close()
    {
        if (m_file >= 0) {
            ::close(m_file);
        }
        m_file = -1;
    }

    int m_file;
};

/// The worker kept for the next picture: starting one takes longer than most searches.
class SpareWorker
{
public:
    static SpareWorker &instance()
    {
        static SpareWorker spare;
        return spare;
    }

    /// The spare one, or a new one.
    std::unique_ptr<BarcodeProcess> take()
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        std::unique_ptr<BarcodeProcess> worker = std::move(m_worker);
        lock.unlock();
        return worker && worker->isReady() ? std::move(worker) : std::make_unique<BarcodeProcess>();
    }

    void giveBack(std::unique_ptr<BarcodeProcess> worker)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_worker.swap(worker); // one that was there ends after the lock
    }

private:
    std::mutex m_mutex;
    std::unique_ptr<BarcodeProcess> m_worker; // guarded by m_mutex
};

/// A code that a worker has found.
struct Code
{
    std::uint32_t format = 0;
    bool hasEncoding = false;
    QByteArray text; ///< UTF-8
    QByteArray bytes;
};

/**
 * The code's text. A code that doesn't name its encoding is UTF-8 by custom; ZXing takes any other
 * for Latin or Japanese, but on the documents of our terminals it is GBK.
 */
QString textOf(const Code &code)
{
    QString text = QString::fromUtf8(code.text.constData(), code.text.size()); // with zero bytes
    const auto isSuspect = [](QChar c) { // half-width katakana or upper Latin-1
        return (c >= QChar(0xff61) && c <= QChar(0xff9f)) || (c >= QChar(0x80) && c <= QChar(0xff));
    };
    if (!code.hasEncoding && std::any_of(text.cbegin(), text.cend(), isSuspect)) {
        for (const char *name : {"GB18030", "UTF-8"}) {
            QTextCodec *codec = QTextCodec::codecForName(name);
            const QString decoded = codec->toUnicode(code.bytes);
            if (codec->fromUnicode(decoded) == code.bytes) {
                text = decoded;
            }
        }
    }
    text.remove(QChar(0)); // it would end the list of texts
    return text;
}

/// A search for the codes in one picture, by one worker or several.
class Search
{
public:
    Search(const cv::Mat &picture, long kind, milliseconds time)
        : m_time(time)
        , m_picture(picture)
    {
        m_request.width = picture.cols;
        m_request.height = picture.rows;
        m_request.kind = std::int32_t(kind);
    }

    QStringList run()
    {
        if (searchOnce()) {
            return m_texts;
        }
        qWarning("portable: barcodes: the decoder fails on this picture (%s); it is searched again "
                 "without GS1 DataBar",
                 qPrintable(m_end));
        m_request.withDataBar = 0; // whose decoder has assertions that some pictures violate
        if (!searchOnce() && m_texts.isEmpty()) {
            throw std::runtime_error("the decoder failed again: " + m_end.toStdString());
        }
        return m_texts;
    }

private:
    /// \return false when the worker has ended before its time
    bool searchOnce()
    {
        const auto passed = std::chrono::duration_cast<milliseconds>(Clock::now() - m_start);
        m_request.milliseconds = std::int32_t(std::max(m_time - passed, shortestSearch).count());
        const milliseconds lastPass = m_time * 2 / 3; // for a pass that has begun
        auto worker = SpareWorker::instance().take();
        QByteArray message;
        bool isDone = false;
        auto reception = worker->send(m_request, m_picture.file())
            ? BarcodeProcess::Reception::Message
            : BarcodeProcess::Reception::Ended;
        while (!isDone && reception == BarcodeProcess::Reception::Message) {
            reception = worker->receive(m_start + m_time + lastPass, &message);
            isDone = reception == BarcodeProcess::Reception::Message && isLast(message);
        }
        if (isDone) {
            SpareWorker::instance().giveBack(std::move(worker));
        } else if (reception == BarcodeProcess::Reception::Late) {
            qWarning("portable: barcodes: the picture takes far too long and is abandoned");
        } else {
            m_end = worker->end();
        }
        return reception != BarcodeProcess::Reception::Ended;
    }

    /// Takes in a message. \return whether it is the worker's last one about this picture
    bool isLast(const QByteArray &message)
    {
        BarcodeReply head;
        if (size_t(message.size()) < sizeof head) {
            throw std::runtime_error("the worker's answer is too short");
        }
        std::memcpy(&head, message.constData(), sizeof head);
        const QByteArray rest = message.mid(int(sizeof head));
        const auto textSize = int(std::min<std::uint32_t>(head.textSize, largestBarcodeReply));
        if (head.type == BarcodeReply::Found) {
            add({head.format, head.hasEncoding != 0, rest.left(textSize), rest.mid(textSize)});
        } else if (head.type == BarcodeReply::Failed) {
            throw std::runtime_error(rest.toStdString());
        } else if (head.type == BarcodeReply::OutOfTime) {
            qWarning("portable: barcodes: the picture takes too long, some codes may be missing");
        }
        return head.type != BarcodeReply::Found;
    }

    void add(const Code &code)
    {
        if (m_found.emplace(code.format, code.text).second) { // a second worker finds them again
            m_texts << textOf(code);
        }
    }

    const Clock::time_point m_start = Clock::now();
    const milliseconds m_time;
    const SharedPicture m_picture;
    BarcodeRequest m_request;
    std::set<std::pair<std::uint32_t, QByteArray>> m_found;
    QStringList m_texts;
    QString m_end; // how the last worker ended, when it did too early
};

} // namespace

bool isBarcodeKind(long kind)
{
    return kind >= anyBarcode && kind <= largestBarcodeKind;
}

QStringList readBarcodes(const cv::Mat &picture, long kind, milliseconds time)
{
    return Search(picture, kind, time).run();
}

} // namespace portable
