// SPDX-License-Identifier: MIT
//
// Files and folders, on behalf of pages, which have no access to them. Commands with one path take
// the whole argument text, including any ","; except bDeleteFileForever, which takes the first
// field.

#include "devicelib/doccamera.h"
#include "dispatch/arguments.h"
#include "dispatch/messagerun.h"

namespace {

QString replyWholePath(const QString &name, const QString &args, bool (*call)(const char *path))
{
    return MessageRun::reply(name, call(args.toUtf8().constData()));
}

} // namespace

QString MessageRun::bDeleteFile_callback(QString name, QString args, MessageRun *)
{
    return replyWholePath(name, args, bDeleteFile);
}

QString MessageRun::bDeleteFileForever_callback(QString name, QString args, MessageRun *)
{
    return reply(name, bDeleteFileForever(Arguments(args).utf8(0)));
}

QString MessageRun::bCopyFile_callback(QString name, QString args, MessageRun *)
{
    return replyTwoTexts(name, args, bCopyFile);
}

QString MessageRun::bMoveFile_callback(QString name, QString args, MessageRun *)
{
    return replyTwoTexts(name, args, bMoveFile);
}

QString MessageRun::bReNameFile_callback(QString name, QString args, MessageRun *)
{
    return replyTwoTexts(name, args, bReNameFile);
}

QString MessageRun::bFileIsExist_callback(QString name, QString args, MessageRun *)
{
    return replyWholePath(name, args, bFileIsExist);
}

QString MessageRun::bDirIsExist_callback(QString name, QString args, MessageRun *)
{
    return replyWholePath(name, args, bDirIsExist);
}

QString MessageRun::bCreateDir_callback(QString name, QString args, MessageRun *)
{
    return replyWholePath(name, args, bCreateDir);
}

QString MessageRun::OpenFile_callback(QString name, QString args, MessageRun *)
{
    return replyWholePath(name, args, OpenFile);
}

QString MessageRun::bDispPath_callback(QString name, QString args, MessageRun *)
{
    return replyWholePath(name, args, bDispPath);
}

QString MessageRun::IsExeExist_callback(QString name, QString, MessageRun *)
{
    return reply(name, IsExeExist());
}

// Does not ask the device library.
QString MessageRun::sGetTempPath_callback(QString name, QString, MessageRun *)
{
    return reply(name, QStringLiteral("/tmp"));
}

QString MessageRun::sGetAllFormatFiles_callback(QString name, QString args, MessageRun *)
{
    const Arguments fields(args);
    if (fields.count() < 2) {
        return reply(name);
    }
    return reply(name, QString::fromUtf8(sGetAllFormatFiles(fields.utf8(0), fields.utf8(1))));
}
