// SPDX-License-Identifier: MIT
//
// Fingerprints.

#include "devicelib/biometrics.h"
#include "dispatch/arguments.h"
#include "dispatch/messagerun.h"
#include "log/trace.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <climits>

namespace {

/// Called on the library's thread; the context is the dispatcher. A failed capture has no image.
void onCapture(QByteArray image, QByteArray feature, int score, const char *message, void *context)
{
    const bool captured = score >= 0;
    const QJsonObject result{
        {QStringLiteral("image"), captured ? QString::fromUtf8(image) : QString()},
        {QStringLiteral("feature"), captured ? QString::fromUtf8(feature) : QString()},
        {QStringLiteral("score"), score},
        {QStringLiteral("msg"), QString::fromUtf8(message)},
    };
    const QByteArray json = QJsonDocument(result).toJson(QJsonDocument::Compact);
    static_cast<MessageRun *>(context)->sendmsg_thread(
        MessageRun::framed(QStringLiteral("fingerCaptureRawData"), QString::fromUtf8(json)));
}

/**
 * Decodes the hexadecimal fields from index `first` on and joins them. A single pass: a text can
 * have as many fields as characters.
 */
QByteArray bytesFrom(const QString &args, int first)
{
    QByteArray bytes;
    int begin = 0;
    for (int field = 0; begin <= args.size(); ++field) {
        const int comma = args.indexOf(QLatin1Char(','), begin);
        const int end = comma < 0 ? args.size() : comma;
        if (field >= first) {
            bytes += QByteArray::fromHex(args.midRef(begin, end - begin).toLatin1());
        }
        begin = end + 1;
    }
    return bytes;
}

} // namespace

QString MessageRun::fingerCaptureRawData_callback(QString, QString args, MessageRun *self)
{
    const qint64 timeoutMs = qint64{numberFrom<int>(args)} * 1000;
    fingerCaptureRawData(int(qBound<qint64>(INT_MIN, timeoutMs, INT_MAX)), onCapture, self);
    return QStringLiteral(" ");
}

QString MessageRun::lFingerMatch_callback(QString name, QString args, MessageRun *)
{
    const Arguments fields(args);
    if (fields.count() < 4) {
        return reply(name, 0);
    }
    const QByteArray probe = QByteArray::fromHex(fields.text(1).toLatin1());
    const int count = fields.number<int>(2);
    const QByteArray stored = bytesFrom(args, 3);
    traceLine("messagerun", __LINE__, __func__) << probe.size() << count << stored.size();
    return reply(name,
                 lFingerMatch(fields.number<int>(0), probe.constData(), count, stored.constData()));
}

// Not supported.
QString MessageRun::bSaveZAZFPBMPBase64_callback(QString name, QString, MessageRun *)
{
    return reply(name, false);
}

QString MessageRun::bSaveZAZFPBMP_callback(QString name, QString, MessageRun *)
{
    return reply(name, false);
}
