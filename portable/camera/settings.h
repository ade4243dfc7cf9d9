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

/// The files of an open book: one for each page, in the order in which it is read, or one.
enum class BookMode { LeftFirst, RightFirst, BothInOne };

/// What becomes of a frame that is captured.
struct CaptureSettings
{
    ShotMode mode = ShotMode::Whole;
    cv::Point areaBegin; ///< Top left corner, in pixels of the turned picture.
    cv::Point areaEnd; ///< Bottom right corner, outside; equal to areaBegin while none is set.
    Dpi dpi;
    int quality = 85; ///< Of JPEG, 1 to 100.
    Watermark watermark;
};

/// What pages set about cameras, whether one is open or not. Callable from any thread.
class Settings
{
public:
    /// The settings of one camera's frames at one moment.
    struct View
    {
        Orientation orientation;
        cv::Size resolution; ///< In pixels before rotation; empty: the usual one.
        Adjustments adjustments;
        quint64 focusing = 0; ///< Grows with each focus().
        quint64 revision = 0; ///< Grows with each change of any of these.
    };

    /// \return false, with nothing changed, unless isRotation(degrees)
    bool setRotation(int degrees);

    /// \return false, with nothing changed, unless isFlip(mode)
    bool setFlip(int mode);

    /// The size to ask this camera for, in pixels before rotation; empty: the usual one.
    void setResolution(int camera, const cv::Size &size);

    /// \return false, with nothing changed, unless the value is from -100 to 100
    bool setAdjustment(int Adjustments::*which, int value);

    /// Lets the open cameras focus once.
    void focus();

    /// \return false, with nothing changed, unless 0 whole, 1 area or 2 page
    bool setMode(int mode);

    /**
     * Corners in pixels of the turned picture; what lies outside it is cut off when it is used.
     * \return false, with nothing changed, unless x1 < x2 and y1 < y2, or all are 0: none
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
    Orientation m_orientation; // guarded by m_mutex, as all below
    std::map<int, cv::Size> m_resolutions;
    Adjustments m_adjustments;
    quint64 m_focusing = 0;
    quint64 m_revision = 0;
    CaptureSettings m_capture;
    BookMode m_bookMode = BookMode::LeftFirst;
};

} // namespace portable
