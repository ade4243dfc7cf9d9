// SPDX-License-Identifier: MIT
#pragma once

#include "portable/video/microphone.h"

#include <alsa/asoundlib.h>

namespace portable {

class AlsaMicrophone : public Microphone
{
public:
    /// Microphone::open()
    static std::unique_ptr<Microphone> open(const QString &choice, QString *error);

    QString name() const override { return m_name; }
    bool read(Sound &sound, QString *error) override;

private:
    AlsaMicrophone(QString name, snd_pcm_t *pcm);
    bool resume(int code, QString *error);

    const QString m_name;
    const std::unique_ptr<snd_pcm_t, int (*)(snd_pcm_t *)> m_pcm;
    base::Clock::TimePoint m_lastSound;
};

} // namespace portable
