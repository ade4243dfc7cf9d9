// SPDX-License-Identifier: MIT
#pragma once

#include "portable/face/faceengine.h"

#include <deque>

namespace portable {

/// What a liveness check measures in one frame. Lengths are relative to the eye distance.
struct FaceSample
{
    double seconds = 0; ///< When it was taken, since any fixed moment.
    cv::Point2f center; ///< Midpoint between the eyes, in pixels.
    float eyeDistance = 0; ///< Between the outer corners, in pixels.

    /**
     * Contrast around the eyes (standard deviation / mean). An open eye shows white and iris, a
     * closed one skin: a blink takes a third of the contrast or more. The landmarks are no use
     * here: this network leaves them in place when an eye closes.
     */
    float eyeContrast = 0;

    float turn = 0; ///< Head turn: offset of the nose tip from `center` along the eye line.
    float nod = 0; ///< The same across the eye line.
};

/// Measures a face that was found in this picture.
FaceSample sampleOf(const cv::Mat &picture, const SeenFace &face, double seconds);

/**
 * Judges from successive samples, about ten a second, whether a living person is in front of the
 * camera: one who blinks and turns or nods the head. It does not protect against a replayed video.
 */
class LivenessCheck
{
public:
    /// \return whether it shows the same person as the last one; if not, the check starts over
    bool add(const FaceSample &sample);

    bool hasBlinked() const { return m_blinks > 0; }
    bool hasMoved() const { return m_moved; }
    bool hasPassed() const;

private:
    using Samples = std::deque<FaceSample>;

    bool isFollowedBy(const FaceSample &sample) const;
    bool endsBlink() const;
    void noteMovement();

    Samples m_samples; // the last seconds, all of one person
    double m_since = 0; // when that person was first seen, in seconds
    int m_blinks = 0;
    bool m_moved = false;
};

} // namespace portable
