// SPDX-License-Identifier: MIT
//
// Multi-page documents. The device library keeps the document open between the commands.

#include "devicelib/doccamera.h"
#include "dispatch/arguments.h"
#include "dispatch/messagerun.h"

namespace {

/// Adds an image file to the PDF; its path is in the local 8-bit encoding, the default position -1.
QString addPdfPage(const QString &name, const QString &args, bool (*add)(const char *, float))
{
    const Arguments fields(args);
    const float position = fields.count() >= 2 ? fields.number<float>(1) : -1.0F;
    return MessageRun::reply(name, add(fields.local8Bit(0), position));
}

} // namespace

QString MessageRun::bSavePDFStart_callback(QString name, QString args, MessageRun *)
{
    return replyTwoTexts(name, args, bSavePDFStart);
}

QString MessageRun::bSavePDFColorPage_callback(QString name, QString, MessageRun *)
{
    return reply(name, bSavePDFColorPage());
}

QString MessageRun::bSavePDFBWPage_callback(QString name, QString, MessageRun *)
{
    return reply(name, bSavePDFBWPage());
}

QString MessageRun::bSavePDFEnd_callback(QString name, QString, MessageRun *)
{
    return reply(name, bSavePDFEnd());
}

QString MessageRun::bAddPDFColorPage_callback(QString name, QString args, MessageRun *)
{
    return addPdfPage(name, args, bAddPDFColorPage);
}

QString MessageRun::bAddPDFBWPage_callback(QString name, QString args, MessageRun *)
{
    return addPdfPage(name, args, bAddPDFBWPage);
}

QString MessageRun::bAddPDFBase64ColorPage_callback(QString name, QString args, MessageRun *)
{
    return reply(name, bAddPDFBase64ColorPage(args.toUtf8().constData()));
}

QString MessageRun::bSaveOFDStart_callback(QString name, QString args, MessageRun *)
{
    const Arguments fields(args);
    if (fields.text(0).isEmpty() || fields.text(1).isEmpty()) {
        return reply(name, false);
    }
    return replyTwoTexts(name, args, bSaveOFDStart);
}

QString MessageRun::bSaveOFDColorPage_callback(QString name, QString, MessageRun *)
{
    return reply(name, bSaveOFDColorPage());
}

QString MessageRun::bSaveOFDBWPage_callback(QString name, QString, MessageRun *)
{
    return reply(name, bSaveOFDBWPage());
}

QString MessageRun::bSaveOFDEnd_callback(QString name, QString, MessageRun *)
{
    return reply(name, bSaveOFDEnd());
}

// The default position is 1 here, and an empty one is refused.
QString MessageRun::bAddOFDPage_callback(QString name, QString args, MessageRun *)
{
    const Arguments fields(args);
    const bool hasPosition = fields.count() >= 2;
    if (fields.text(0).isEmpty() || (hasPosition && fields.text(1).isEmpty())) {
        return reply(name, false);
    }
    return reply(name, bAddOFDPage(fields.utf8(0), hasPosition ? fields.number<float>(1) : 1.0F));
}

QString MessageRun::bAddOFDBase64ColorPage_callback(QString name, QString args, MessageRun *)
{
    return reply(name, bAddOFDBase64ColorPage(args.toUtf8().constData()));
}

QString MessageRun::bSaveMergeStart_callback(QString name, QString args, MessageRun *)
{
    const Arguments fields(args);
    return reply(name,
                 fields.count() >= 6
                     && bSaveMergeStart(fields.utf8(0), fields.utf8(1), fields.number<short>(2),
                                        fields.number<short>(3), fields.number<qint64>(4),
                                        fields.number<qint64>(5)));
}

QString MessageRun::bSaveMergePage_callback(QString name, QString, MessageRun *)
{
    return reply(name, bSaveMergePage());
}

QString MessageRun::bSaveMergeEnd_callback(QString name, QString, MessageRun *)
{
    return reply(name, bSaveMergeEnd());
}
