// SPDX-License-Identifier: MIT
#pragma once

#include "portable/picture/adjustments.h"
#include "portable/picture/orientation.h"
#include "portable/picture/resolution.h"
#include "portable/picture/watermark.h"

#include <QtGlobal>

#include <functional>
#include <map>
#include <mutex>

namespace portable {

enum class ShotMode { Whole, Area, Page };

/// How an open book is saved: a file per page, in reading order, or one for both.
enum class BookMode { LeftFirst, RightFirst, BothInOne };

/// How a captured frame is processed and encoded.
struct CaptureSettings
{
    ShotMode mode = ShotMode::Whole;
    cv::Point areaBegin; ///< Top left corner, in pixels of the rotated picture.
    cv::Point areaEnd; ///< Bottom right corner, exclusive; equal to areaBegin while none is set.
    Dpi dpi;
    int quality = 85; ///< JPEG quality, 1 to 100.
    Watermark watermark;
};

/// Settings of the cameras, whether open or not. May be called from any thread.
class Settings
{
public:
    /// A snapshot of the settings that apply to one camera's frames.
    struct View
    {
        Orientation orientation;
        cv::Size resolution; ///< In pixels before rotation; empty: the default.
        Adjustments adjustments;
        quint64 focusRequest = 0; ///< Incremented by each focus().
        quint64 revision = 0; ///< Incremented by each change of any of these.
    };

    /// \return false, with nothing changed, unless isRotation(degrees)
    bool setRotation(int degrees);

    /// \return false, with nothing changed, unless isFlip(mode)
    bool setFlip(int mode);

    /// The size to request from this camera, in pixels before rotation; empty: the default.
    void setResolution(int camera, const cv::Size &size);

    /// \return false, with nothing changed, unless the value is from -100 to 100
    bool setAdjustment(int Adjustments::*which, int value);

    /// Makes the open cameras focus once.
    void focus();

    /// \return false, with nothing changed, unless 0 whole, 1 area or 2 page
    bool setMode(int mode);

    /**
     * Corners of the crop area in pixels of the rotated picture, to which it is clipped when used.
     * All 0: no area. \return false, with nothing changed, unless x1 < x2 and y1 < y2, or all are 0
     */
    bool setArea(int x1, int y1, int x2, int y2);

    /// \return false, with nothing changed, unless both are from 50 to 1200
    bool setDpi(qint64 x, qint64 y);

    /// \return false, with nothing changed, unless from 1 to 100
    bool setQuality(int quality);

    void changeWatermark(const std::function<void(Watermark &)> &change);

    /// \return false, with nothing changed, unless 0 left first, 1 right first or 2 both in one
    bool setBookMode(int mode);
    BookMode bookMode() const;

    View view(int camera) const;
    Orientation orientation() const;
    CaptureSettings capture() const;
    quint64 revision() const;

private:
    void changeFrames(const std::function<void()> &change);

    mutable std::mutex m_mutex;
    Orientation m_orientation; // guarded by m_mutex, like all below
    std::map<int, cv::Size> m_resolutions;
    Adjustments m_adjustments;
    quint64 m_focusRequest = 0;
    quint64 m_revision = 0;
    CaptureSettings m_capture;
    BookMode m_bookMode = BookMode::LeftFirst;
};

} // namespace portable
