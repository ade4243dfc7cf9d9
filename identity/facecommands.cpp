// SPDX-License-Identifier: MIT
//
// Faces and liveness. A reply comes at once, from a worker thread to all pages, or as an event of
// the device library, which arrives on one of its own threads.

#include "camera/captureimgthread.h"
#include "devicelib/biometrics.h"
#include "devicelib/doccamera.h"
#include "dispatch/arguments.h"
#include "dispatch/deviceguard.h"
#include "dispatch/loggedtext.h"
#include "dispatch/messagerun.h"
#include "identity/facematchthread.h"
#include "identity/livingbodydetectthread.h"
#include "log/trace.h"

namespace {

constexpr qint64 noScore = -99; // means "could not be compared" to pages

// A feature must be longer than these, in base64 characters and in decoded bytes: the device
// library does not get its length.
constexpr int featureTextAbove = 20;
constexpr int featureBytesAbove = 100;
/// Far above any feature, in base64 characters; decoding more would hold everybody up.
constexpr int longestFeatureText = 16 * 1024 * 1024;

constexpr int maxEventLogged = 100; // characters; features are longer

/// Sends an event of the library to the client that is current when the main thread gets to it.
void sendEvent(const char *name, const QString &result)
{
    traceLine("messagerun", __LINE__, "operator()") << name << withoutData(result, maxEventLogged);
    MessageRun::sendFromAnyThread(MessageRun::framed(QLatin1String(name), result));
}

/// For the log. QString::replace takes minutes for a long text of commas only.
QString withBlanks(const QString &args)
{
    QString listed;
    listed.reserve(args.size() + args.count(QLatin1Char(',')));
    for (const QChar character : args) {
        listed += character;
        if (character == QLatin1Char(',')) {
            listed += QLatin1Char(' ');
        }
    }
    return listed;
}

/// The score of two features in base64; 0 for texts that cannot be features, and on failure.
qint64 featureScore(const QString &text1, const QString &text2)
{
    if (text1.size() <= featureTextAbove || text2.size() <= featureTextAbove) {
        return 0;
    }
    if (qMax(text1.size(), text2.size()) > longestFeatureText) {
        qWarning() << "faces: a feature has more than" << longestFeatureText << "characters";
        return 0;
    }
    const QByteArray feature1 = QByteArray::fromBase64(text1.toLatin1());
    const QByteArray feature2 = QByteArray::fromBase64(text2.toLatin1());
    qDebug() << "lFaceFeatureMatch:" << feature1.size() << feature2.size();
    if (feature1.size() <= featureBytesAbove || feature2.size() <= featureBytesAbove) {
        return 0;
    }
    return qMax<qint64>(0, lFaceFeatureMatch(feature1.constData(), feature2.constData()));
}

/// Reports of AutoLivingBody while it runs, to all pages.
void onLivingBodyData(const char *data, int length, int kind)
{
    const QByteArray bytes(data, data ? qMax(0, length) : 0);
    if (kind == 0) {
        CaptureImgThread::instance()->pushFrame(bytes);
    } else if (kind == 1) {
        const QByteArray name("AfterbLivingBodyDetectEvent2");
        const QByteArray event = "Begin" + name + bytes + "End" + name;
        qDebug() << name.constData() << event.size();
        Q_EMIT CaptureImgThread::instance()->sig_msg(event);
    }
}

void onLivingBodyClosed()
{
    Q_EMIT CaptureImgThread::instance()->sig_msg("BeginCloseLivingBodytrueEndCloseLivingBody");
}

void onLivingBodyPage(int result)
{
    CaptureImgThread::instance()->setPause(false);
    MessageRun::sendFromAnyThread(
        MessageRun::framed(QStringLiteral("ShowLivingBodyPage"), MessageRun::truth(result == 1)));
}

} // namespace

QString MessageRun::lImageMatch_callback(QString name, QString args, MessageRun *)
{
    const Arguments fields(args);
    if (fields.count() < 2) {
        return reply(name, 0);
    }
    FaceMatchThread::instance()->match(fields.text(0), fields.text(1));
    return QStringLiteral(" ");
}

