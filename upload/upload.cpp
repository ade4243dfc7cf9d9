// SPDX-License-Identifier: MIT
#include "upload/upload.h"

#include "devicelib/doccamera.h"
#include "dispatch/arguments.h"
#include "dispatch/messagerun.h"

#include <QDialog>
#include <QLabel>
#include <QMessageBox>
#include <QRunnable>
#include <QThreadPool>
#include <QVBoxLayout>

#include <deque>
#include <functional>
#include <mutex>
#include <utility>

namespace {

constexpr int fieldsNeeded = 9;
constexpr int showProgressField = 7;
constexpr int showResultField = 8;

/// A switch of the command: "true" in any case and any company, or a number other than 0.
bool isOn(const QString &field)
{
    return field.contains(QLatin1String("true"), Qt::CaseInsensitive)
        || numberFrom<int>(field) != 0;
}

/// The sixth field counts only while the fifth is 0.
bool upload(const QString &args, QString *answer)
{
    const Arguments fields(args);
    if (fields.count() < fieldsNeeded) {
        *answer = MessageRun::truth(false);
        return false;
    }
    return sUpLoadImageEx5(fields.utf8(0), fields.utf8(1), fields.number<long>(2), fields.utf8(3),
                           fields.number<int>(4) == 0 ? fields.utf8(5) : "", fields.utf8(6),
                           answer);
}

/**
 * What the pool's threads do: each time the next of the works that were queued. One for all, with
 * a queue of its own, since the thread sanitizer doesn't see the lock by which Qt hands tasks
 * over.
 */
class Tasks : public QRunnable
{
public:
    Tasks() { setAutoDelete(false); }

    void start(std::function<void()> work)
    {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_works.push_back(std::move(work));
        }
        QThreadPool::globalInstance()->start(this);
    }

    void run() override
    {
        std::function<void()> work;
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            work = std::move(m_works.front());
            m_works.pop_front();
        }
        work();
    }

private:
    std::mutex m_mutex;
    std::deque<std::function<void()>> m_works; // guarded by m_mutex
};

} // namespace

struct Upload::Outcome
{
    std::mutex mutex;
    bool done = false; // and not answered yet; guarded by mutex, as all below
    bool success = false;
    QString answer;
};

void Upload::start(const QString &name, const QString &args, MessageRun *dispatcher)
{
    auto *upload = new Upload(name, args, dispatcher);
    static Tasks tasks;
    tasks.start([outcome = upload->m_outcome, args, dispatcher] {
        QString answer;
        const bool success = ::upload(args, &answer);
        {
            const std::lock_guard<std::mutex> lock(outcome->mutex);
            outcome->success = success;
            outcome->answer = answer;
            outcome->done = true;
        }
        Q_EMIT dispatcher->sig_sync_close();
    });
}

Upload::Upload(const QString &name, const QString &args, MessageRun *dispatcher)
    : QObject(dispatcher)
    , m_name(name)
    , m_outcome(std::make_shared<Outcome>())
{
    // The signal is everybody's: each upload looks whether it is meant.
    connect(dispatcher, &MessageRun::sig_sync_close, this, &Upload::finishIfDone);
    const Arguments fields(args);
    m_resultWanted = isOn(fields.text(showResultField));
    if (isOn(fields.text(showProgressField))) {
        showProgress();
    }
}

void Upload::showProgress()
{
    m_progress = new QDialog;
    m_progress->setAttribute(Qt::WA_DeleteOnClose);
    auto *layout = new QVBoxLayout(m_progress);
    layout->addWidget(new QLabel(QStringLiteral("图片上传中。。。")));
    m_progress->setWindowFlags(m_progress->windowFlags() | Qt::Tool | Qt::FramelessWindowHint
                               | Qt::WindowStaysOnTopHint);
    m_progress->adjustSize();
    m_progress->open();
}

void Upload::finishIfDone()
{
    bool success = false;
    QString answer;
    {
        const std::lock_guard<std::mutex> lock(m_outcome->mutex);
        // Once: with several uploads the signal comes again before this object is gone.
        if (!std::exchange(m_outcome->done, false)) {
            return;
        }
        success = m_outcome->success;
        answer = m_outcome->answer;
    }
    if (m_progress) {
        m_progress->close();
    }
    MessageRun::reply(m_name, answer);
    if (m_resultWanted) {
        showResult(success);
    }
    deleteLater();
}

void Upload::showResult(bool success)
{
    auto *box = new QMessageBox(QMessageBox::NoIcon, QStringLiteral("提示信息"),
                                success ? QStringLiteral("   上传成功!     ")
                                        : QStringLiteral("   上传失败!     "),
                                QMessageBox::Ok, nullptr, Qt::Dialog | Qt::WindowStaysOnTopHint);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->open();
}
