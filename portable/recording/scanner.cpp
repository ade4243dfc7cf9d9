// SPDX-License-Identifier: MIT
#include "portable/recording/scanner.h"

#include "portable/base/atomicfile.h"
#include "portable/base/failure.h"
#include "portable/base/writecheck.h"
#include "portable/camera/pageturning.h"
#include "portable/picture/bookfold.h"
#include "portable/picture/picturewriter.h"
#include "portable/picture/stillness.h"

#include <QCoreApplication>
#include <QDebug>
#include <QMetaObject>

#include <algorithm>
#include <exception>
#include <memory>
#include <utility>
#include <vector>

namespace portable {

namespace {

/// \param page  of the shot, or all of it
QByteArray encoded(const cv::Mat &page, const Shot &shot, const QString &extension)
{
    if (extension == QLatin1String("png")) {
        return pngFile(page, shot.dpi);
    }
    return extension == QLatin1String("tif") ? jpegTiffFile(page, shot.quality, shot.dpi)
                                             : jpegFile(page, shot.quality, shot.dpi);
}

/// \param slot  as written by the macro SLOT; anything else is refused
bool hasSlot(const QObject &receiver, const char *slot)
{
    if (!slot || slot[0] != '1') {
        return false;
    }
    const QByteArray signature = QMetaObject::normalizedSignature(slot + 1);
    return receiver.metaObject()->indexOfSlot(signature.constData()) >= 0
        && QMetaObject::checkConnectArgs("shot(int)", signature.constData());
}

/// The parts of an open book that go into a file each.
std::vector<cv::Mat> pagesOf(const cv::Mat &book, BookMode mode)
{
    if (mode == BookMode::BothInOne) {
        return {book};
    }
    const int fold = foldColumn(book);
    const cv::Mat left = book.colRange(0, fold);
    const cv::Mat right = book.colRange(fold, book.cols);
    return mode == BookMode::LeftFirst ? std::vector<cv::Mat>{left, right}
                                       : std::vector<cv::Mat>{right, left};
}

} // namespace

/// A scan in progress.
struct Scanner::Scan
{
    QString name; // for the log
    ScanFiles files;
    std::function<bool(Camera &camera)> isDue; // whether to take a shot; called every scanInterval
    int shots = 0; // number after which it ends; 0: none
    BookMode bookMode = BookMode::BothInOne; // also for scans other than books
    bool isObserved = false;
};

QString ScanFiles::path(int number) const
{
    return directory + QLatin1Char('/') + prefix
        + QStringLiteral("%1.").arg(number, 3, 10, QLatin1Char('0')) + extension;
}

Scanner &Scanner::instance()
{
    static Scanner scanner(CameraSet::instance(), takeShot);
    static const bool once = [] {
        // Registered after the cameras' routine, so called before it.
        qAddPostRoutine([] { scanner.stop(); });
        return true;
    }();
    Q_UNUSED(once)
    return scanner;
}

Scanner::Scanner(const CameraSet &cameras, Shoot shoot, base::Clock &clock)
    : m_cameras(cameras)
    , m_shoot(std::move(shoot))
    , m_clock(clock)
{
}

Scanner::~Scanner()
{
    stop();
}

bool Scanner::observe(const QObject *receiver, const char *slot)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_signal.disconnect();
    if (!receiver) {
        return true;
    }
    if (!hasSlot(*receiver, slot)) {
        qWarning("portable: the automatic scan has no receiver: there is no slot \"%s\"",
                 slot ? slot : "");
        return false;
    }
    return QObject::connect(&m_signal, SIGNAL(shot(int)), receiver, slot, Qt::QueuedConnection);
}

bool Scanner::startAutomatic(const ScanFiles &files)
{
    Scan scan = motionScan(QStringLiteral("automatic scan"), files);
    scan.isObserved = true;
    return start(std::move(scan));
}

