// SPDX-License-Identifier: MIT
#include "companions/signature/pagerenderer.h"

#include "base/memorylimit.h"

namespace {

constexpr int longSide = 2200; // pixels: enough to zoom in on a customer's screen
constexpr int timeLimitMs = 20000;
constexpr rlim_t memoryLimit = 1024L * 1024 * 1024;
constexpr int maxImages = 4;

class LimitedProcess : public QProcess
{
protected:
    void setupChildProcess() override // between fork and exec
    {
        limitMemory(memoryLimit);
        const rlimit seconds{timeLimitMs / 1000, timeLimitMs / 1000};
        setrlimit(RLIMIT_CPU, &seconds);
    }
};

} // namespace

PageRenderer::PageRenderer(const QByteArray &document, QObject *parent)
    : QObject(parent)
    , m_document(document)
{
    m_timeLimit.setSingleShot(true);
    m_timeLimit.setInterval(timeLimitMs);
    connect(&m_timeLimit, &QTimer::timeout, this, [this] {
        if (m_process) {
            m_process->kill();
        }
    });
}

PageRenderer::~PageRenderer()
{
    cancel();
}

void PageRenderer::cancel()
{
    m_timeLimit.stop();
    if (!m_process) {
        return;
    }
    m_process->disconnect(this);
    m_process->kill();
    m_process->waitForFinished(1000);
    m_process.reset();
}

void PageRenderer::render(int page)
{
    cancel();
    if (m_images.contains(page)) {
        Q_EMIT rendered(page, m_images.value(page));
        return;
    }
    m_process = std::make_unique<LimitedProcess>();
    const QString number = QString::number(page);
    connect(m_process.get(), &QProcess::errorOccurred, this, [this, page](auto error) {
        if (error == QProcess::FailedToStart) {
            finish(page, false);
        }
    });
    connect(m_process.get(), QOverload<int, QProcess::ExitStatus>::of(&QProcess::finished), this,
            [this, page] { finish(page, true); });
    // The document goes to standard input, which keeps its path out of the process list, where the
    // server looks for its own name.
    m_timeLimit.start();
    m_process->start(QStringLiteral("pdftoppm"),
                     {QStringLiteral("-f"), number, QStringLiteral("-l"), number,
                      QStringLiteral("-cropbox"), QStringLiteral("-scale-to"),
                      QString::number(longSide), QStringLiteral("-")});
    if (!m_process) { // finish() has already reported that it did not start
        return;
    }
    m_process->write(m_document);
    m_process->closeWriteChannel();
}

void PageRenderer::finish(int page, bool ended)
{
    m_timeLimit.stop();
    const QByteArray output = ended ? m_process->readAllStandardOutput() : QByteArray();
    QString said = m_process->errorString(); // if it did not start
    if (ended && m_process->exitStatus() == QProcess::CrashExit) {
        said = QStringLiteral("it was ended, after 20 s or by itself");
    } else if (ended) {
        said = QString::fromLocal8Bit(m_process->readAllStandardError().left(300));
    }
    m_process.release()->deleteLater(); // its signal is being handled
    const QImage image = QImage::fromData(output, "PPM");
    if (image.isNull()) {
        Q_EMIT failed(page, QStringLiteral("pdftoppm drew nothing: ") + said);
        return;
    }
    if (m_images.size() >= maxImages) {
        m_images.erase(m_images.begin());
    }
    m_images.insert(page, image);
    Q_EMIT rendered(page, image);
}
