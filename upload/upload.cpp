// SPDX-License-Identifier: MIT
#include "upload/upload.h"

#include "devicelib/doccamera.h"
#include "dispatch/arguments.h"
#include "dispatch/deviceguard.h"
#include "dispatch/messagerun.h"
#include "upload/uploadpool.h"

#include <QDialog>
#include <QLabel>
#include <QMessageBox>
#include <QVBoxLayout>
#include <QWebSocket>

#include <memory>
#include <utility>

namespace {

constexpr int fieldsNeeded = 9;
constexpr int showProgressField = 7;
constexpr int showResultField = 8;

/// A switch of the command: contains "true", case-insensitively, or is a number other than 0.
bool isOn(const QString &field)
{
    return field.contains(QLatin1String("true"), Qt::CaseInsensitive)
        || numberFrom<int>(field) != 0;
}

/// The sixth field is only used if the fifth is 0.
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

} // namespace

void Upload::start(const QString &name, const QString &args, MessageRun *dispatcher)
{
    const QPointer<Upload> self = new Upload(name, args, dispatcher);
    const auto outcome = std::make_shared<Outcome>();
    const auto work = [name, args, outcome] {
        outcome->success =
            guarded(name, false, [&args, &outcome] { return upload(args, &outcome->answer); });
    };
    UploadPool::instance().start(gpWebSocket, work, [self, outcome, dispatcher](bool) {
        if (self) {
            self->m_outcome = *outcome;
            Q_EMIT dispatcher->sig_sync_close();
        }
    });
}

Upload::Upload(const QString &name, const QString &args, MessageRun *dispatcher)
    : QObject(dispatcher)
    , m_name(name)
{
    // The signal reaches every upload under way: each checks whether it is the one that is done.
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
    // Once: with several uploads the signal comes again before this object is deleted.
    const auto outcome = std::exchange(m_outcome, std::nullopt);
    if (!outcome) {
        return;
    }
    if (m_progress) {
        m_progress->close();
    }
    MessageRun::reply(m_name, outcome->answer);
    if (m_resultWanted) {
        showResult(outcome->success);
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