bool Scanner::startTimed(const ScanFiles &files, std::chrono::seconds interval, int shots)
{
    Scan scan;
    scan.name = QStringLiteral("timed scan");
    scan.files = files;
    scan.isDue = [this, interval, due = m_clock.now() + interval](Camera &) mutable {
        const auto now = m_clock.now();
        if (now < due) {
            return false;
        }
        due += interval;
        if (due <= now) {
            due = now + interval; // missed shots aren't made up for
        }
        return true;
    };
    scan.shots = shots;
    return start(std::move(scan));
}

bool Scanner::startBook(const ScanFiles &files, BookMode mode)
{
    Scan scan = motionScan(QStringLiteral("book scan"), files);
    scan.bookMode = mode;
    return start(std::move(scan));
}

void Scanner::stop()
{
    const std::lock_guard<std::mutex> changing(m_changing);
    end();
}

/// A scan that takes a shot of each document put under the camera.
Scanner::Scan Scanner::motionScan(const QString &name, const ScanFiles &files) const
{
    Scan scan;
    scan.name = name;
    scan.files = files;
    // Shared because a std::function is copyable.
    scan.isDue = [this, stillness = std::make_shared<Stillness>(stillPeriod),
                  turning = std::make_shared<PageTurning>()](Camera &camera) {
        cv::Mat frame;
        return camera.currentFrame(frame) && stillness->look(frame, m_clock.now());
    };
    return scan;
}

bool Scanner::start(Scan scan)
{
    const std::lock_guard<std::mutex> changing(m_changing);
    end();
    QString error;
    if (!m_cameras.mainCamera()) {
        error = QStringLiteral("there is no preview");
    } else if (scan.files.directory.isEmpty() || scan.files.prefix.contains(QLatin1Char('/'))) {
        error = QStringLiteral("it needs a directory, and a prefix without \"/\"");
    } else if (canWriteFile(scan.files.path(1), &error)) {
        logInfo() << scan.name << "begins, with" << scan.files.path(1);
        m_stop = false; // no lock needed: no thread is running
        m_thread = std::thread([this, scan = std::move(scan)] { run(scan); });
        return true;
    }
    logWarning() << scan.name << "doesn't start:" << error;
    return false;
}

/// Ends the thread. Call with m_changing held.
void Scanner::end()
{
    if (!m_thread.joinable()) {
        return;
    }
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_stop = true;
    }
    m_stopped.notify_all();
    m_thread.join();
}

void Scanner::run(const Scan &scan)
{
    PreviewWatch preview(m_cameras, m_clock);
    int done = 0;
    while ((scan.shots == 0 || done < scan.shots) && sleep()) {
        const auto camera = preview.camera();
        if (preview.ended()) {
            logInfo() << scan.name << "ends with the preview";
            return;
        }
        try {
            if (camera && scan.isDue(*camera) && save(scan, done + 1)) {
                ++done;
            }
        } catch (const std::exception &failure) { // OpenCV's, or out of memory
            logFailure(scan.name, QString::fromLocal8Bit(failure.what()));
        }
    }
    logInfo() << scan.name << "has ended, with shots:" << done;
}

/// Takes a shot and writes its file; of two files both or neither.
bool Scanner::save(const Scan &scan, int number)
{
    const Shot shot = m_shoot();
    if (shot.picture.empty()) {
        return false; // the reason is in the log
    }
    const std::vector<cv::Mat> pages = pagesOf(shot.picture, scan.bookMode);
    int file = (number - 1) * int(pages.size());
    std::vector<FileContent> files;
    QString error;
    for (const cv::Mat &page : pages) {
        files.emplace_back(scan.files.path(++file), encoded(page, shot, scan.files.extension));
        if (files.back().second.isEmpty()) {
            error = files.back().first + QStringLiteral(": can't be encoded");
        }
    }
    if (!error.isEmpty() || !writeWholeFiles(files, &error)) {
        logWarning() << scan.name + QLatin1Char(':') << error;
        return false;
    }
    logInfo() << scan.name + QLatin1Char(':') << files.front().first;
    if (scan.isObserved) {
        Q_EMIT m_signal.shot(number);
    }
    return true;
}

/// \return false as soon as the scan is stopped
bool Scanner::sleep()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    return !m_clock.waitFor(m_stopped, lock, scanInterval, [this] { return m_stop; });
}

} // namespace portable
