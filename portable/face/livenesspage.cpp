// SPDX-License-Identifier: MIT
#include "portable/face/livenesspage.h"

#include "base/mainthread.h"
#include "portable/base/failure.h"

#include <QCloseEvent>
#include <QGuiApplication>
#include <QPainter>
#include <QPainterPath>
#include <QPointer>
#include <QRasterWindow>
#include <QScreen>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <mutex>
#include <utility>

namespace portable {

namespace {

constexpr int maxShownWidth = 1280; // pixels of the camera's picture
const QColor background(24, 28, 36);
const QColor doneColor(46, 160, 92);
const QColor openColor(72, 80, 96);

/// A font with Chinese glyphs; Qt substitutes the closest one it has.
QFont textFont(double pixels)
{
    QFont font(QStringLiteral("WenQuanYi Micro Hei"));
    font.setStyleHint(QFont::SansSerif);
    font.setPixelSize(std::max(int(pixels), 8));
    return font;
}

/// A step and whether it is done, in a rounded box.
void paintStep(QPainter &painter, const QRectF &area, const QString &text, bool isDone)
{
    painter.setPen(Qt::NoPen);
    painter.setBrush(isDone ? doneColor : openColor);
    painter.drawRoundedRect(area, area.height() / 2, area.height() / 2);
    painter.setPen(Qt::white);
    painter.setFont(textFont(area.height() * 0.5));
    painter.drawText(area, Qt::AlignCenter, isDone ? QStringLiteral("✓ ") + text : text);
}

/// The camera's picture as in a mirror, and an oval in which the face belongs.
void paintCamera(QPainter &painter, const QRectF &area, const QImage &picture, bool hasFace)
{
    if (picture.isNull()) {
        return;
    }
    const QSizeF size = QSizeF(picture.size()).scaled(area.size(), Qt::KeepAspectRatio);
    QRectF place({}, size);
    place.moveCenter(area.center());
    painter.drawImage(place, picture.mirrored(true, false));
    QRectF oval(0, 0, place.height() * 0.58, place.height() * 0.78);
    oval.moveCenter(place.center());
    QPainterPath outside;
    outside.addRect(place);
    outside.addEllipse(oval);
    painter.fillPath(outside, QColor(0, 0, 0, 90));
    painter.setBrush(Qt::NoBrush);
    painter.setPen(QPen(hasFace ? doneColor : QColor(Qt::white), place.height() / 120));
    painter.drawEllipse(oval);
}

/// 8-bit RGB, no wider than is shown, with memory of its own. QImage has BGR only since Qt 5.14.
QImage shownImage(const cv::Mat &frame)
{
    cv::Mat small = frame;
    if (frame.cols > maxShownWidth) {
        const double scale = double(maxShownWidth) / frame.cols;
        cv::resize(frame, small, {}, scale, scale, cv::INTER_AREA);
    }
    QImage image(small.cols, small.rows, QImage::Format_RGB888);
    cv::Mat pixels(small.rows, small.cols, CV_8UC3, image.bits(), size_t(image.bytesPerLine()));
    cv::cvtColor(small, pixels, cv::COLOR_BGR2RGB);
    return image;
}

/// The second screen; null if there is none.
QScreen *customerScreen()
{
    for (QScreen *screen : QGuiApplication::screens()) {
        if (screen != QGuiApplication::primaryScreen()) {
            return screen;
        }
    }
    return nullptr;
}

} // namespace

QString livenessHint(const LivenessResult &progress)
{
    return progress.failure != FaceFailure::None ? QStringLiteral("请正对摄像头，将脸置于框内")
        : !progress.hasBlinked                   ? QStringLiteral("请眨眼")
        : !progress.hasMoved                     ? QStringLiteral("请缓慢左右转头")
                                                 : QStringLiteral("请保持不动");
}

QImage paintLivenessPage(const QSize &size, const QImage &picture, const LivenessResult &progress)
{
    QImage page(size, QImage::Format_RGB32);
    page.fill(background);
    QPainter painter(&page);
    painter.setRenderHints(QPainter::Antialiasing | QPainter::SmoothPixmapTransform);
    const double line = size.height() / 12.0;
    const QRectF all({}, QSizeF(size));
    const bool hasFace = progress.failure == FaceFailure::None;
    paintCamera(painter, all.adjusted(line / 4, line / 4, -line / 4, -3 * line), picture, hasFace);

    painter.setPen(Qt::white);
    painter.setFont(textFont(line * 0.62));
    painter.drawText(QRectF(0, all.height() - 2.8 * line, all.width(), line), Qt::AlignCenter,
                     livenessHint(progress));
    const double width = std::min(3.4 * line, all.width() / 2.4);
    QRectF step(0, all.height() - 1.5 * line, width, 0.9 * line);
    step.moveRight(all.center().x() - line / 4);
    paintStep(painter, step, QStringLiteral("眨眼"), progress.hasBlinked);
    step.moveLeft(all.center().x() + line / 4);
    paintStep(painter, step, QStringLiteral("转头"), progress.hasMoved);
    return page;
}

/// What the window shows; shared with the thread of the check.
struct LivenessPage::Content
{
    std::mutex mutex;
    QImage picture; // guarded by mutex, like all below
    LivenessResult progress;
    bool isUpdating = false; // the main thread is about to show it
    bool isClosed = false; // by the person
    QPointer<Window> window; // used by the main thread only
};

class LivenessPage::Window : public QRasterWindow
{
public:
    explicit Window(std::shared_ptr<Content> content)
        : m_content(std::move(content))
    {
        setTitle(QStringLiteral("活体检测"));
        setFlags(Qt::Window | Qt::WindowStaysOnTopHint);
        // Whoever still lives when the application ends goes with it.
        connect(qApp, &QCoreApplication::aboutToQuit, this, [this] { delete this; });
    }

