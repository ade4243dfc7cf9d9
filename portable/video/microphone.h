// SPDX-License-Identifier: MIT
#pragma once

#include "portable/video/sound.h"

#include <QString>

#include <functional>
#include <memory>

namespace portable {

/// A microphone. Used by one thread at a time; opened again after a failure.
class Microphone
{
public:
    /**
     * Opens a microphone of ALSA.
     * \param choice  as [recording] microphone= of devices.ini: empty or "auto", a number from 1,
     *                part of a sound card's name, or the name of a PCM of ALSA
     * \return null, with a reason for the log, when there is none or it can't be used
     */
    static std::unique_ptr<Microphone> open(const QString &choice, QString *error);

    virtual ~Microphone() = default;
    Microphone(const Microphone &) = delete;
    Microphone &operator=(const Microphone &) = delete;

    virtual QString name() const = 0; ///< For the log.

    /**
     * Waits for sound, half a second at most.
     * \param sound  without samples when none came, or when some were lost
     * \return false when it delivers none any more, for instance because it was unplugged
     */
    virtual bool read(Sound &sound, QString *error) = 0;

protected:
    Microphone() = default;
};

/// Opens the microphone in force; null, with a reason for the log, when there is none.
using MicrophoneOpener = std::function<std::unique_ptr<Microphone>(QString *error)>;

} // namespace portable
