// SPDX-License-Identifier: MIT
#include "portable/camera/cameraset.h"

#include "portable/base/deviceini.h"
#include "portable/base/failure.h"
#include "portable/camera/camerasources.h"

#include <QCoreApplication>
#include <opencv2/core/utils/logger.hpp>

#include <utility>

namespace portable {

namespace {

std::unique_ptr<FrameSource> configuredSource(int camera, QString *error)
{
    return makeSource(camera, readDeviceConfig(deviceConfigPath()), listV4l2Devices, error);
}

/// Our log says what is wrong with a camera; OpenCV's guesses would go to stderr.
void silenceOpenCv()
{
    if (!qEnvironmentVariableIsSet("OPENCV_LOG_LEVEL")) {
        cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_FATAL);
    }
}

} // namespace

CameraSet &CameraSet::instance()
{
    // Never destroyed: readers may still run while the process exits.
    static CameraSet &cameras = *new CameraSet(configuredSource);
    static const bool once = [] {
        silenceOpenCv();
        // Sources need the application: they paint and decode files.
        qAddPostRoutine([] {
            cameras.stopMain();
            cameras.stopFourth();
        });
        return true;
    }();
    Q_UNUSED(once)
    return cameras;
}

CameraSet::CameraSet(SourceFactory factory, base::Clock &clock)
    : m_factory(std::move(factory))
    , m_clock(clock)
{
}

CameraSet::~CameraSet()
{
    stopMain();
    stopFourth();
    takeLost(0);
}

std::shared_ptr<Camera> CameraSet::open(int camera, int rotation)
{
    const std::lock_guard<std::mutex> changing(m_changing);
    Slot &slot = camera == 4 ? m_fourth : m_main;
    if (&slot == &m_main) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_endAnnounced = {};
        m_ended = false;
    }
    replace(slot, nullptr);
    if (!isRotation(rotation)) {
        logWarning() << cameraName(camera) << "doesn't start: there is no rotation by" << rotation
                     << "degrees";
        return nullptr;
    }
    if (rotation != 0) {
        m_settings.setRotation(rotation);
    }
    const Slot lost = &slot == &m_main ? takeLost(camera) : nullptr;
    Slot opened = lost && lost->hasFrame() ? lost : started(camera);
    if (opened) {
        replace(slot, opened);
    }
    if (lost && opened == lost) {
        lost->endAt(base::Clock::TimePoint::max());
    } else if (lost && opened) {
        lost->stop();
    } else if (lost) {
        lost->endAt(m_clock.now() + lookoutLimit);
        replace(slot, lost);
    }
    return opened;
}

/// A camera of its own source, open; null on failure, with a line in the log.
CameraSet::Slot CameraSet::started(int camera)
{
    QString error;
    auto source = m_factory(camera, &error);
    if (!source) {
        logWarning() << cameraName(camera) << "doesn't start:" << error;
        return nullptr;
    }
    auto started = std::make_shared<Camera>(camera, std::move(source), m_settings, m_clock);
    return started->start() ? started : nullptr;
}

/// The lost camera, if it has this number and is still looked for; otherwise it is stopped.
CameraSet::Slot CameraSet::takeLost(int camera)
{
    Slot lost = std::move(m_lost);
    if (lost && (lost->number() != camera || lost->hasEnded())) {
        lost->stop();
        return nullptr;
    }
    return lost;
}

void CameraSet::stopMain()
{
    const std::lock_guard<std::mutex> changing(m_changing);
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        const bool isAnnounced = m_endAnnounced != base::Clock::TimePoint()
            && m_clock.now() - m_endAnnounced < cameraChangeLimit;
        m_ended = m_ended || isAnnounced;
    }
    const Slot ended = get(m_main);
    if (!ended || ended->hasFrame()) {
        replace(m_main, nullptr);
        return;
    }
    takeLost(0); // a former one
    ended->endAt(m_clock.now() + lostCameraLimit);
    m_lost = exchanged(m_main, nullptr);
}

void CameraSet::stopFourth()
{
    const std::lock_guard<std::mutex> changing(m_changing);
    replace(m_fourth, nullptr);
}

void CameraSet::stop(const std::shared_ptr<Camera> &camera)
{
    const std::lock_guard<std::mutex> changing(m_changing);
    for (Slot *slot : {&m_main, &m_fourth}) {
        if (camera && get(*slot) == camera) {
            replace(*slot, nullptr);
        }
    }
}

void CameraSet::announceEnd()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_endAnnounced = m_clock.now();
}

bool CameraSet::hasEnded() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_ended;
}

bool CameraSet::isOpen() const
{
    return get(m_main) || get(m_fourth);
}

std::shared_ptr<Camera> CameraSet::mainCamera() const
{
    return get(m_main);
}

std::shared_ptr<Camera> CameraSet::fourthCamera() const
{
    return get(m_fourth);
}

bool CameraSet::nextPreviewFrame(cv::Mat &frame)
{
    const Slot camera = get(m_main);
    quint64 last = m_previewSequence;
    if (camera) {
        camera->endNotBefore(m_clock.now() + lookoutLimit);
    }
    if (!camera || !camera->nextFrame(last, frame)) {
        frame.release();
        return false;
    }
    m_previewSequence = last;
    return true;
}

bool CameraSet::currentFrame(cv::Mat &frame) const
{
    const Slot main = get(m_main);
    const Slot camera = main ? main : get(m_fourth);
    if (!camera) {
        frame.release();
        return false;
    }
    return camera->currentFrame(frame);
}

std::vector<cv::Size> CameraSet::sizes(int camera) const
{
    const auto source = this->source(camera);
    return source ? source->sizes() : std::vector<cv::Size>();
}

QString CameraSet::devicePath(int camera) const
{
    const auto source = this->source(camera);
    return source ? source->devicePath() : QString();
}

cv::Size CameraSet::size(int camera) const
{
    for (const Slot &open : {get(m_main), get(m_fourth)}) {
        if (open && open->number() == camera) {
            return open->size();
        }
    }
    const auto source = this->source(camera);
    return source ? source->sizeFor(m_settings.view(camera).resolution) : cv::Size();
}

/// Puts `camera` into the slot and stops the one that was there.
void CameraSet::replace(Slot &slot, const Slot &camera)
{
    if (const Slot replaced = exchanged(slot, camera)) {
        replaced->stop();
    }
}

/// Puts `camera` into the slot. \return the one that was there
CameraSet::Slot CameraSet::exchanged(Slot &slot, const Slot &camera)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return std::exchange(slot, camera);
}

CameraSet::Slot CameraSet::get(const Slot &slot) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return slot;
}

/// The closed source of a camera, to query it; null for a camera that isn't there.
std::unique_ptr<FrameSource> CameraSet::source(int camera) const
{
    QString unused;
    return m_factory(camera, &unused);
}

} // namespace portable
