// SPDX-License-Identifier: MIT
#pragma once

#include "portable/orientation.h"

#include <QtGlobal>

#include <map>
#include <mutex>

namespace portable {

/** What pages set about cameras, whether one is open or not. Callable from any thread. */
class Settings
{
public:
    /** The settings of one camera at one moment. */
    struct View
    {
        Orientation orientation;
        cv::Size resolution; ///< In pixels before rotation; empty: the usual one.
        quint64 revision = 0; ///< Grows with each change of any setting.
    };

    /** \return false, with nothing changed, unless isRotation(degrees) */
    bool setRotation(int degrees);

    /** \return false, with nothing changed, unless isFlip(mode) */
    bool setFlip(int mode);

    /** The size to ask this camera for, in pixels before rotation; empty: the usual one. */
    void setResolution(int camera, const cv::Size &size);

    View view(int camera) const;
    Orientation orientation() const;
    quint64 revision() const;

private:
    mutable std::mutex m_mutex;
    Orientation m_orientation; // guarded by m_mutex, as all below
    std::map<int, cv::Size> m_resolutions;
    quint64 m_revision = 0;
};

} // namespace portable
