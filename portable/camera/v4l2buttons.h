// SPDX-License-Identifier: MIT
#pragma once

#include "portable/camera/v4l2node.h"

#include <QString>

#include <map>
#include <optional>

namespace portable {

/**
 * The controls of a camera by which its driver reports a capture button, with events (kernel's
 * "Video for Linux API", V4L2_EVENT_CTRL). Its node is open as long as this lives, but doesn't
 * stream, and other programs can use the camera.
 */
class V4l2Buttons
{
public:
    /**
     * \param control  number or name of the only one, of any type; empty: all buttons of the
     *                 driver's own, for the standard ones do something, such as focusing
     */
    V4l2Buttons(const QString &path, const QString &control);

    bool isEmpty() const { return m_types.empty(); }
    int descriptor() const { return m_node.descriptor(); } ///< To be polled for POLLPRI.

    /// What has been reported since the last call. \return nullopt when the camera has gone
    std::optional<int> takePresses();

private:
    void subscribe(const QString &control);

    const V4l2Node m_node;
    std::map<unsigned, unsigned> m_types; // V4L2_CTRL_TYPE_... by the control's number
};

} // namespace portable
