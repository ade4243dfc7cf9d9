// SPDX-License-Identifier: MIT
#include "portable/face/livenesspage.h"

#include "portable/base/failure.h"

#include <QFont>
#include <QPainter>
#include <QPainterPath>

#include <algorithm>
#include <mutex>
#include <utility>

namespace portable {

namespace {

const QColor background(24, 28, 36);
const QColor doneColor(46, 160, 92);
const QColor openColor(72, 80, 96);

/// A step and whether it is done, in a rounded box.
void paintStep(QPainter &painter, const QRectF &area, const QString &text, bool isDone)
{
    painter.setPen(Qt::NoPen);
    painter.setBrush(isDone ? doneColor : openColor);
    painter.drawRoundedRect(area, area.height() / 2, area.height() / 2);
    painter.setPen(Qt::white);
    painter.setFont(pageFont(area.height() * 0.5));
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
    painter.setFont(pageFont(line * 0.62));
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

/// What the window shows; shared with the main thread.
struct LivenessPage::Content
{
    std::mutex mutex;
    QImage picture; // guarded by mutex, like all below
    LivenessResult progress;
};

LivenessPage::LivenessPage()
    : m_content(std::make_shared<Content>())
    , m_window({QStringLiteral("活体检测"), true}, [content = m_content](const QSize &size) {
        std::unique_lock<std::mutex> lock(content->mutex);
        const QImage picture = content->picture;
        const LivenessResult progress = content->progress;
        lock.unlock();
        return paintLivenessPage(size, picture, progress);
    })
{
    if (!PageWindow::isDisplayThere()) {
        logFailure("the page of the liveness check isn't seen",
                   QStringLiteral("there is no display"));
    }
}

bool LivenessPage::show(const cv::Mat &frame, const LivenessResult &progress)
{
    QImage picture = shownImage(frame);
    {
        const std::lock_guard<std::mutex> lock(m_content->mutex);
        m_content->picture = std::move(picture);
        m_content->progress = progress;
    }
    m_window.update();
    return !m_window.isClosed();
}

} // namespace portable
