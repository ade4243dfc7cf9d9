// SPDX-License-Identifier: MIT
#pragma once

#include "portable/face/faceengine.h"

#include <deque>

namespace portable {

/// What a liveness check looks at in one picture. Lengths are parts of the distance of the eyes.
struct FaceSample
{
    double seconds = 0; ///< When it was taken, from any beginning.
    cv::Point2f centre; ///< Between the eyes, in pixels.
    float eyeDistance = 0; ///< From outer corner to outer corner, in pixels.

    /**
     * How much light and dark there is around the eyes (deviation / mean). An open eye has white
     * and iris, a closed one is skin: a blink takes a third of it or more. The points themselves
     * don't tell: those of this network stay where they are when an eye closes.
     */
    float eyeContrast = 0;

    float turn = 0; ///< Of the head: tip of the nose from the middle of the eyes, along their line.
    float nod = 0; ///< The same, across it.
};

FaceSample sampleOf(const cv::Mat &picture, const SeenFace &face, double seconds);

/**
 * Judges by a row of samples, some ten a second, whether a living person is there: one who blinks
 * and turns or nods the head. It is no protection against a film played to the camera.
 */
class LivenessCheck
{
public:
    /// \return whether it is of the same person as the last one; else all begins anew
    bool add(const FaceSample &sample);

    bool hasBlinked() const { return m_blinks > 0; }
    bool hasMoved() const { return m_moved; }
    bool hasPassed() const;

private:
    using Samples = std::deque<FaceSample>;

    bool isFollowedBy(const FaceSample &sample) const;
    bool endsBlink() const;
    void noteMovement();

    Samples m_samples; // of one person, without a gap
    double m_since = 0; // when that person was first seen, in seconds
    int m_blinks = 0;
    bool m_moved = false;
};

} // namespace portable
