// SPDX-License-Identifier: MIT
// For the functions see the ALSA library's reference, "PCM Interface" and "Control Interface".
#include "portable/video/module/alsamicrophone.h"

#include "portable/base/failure.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace portable {

namespace {

/// Of the buffer of a sound card: a reader may come so late. It is woken four times as often.
constexpr unsigned latencyMicroseconds = 400000;
constexpr int waitMilliseconds = 500;
/// Without a sample for so long, a microphone is taken for lost.
constexpr std::chrono::seconds silenceLimit{3};

/// What ALSA can record from: the name of a PCM, and what it is.
struct Candidate
{
    QByteArray pcm;
    QString name;
};

QString errorText(int code)
{
    return QString::fromLocal8Bit(snd_strerror(code));
}

void ignoreMessage(const char *, int, const char *, int, const char *, ...) { }

/// The devices of a sound card that record.
void addDevices(int card, std::vector<Candidate> &candidates)
{
    snd_ctl_t *control = nullptr;
    const QByteArray number = QByteArray::number(card);
    if (snd_ctl_open(&control, ("hw:" + number).constData(), SND_CTL_NONBLOCK) < 0) {
        return;
    }
    char *name = nullptr;
    snd_card_get_name(card, &name);
    int device = -1;
    while (snd_ctl_pcm_next_device(control, &device) >= 0 && device >= 0) {
        snd_pcm_info_t *info = nullptr;
        snd_pcm_info_alloca(&info);
        snd_pcm_info_set_device(info, unsigned(device));
        snd_pcm_info_set_stream(info, SND_PCM_STREAM_CAPTURE);
        if (snd_ctl_pcm_info(control, info) >= 0) {
            const QByteArray pcm = "plughw:" + number + ',' + QByteArray::number(device);
            candidates.push_back({pcm, QString::fromUtf8(name)});
        }
    }
    std::free(name);
    snd_ctl_close(control);
}

/// All of the machine, in the order of the cards.
std::vector<Candidate> devices()
{
    std::vector<Candidate> candidates;
    int card = -1;
    while (snd_card_next(&card) >= 0 && card >= 0) {
        addDevices(card, candidates);
    }
    return candidates;
}

/// What to try for a choice, the best first.
std::vector<Candidate> candidatesFor(const QString &choice)
{
    std::vector<Candidate> all = devices();
    if (choice.isEmpty() || choice == QLatin1String("auto")) {
        // The desktop's choice, and a card that it doesn't know.
        all.insert(all.begin(), Candidate{"default", QStringLiteral("default")});
        return all;
    }
    bool isNumber = false;
    const int number = choice.toInt(&isNumber);
    std::vector<Candidate> chosen;
    for (std::size_t i = 0; i < all.size(); ++i) {
        if (isNumber ? int(i) + 1 == number : all[i].name.contains(choice, Qt::CaseInsensitive)) {
            chosen.push_back(all[i]);
        }
    }
    if (!isNumber) {
        chosen.push_back({choice.toUtf8(), choice});
    }
    return chosen;
}

} // namespace

std::unique_ptr<Microphone> AlsaMicrophone::open(const QString &choice, QString *error)
{
    snd_lib_error_set_handler(ignoreMessage); // it would write to stderr
    int code = -ENODEV;
    for (const Candidate &candidate : candidatesFor(choice)) {
        snd_pcm_t *pcm = nullptr;
        code =
            snd_pcm_open(&pcm, candidate.pcm.constData(), SND_PCM_STREAM_CAPTURE, SND_PCM_NONBLOCK);
        if (code < 0) {
            continue;
        }
        // The constructor is private.
        std::unique_ptr<AlsaMicrophone> microphone(new AlsaMicrophone(candidate.name, pcm));
        code = snd_pcm_set_params(pcm, SND_PCM_FORMAT_S16, SND_PCM_ACCESS_RW_INTERLEAVED, 1,
                                  soundRate, 1, latencyMicroseconds);
        if (code >= 0) {
            code = snd_pcm_start(pcm);
        }
        if (code >= 0) {
            return microphone;
        }
    }
    const bool isThere = code != -ENOENT && code != -ENODEV;
    const bool isChosen = !choice.isEmpty() && choice != QLatin1String("auto");
    setError(QStringLiteral("there is no microphone")
                 + (isChosen ? QStringLiteral(" \"%1\"").arg(choice) : QString()),
             error);
    if (isThere) { // in use by a program, or forbidden
        setError(QStringLiteral("the microphone can't be opened: ") + errorText(code), error);
    }
    return nullptr;
}

AlsaMicrophone::AlsaMicrophone(QString name, snd_pcm_t *pcm)
    : m_name(std::move(name))
    , m_pcm(pcm, snd_pcm_close)
    , m_lastSound(std::chrono::steady_clock::now())
{
}

bool AlsaMicrophone::read(Sound &sound, QString *error)
{
    sound.samples.clear();
    int code = snd_pcm_wait(m_pcm.get(), waitMilliseconds);
    snd_pcm_sframes_t available = 0;
    snd_pcm_sframes_t delay = 0; // since the next sample was captured
    if (code >= 0) {
        code = snd_pcm_avail_delay(m_pcm.get(), &available, &delay);
    }
    const auto now = std::chrono::steady_clock::now();
    if (code >= 0 && available > 0) {
        sound.capturedAt = now - soundLength(std::max(delay, available));
        sound.samples.resize(std::size_t(std::min<snd_pcm_sframes_t>(available, soundRate)));
        const auto count = snd_pcm_readi(m_pcm.get(), sound.samples.data(), sound.samples.size());
        sound.samples.resize(std::size_t(std::max<snd_pcm_sframes_t>(count, 0)));
        code = int(std::min<snd_pcm_sframes_t>(count, 0));
    }
    if (code < 0 && code != -EAGAIN) {
        return resume(code, error);
    }
    if (!sound.samples.empty()) {
        m_lastSound = now;
    }
    return now < m_lastSound + silenceLimit || setError(QStringLiteral("it is silent"), error);
}

/// Goes on after samples were lost or the machine slept. \return false after another failure
bool AlsaMicrophone::resume(int code, QString *error)
{
    code = snd_pcm_recover(m_pcm.get(), code, 1);
    if (code >= 0) {
        code = snd_pcm_start(m_pcm.get());
    }
    return code >= 0 || setError(errorText(code), error);
}

} // namespace portable
