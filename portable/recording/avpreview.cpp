// SPDX-License-Identifier: MIT
#include "portable/recording/avpreview.h"

#include "portable/base/failure.h"

#include <QCoreApplication>
#include <QFont>
#include <QPainter>

#include <algorithm>
#include <cmath>
#include <utility>

namespace portable {

namespace {

constexpr std::chrono::milliseconds interval{40}; // between two pictures
constexpr double quietest = -60; // decibels at which the bar is empty
constexpr double clipping = -3; // decibels from which it is red
constexpr double insetSide = 0.28; // of the main picture's
const QColor background(24, 28, 36);
const QColor barColor(72, 80, 96);
const QColor goodColor(46, 160, 92);
const QColor loudColor(208, 64, 52);

/// Draws a picture as large as fits. \return where
QRectF paintFitted(QPainter &painter, const QRectF &area, const QImage &picture)
{
    QRectF place({}, QSizeF(picture.size()).scaled(area.size(), Qt::KeepAspectRatio));
    place.moveCenter(area.center());
    painter.drawImage(place, picture);
    return place;
}

void paintInset(QPainter &painter, const QRectF &main, const QImage &picture)
{
    QRectF area({}, main.size() * insetSide);
    const double margin = main.height() / 40;
    area.moveBottomRight(main.bottomRight() - QPointF(margin, margin));
    const QRectF place = paintFitted(painter, area, picture);
    painter.setBrush(Qt::NoBrush);
    painter.setPen(QPen(Qt::white, std::max(1.0, margin / 6)));
    painter.drawRect(place);
}

void paintLevel(QPainter &painter, const QRectF &area, double level)
{
    const double decibels = 20 * std::log10(std::max(level, 1e-6));
    QRectF bar = area;
    painter.fillRect(bar, barColor);
    bar.setWidth(area.width() * std::clamp(1 - decibels / quietest, 0.0, 1.0));
    painter.fillRect(bar, decibels > clipping ? loudColor : goodColor);
}

} // namespace

QImage paintAvPreview(const QSize &size, const AvPicture &picture)
{
    QImage page(size, QImage::Format_RGB32);
    page.fill(background);
    QPainter painter(&page);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    const double line = std::clamp(size.height() / 16.0, 16.0, 48.0);
    const QRectF top(0, 0, size.width(), size.height() - line);
    const QRectF bottom(line / 4, top.bottom() + line / 4, size.width() - line / 2, line / 2);
    painter.setPen(Qt::white);
    painter.setFont(pageFont(line * 0.5));
    if (picture.hasMicrophone) {
        paintLevel(painter, bottom, picture.level);
    } else {
        painter.drawText(bottom, Qt::AlignCenter, QStringLiteral("无麦克风"));
    }
    if (picture.main.isNull()) {
        painter.drawText(top, Qt::AlignCenter, QStringLiteral("无画面"));
    }
    const QRectF main = picture.main.isNull() ? top : paintFitted(painter, top, picture.main);
    if (!picture.inset.isNull()) {
        paintInset(painter, main, picture.inset);
    }
    return page;
}

/// What the window shows; shared with the main thread.
struct AvPreview::Content
{
    std::mutex mutex;
    AvPicture picture; // guarded by mutex
};

AvPreview &AvPreview::instance()
{
    static AvPreview preview(CameraSet::instance());
    static const bool once = [] {
        qAddPostRoutine([] { preview.close(); });
        return true;
    }();
    Q_UNUSED(once)
    return preview;
}

AvPreview::AvPreview(const CameraSet &cameras, base::Clock &clock, SoundOpener openSound)
    : m_cameras(cameras)
    , m_clock(clock)
    , m_openSound(std::move(openSound))
    , m_content(std::make_shared<Content>())
{
}

AvPreview::~AvPreview()
{
    close();
}

void AvPreview::open()
{
    const std::lock_guard<std::mutex> changing(m_changing);
    end();
    QString error;
    auto sound = m_openSound(&error);
    if (!sound) {
        logInfo() << "the preview window shows no sound:" << error;
    }
    {
        const std::lock_guard<std::mutex> lock(m_content->mutex);
        m_content->picture = {};
    }
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_stop = false;
    m_isOpen = true;
    m_window = std::make_unique<PageWindow>(PageWindow::Look{QStringLiteral("预览"), false},
                                            [content = m_content](const QSize &size) {
                                                std::unique_lock<std::mutex> inner(content->mutex);
                                                const AvPicture picture = content->picture;
                                                inner.unlock();
                                                return paintAvPreview(size, picture);
                                            });
    if (!m_isVisible) {
        m_window->setVisible(false);
    }
    m_thread = std::thread(&AvPreview::run, this, std::move(sound));
}

void AvPreview::close()
{
    const std::lock_guard<std::mutex> changing(m_changing);
    end();
}

/// Call with m_changing held.
void AvPreview::end()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_stop = true;
    }
    m_stopped.notify_all();
    if (m_thread.joinable()) {
        m_thread.join();
    }
}

void AvPreview::setVisible(bool isVisible)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_isVisible = isVisible;
    if (m_window) {
        m_window->setVisible(isVisible);
    }
}

AvPicture AvPreview::picture() const
{
    const std::lock_guard<std::mutex> lock(m_content->mutex);
    return m_content->picture;
}

void AvPreview::run(const std::shared_ptr<SoundCapture> &sound)
{
    try {
        show(sound);
    } catch (const std::exception &failure) { // OpenCV's, or out of memory
        logWarning() << "the preview window closes:" << failure.what();
    }
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_window.reset();
    m_isOpen = false;
}

/// Until the preview ends, or its window is closed.
void AvPreview::show(const std::shared_ptr<SoundCapture> &sound)
{
    PreviewWatch preview(m_cameras, m_clock);
    cv::Mat shown;
    cv::Mat shownInset;
    while (wait()) {
        const auto main = preview.camera();
        const auto fourth = m_cameras.fourthCamera();
        if (preview.ended()) {
            break;
        }
        cv::Mat frame;
        cv::Mat inset;
        if (main) {
            main->peekFrame(frame);
        }
        if (fourth) {
            fourth->peekFrame(inset);
        }
        AvPicture next = picture();
        if (frame.data != shown.data) { // held, so that its memory isn't reused
            next.main = frame.empty() ? QImage() : shownImage(frame);
            shown = frame;
        }
        if (inset.data != shownInset.data) {
            next.inset = inset.empty() ? QImage() : shownImage(inset);
            shownInset = inset;
        }
        next.hasMicrophone = sound != nullptr;
        next.level = sound ? sound->level() : 0;
        {
            const std::lock_guard<std::mutex> lock(m_content->mutex);
            m_content->picture = std::move(next);
        }
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_window->update();
        if (m_window->isClosed()) {
            break;
        }
    }
}

/// Until the next picture is due. \return false when the window is to close
bool AvPreview::wait()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    return !m_clock.waitFor(m_stopped, lock, interval, [this] { return m_stop; });
}

} // namespace portable
