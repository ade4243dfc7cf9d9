// SPDX-License-Identifier: MIT
#pragma once

#include "portable/face/facenets.h"

#include <QByteArray>
#include <QString>

#include <functional>
#include <mutex>

namespace portable {

/// Why there is no score. Pages see the numbers.
enum class FaceFailure {
    None = 0,
    Unreadable = -1, ///< Not an image file, broken, or far too large.
    NoFace = -2,
    NoEngine = -3, ///< The weights aren't installed or OpenCV failed; the log gives the reason.
    NoCamera = -4, ///< No camera is open, or it delivers no frames.
    NoFeature = -5, ///< Not a face feature of this library.
    Busy = -6, ///< Another check is using the camera.
};

/// The failure in words, for the log.
QString failureText(FaceFailure failure);

/// A face in a picture.
struct SeenFace
{
    FaceBox box;
    FacePoints points;
};

/**
 * Finds and describes faces. The first call loads the networks; while that fails, every call tries
 * again. Callable from any thread; calls run one at a time.
 */
class FaceEngine
{
public:
    /// The library's own engine. Its models are those devices.ini names, or beside the program.
    static FaceEngine &instance();

    /// \param folder  returns the folder of the weights; called by each attempt to load them
    explicit FaceEngine(std::function<QString()> folder);

    /// Loads the networks. \return None, or NoEngine with the reason in the log
    FaceFailure prepare();

    /**
     * Finds the largest face of a picture, with increasing effort.
     * \return None, NoFace or NoEngine
     */
    FaceFailure find(const cv::Mat &picture, SeenFace *face);

    /// The same for camera frames: fast, but misses small faces.
    FaceFailure findFast(const cv::Mat &picture, SeenFace *face);

    /// Describes a face that was found in this picture. \return None or NoEngine
    FaceFailure describe(const cv::Mat &picture, const SeenFace &face, FaceDescriptor *descriptor);

    /// find() and describe() in one.
    FaceFailure describe(const cv::Mat &picture, FaceDescriptor *descriptor);

private:
    template <class Use> FaceFailure use(Use useNets);

    const std::function<QString()> m_folder;
    std::mutex m_mutex;
    std::unique_ptr<FaceNets> m_nets; // guarded by m_mutex
};

/// From this score on, two faces count as the same person.
constexpr int samePersonScore = 60;

/**
 * Similarity of two faces: 100 at distance 0, samePersonScore at 0.5, 0 from 1.2 on, linear in
 * between.
 */
int faceScore(const FaceDescriptor &a, const FaceDescriptor &b);

/// A descriptor as text, see FeatureWriter.
QByteArray faceFeature(const FaceDescriptor &descriptor);

/// Parses a descriptor. \return false for anything faceFeature() didn't produce; null is safe
bool readFaceFeature(const char *feature, FaceDescriptor *descriptor);

} // namespace portable
