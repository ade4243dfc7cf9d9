// SPDX-License-Identifier: MIT
#include "portable/camera/pagewindow.h"

#include "base/mainthread.h"

#include <QCloseEvent>
#include <QFont>
#include <QGuiApplication>
#include <QPainter>
#include <QPointer>
#include <QRasterWindow>
#include <QScreen>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <atomic>
#include <utility>

namespace portable {

namespace {

constexpr int maxShownWidth = 1280; // pixels of a camera's picture

bool canShowWindows()
{
    return qobject_cast<QGuiApplication *>(QCoreApplication::instance()) != nullptr;
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

QFont pageFont(double pixels)
{
    QFont font(QStringLiteral("WenQuanYi Micro Hei"));
    font.setStyleHint(QFont::SansSerif);
    font.setPixelSize(std::max(int(pixels), 8));
    return font;
}

QImage shownImage(const cv::Mat &frame)
{
    cv::Mat small = frame;
    if (frame.cols > maxShownWidth) {
        const double scale = double(maxShownWidth) / frame.cols;
        cv::resize(frame, small, {}, scale, scale, cv::INTER_AREA);
    }
    // QImage has BGR only since Qt 5.14.
    QImage image(small.cols, small.rows, QImage::Format_RGB888);
    cv::Mat pixels(small.rows, small.cols, CV_8UC3, image.bits(), size_t(image.bytesPerLine()));
    cv::cvtColor(small, pixels, cv::COLOR_BGR2RGB);
    return image;
}

/// Shared with the main thread, which may still have tasks when the object has gone.
struct PageWindow::State
{
    Look look;
    Paint paint;
    std::atomic<bool> isUpdating{false}; // the main thread is about to paint
    std::atomic<bool> isClosed{false};
    QPointer<Window> window; // used by the main thread only
};

class PageWindow::Window : public QRasterWindow
{
public:
    explicit Window(std::shared_ptr<State> state)
        : m_state(std::move(state))
    {
        setTitle(m_state->look.title);
        setFlags(m_state->look.isForCustomer ? Qt::Window | Qt::WindowStaysOnTopHint : Qt::Window);
        // Whoever still lives when the application ends goes with it.
        connect(qApp, &QCoreApplication::aboutToQuit, this, [this] { delete this; });
    }

    void open()
    {
        QScreen *const screen = m_state->look.isForCustomer ? customerScreen() : nullptr;
        if (screen) {
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
        const double ratio = devicePixelRatio();
        QImage page = m_state->paint(size() * ratio);
        page.setDevicePixelRatio(ratio);
        QPainter(this).drawImage(0, 0, page);
    }

    bool event(QEvent *event) override
    {
        if (event->type() == QEvent::Close) {
            m_state->isClosed = true;
        }
        return QRasterWindow::event(event);
    }

private:
    const std::shared_ptr<State> m_state;
};

PageWindow::PageWindow(const Look &look, Paint paint)
    : m_state(std::make_shared<State>())
{
    m_state->look = look;
    m_state->paint = std::move(paint);
    base::postToMainThread([state = m_state] {
        if (canShowWindows()) {
            state->window = new Window(state);
            state->window->open();
        }
    });
}

PageWindow::~PageWindow()
{
    base::postToMainThread([state = m_state] { delete state->window; });
}

bool PageWindow::isDisplayThere()
{
    return canShowWindows() && QGuiApplication::platformName() != QLatin1String("offscreen");
}

void PageWindow::update()
{
    if (!m_state->isUpdating.exchange(true)) {
        base::postToMainThread([state = m_state] {
            state->isUpdating = false;
            if (state->window) {
                state->window->update();
            }
        });
    }
}

void PageWindow::setVisible(bool isVisible)
{
    base::postToMainThread([state = m_state, isVisible] {
        if (state->window) {
            state->window->setVisible(isVisible);
        }
    });
}

bool PageWindow::isClosed() const
{
    return m_state->isClosed;
}

} // namespace portable