QString MessageRun::lFaceMatch_callback(QString name, QString args, MessageRun *)
{
    return reply(name, lFaceMatch(Arguments(args).utf8(0)));
}

QString MessageRun::lImageIdMatch_callback(QString name, QString args, MessageRun *)
{
    const Arguments fields(args);
    return reply(name,
                 fields.count() >= 2 ? lImageIdMatch(fields.utf8(0), fields.utf8(1)) : noScore);
}

QString MessageRun::bImageMatch_callback(QString name, QString args, MessageRun *)
{
    return replyTwoTexts(name, args, bImageMatch);
}

// A negative score becomes 0, unlike in the other comparisons.
QString MessageRun::lFaceFeatureMatch_callback(QString name, QString args, MessageRun *)
{
    const Arguments fields(args);
    const QString logged =
        loggedTextRules().hidesPersonal ? QString() : args.left(LongText::maxBytes + 1);
    qDebug() << "lFaceFeatureMatch" << LongText(withBlanks(logged), args.size())
             << fields.text(0).size() << fields.text(1).size();
    return reply(name, featureScore(fields.text(0), fields.text(1)));
}

QString MessageRun::bFaceFeatureGet_callback(QString name, QString args, MessageRun *)
{
    const Arguments fields(args);
    QByteArray feature;
    const auto keep = [](const char *text, void *context) {
        *static_cast<QByteArray *>(context) = text;
    };
    const bool found = fields.count() >= 3
        && bFaceFeatureGet(fields.number<int>(0) != 0, fields.utf8(1), fields.utf8(2), keep,
                           &feature);
    return reply(name, found ? QString::fromUtf8(feature) : QString());
}

// The fourth source is stopped first, since the library takes the camera; with too few fields it
// keeps running.
QString MessageRun::bImageMatchOnline_callback(QString name, QString args, MessageRun *)
{
    const Arguments fields(args);
    if (fields.count() < 4) {
        return reply(name, false);
    }
    bStopPlay4();
    return reply(name,
                 bImageMatchOnline(fields.utf8(0), fields.number<int>(1), fields.number<int>(2),
                                   fields.number<int>(3), [](int result, void *) {
                                       sendEvent("AfterbImageMatchOnline", QString::number(result));
                                   }));
}

QString MessageRun::bFaceFeatureGetOnline_callback(QString name, QString args, MessageRun *)
{
    const Arguments fields(args);
    return reply(name,
                 fields.count() >= 2
                     && bFaceFeatureGetOnline(fields.number<int>(0), fields.number<int>(1),
                                              [](const char *feature, void *) {
                                                  sendEvent("AfterbFaceFeatureGetOnline",
                                                            QString::fromUtf8(feature));
                                              }));
}

QString MessageRun::bLivingBodyDetect_callback(QString, QString, MessageRun *)
{
    LivingBodyDetectThread::instance()->Detect();
    return QStringLiteral(" ");
}

QString MessageRun::bLivingBodyDetectOnline_callback(QString name, QString args, MessageRun *)
{
    const Arguments fields(args);
    return reply(name,
                 fields.count() >= 2
                     && bLivingBodyDetectOnline(
                         fields.number<int>(0), fields.number<int>(1), [](int result, void *) {
                             sendEvent("AfterbLivingBodyDetectOnline", truth(result != 0));
                         }));
}

// The library takes the camera over: the preview ends without a reply.
QString MessageRun::AutoLivingBody_callback(QString name, QString, MessageRun *)
{
    CaptureImgThread::instance()->silenceClose();
    return reply(name, AutoLivingBody(onLivingBodyData));
}

QString MessageRun::CloseLivingBody_callback(QString, QString, MessageRun *)
{
    CloseLivingBody(onLivingBodyClosed);
    return QStringLiteral(" ");
}

QString MessageRun::ShowLivingBodyPage_callback(QString name, QString, MessageRun *)
{
    CaptureImgThread::instance()->setPause(true);
    const bool isShown = guarded(name, false, [] {
        DemoUIShow(0, onLivingBodyPage);
        return true;
    });
    if (!isShown) {
        onLivingBodyPage(0); // the preview goes on
    }
    return QStringLiteral(" ");
}