    void open()
    {
        if (QScreen *const screen = customerScreen()) {
            setScreen(screen);
            setGeometry(screen->geometry());
            showFullScreen();
            return;
        }
        const QRect room = QGuiApplication::primaryScreen()->availableGeometry();
        QRect area(QPoint(), QSize(960, 800).boundedTo(room.size() * 0.9));
        area.moveCenter(room.center());
        setGeometry(area);
        show();
    }

protected:
    void paintEvent(QPaintEvent *) override
    {
        QImage picture;
        LivenessResult progress;
        {
            const std::lock_guard<std::mutex> lock(m_content->mutex);
            picture = m_content->picture;
            progress = m_content->progress;
        }
        const double ratio = devicePixelRatio();
        QImage page = paintLivenessPage(size() * ratio, picture, progress);
        page.setDevicePixelRatio(ratio);
        QPainter(this).drawImage(0, 0, page);
    }

    bool event(QEvent *event) override
    {
        if (event->type() == QEvent::Close) {
            const std::lock_guard<std::mutex> lock(m_content->mutex);
            m_content->isClosed = true;
        }
        return QRasterWindow::event(event);
    }

private:
    const std::shared_ptr<Content> m_content;
};

LivenessPage::LivenessPage()
    : m_content(std::make_shared<Content>())
{
    base::postToMainThread([content = m_content] {
        if (!qobject_cast<QGuiApplication *>(QCoreApplication::instance())
            || QGuiApplication::platformName() == QLatin1String("offscreen")) {
            logFailure("the page of the liveness check isn't seen",
                       QStringLiteral("there is no display"));
        }
        if (qobject_cast<QGuiApplication *>(QCoreApplication::instance())) {
            content->window = new Window(content);
            content->window->open();
        }
    });
}

LivenessPage::~LivenessPage()
{
    base::postToMainThread([content = m_content] { delete content->window; });
}

bool LivenessPage::show(const cv::Mat &frame, const LivenessResult &progress)
{
    QImage picture = shownImage(frame);
    const std::lock_guard<std::mutex> lock(m_content->mutex);
    m_content->picture = std::move(picture);
    m_content->progress = progress;
    if (!std::exchange(m_content->isUpdating, true)) {
        base::postToMainThread([content = m_content] {
            if (content->window) {
                content->window->update();
            }
            const std::lock_guard<std::mutex> inner(content->mutex);
            content->isUpdating = false;
        });
    }
    return !m_content->isClosed;
}

} // namespace portable
