// SPDX-License-Identifier: MIT
#pragma once

#include "portable/face/facenets.h"

#include <QByteArray>
#include <QString>

#include <functional>
#include <mutex>

namespace portable {

/// Why there is no score. The numbers are what pages get.
enum class FaceFailure {
    none = 0,
    unreadable = -1, ///< No image file, or a broken or much too large one.
    noFace = -2,
    noEngine = -3, ///< The weights of the networks aren't installed.
    noCamera = -4, ///< No camera is open, or it delivers nothing.
    noFeature = -5, ///< Not a feature of ours.
    busy = -6, ///< Another check uses the camera.
};

/// For the log.
QString failureText(FaceFailure failure);

/// A face in a picture.
struct SeenFace
{
    FaceBox box;
    FacePoints points;
};

/**
 * Finds and describes faces. The networks are loaded by the first call that needs them, and looked
 * for again by each one as long as they aren't there. Callable from any thread; one call computes
 * at a time.
 */
class FaceEngine
{
public:
    /// That of the library, with the models that devices.ini names or those beside the program.
    static FaceEngine &instance();

    /// \param folder  asked for where the weights are
    explicit FaceEngine(std::function<QString()> folder);

    /// Loads the networks. \return noEngine, with the reason in the log, or none
    FaceFailure prepare();

    /**
     * The largest face of a picture; looked for with more and more effort.
     * \return noFace or noEngine when there is none
     */
    FaceFailure find(const cv::Mat &picture, SeenFace *face);

    /// The same for a camera's picture: quick, and without faces that are small in it.
    FaceFailure glance(const cv::Mat &picture, SeenFace *face);

    FaceFailure describe(const cv::Mat &picture, const SeenFace &face, FaceDescriptor *descriptor);

    /// find() and describe() in one.
    FaceFailure describe(const cv::Mat &picture, FaceDescriptor *descriptor);

private:
    template <class Use> FaceFailure use(Use useNets);

    const std::function<QString()> m_folder;
    std::mutex m_mutex;
    std::unique_ptr<FaceNets> m_nets; // guarded by m_mutex
};

/// Where two faces count as one person's.
constexpr int samePersonScore = 60;

/**
 * How alike two faces are, 0 to 100: 100 for a distance of 0, samePersonScore for 0.5, 0 from 1.2
 * on; linear in between.
 */
int faceScore(const FaceDescriptor &a, const FaceDescriptor &b);

/// A descriptor as text, see FeatureWriter.
QByteArray faceFeature(const FaceDescriptor &descriptor);

/// \return false for anything that faceFeature() didn't make
bool readFaceFeature(const char *feature, FaceDescriptor *descriptor);

} // namespace portable
