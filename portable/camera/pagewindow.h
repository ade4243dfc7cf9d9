// SPDX-License-Identifier: MIT
/// \file Windows of the library's own.
#pragma once

#include <QImage>
#include <QString>
#include <opencv2/core.hpp>

#include <functional>
#include <memory>

namespace portable {

/// A font with Chinese glyphs of that height in pixels; Qt substitutes the closest one it has.
QFont pageFont(double pixels);

/// 8-bit RGB of an 8-bit BGR frame, no wider than is shown, with memory of its own.
QImage shownImage(const cv::Mat &frame);

/**
 * A window while the object lives. It belongs to the main thread, which opens and closes it as soon
 * as it can; the object may be used by any thread.
 */
class PageWindow
{
public:
    struct Look
    {
        QString title;
        /// Fills the second screen, which is the customer's, if there is one, and stays on top.
        bool isForCustomer = false;
    };
    /// Paints the content, in pixels of the screen. Called on the main thread.
    using Paint = std::function<QImage(const QSize &size)>;

    PageWindow(const Look &look, Paint paint);
    ~PageWindow();
    PageWindow(const PageWindow &) = delete;
    PageWindow &operator=(const PageWindow &) = delete;

    /// Whether anybody could see a window here. Without a display it is painted and not seen.
    static bool isDisplayThere();

    /// Has it painted again. Doesn't wait; while the main thread is busy, one time makes up for
    /// many.
    void update();

    void setVisible(bool isVisible);
    bool isClosed() const; ///< Whether somebody closed it.

private:
    struct State;
    class Window;

    const std::shared_ptr<State> m_state;
};

} // namespace portable
