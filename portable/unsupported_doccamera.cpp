// SPDX-License-Identifier: MIT
#include "devicelib/doccamera.h"
#include "portable/unsupported.h"

#include <QString>

using portable::unsupported;

// clang-format off

// Printing, watermark, barcode

// Upload, status, files
char *sUpLoadImage(const char *, const char *, const char *, bool, const char *)
    { return unsupported<char *>(__func__); }
char *sUpLoadImageEx2(const char *, const char *, long, const char *)
    { return unsupported<char *>(__func__); }
bool bUpLoadImage(const char *, const char *, long, const char *)
    { return unsupported<bool>(__func__); }
bool sUpLoadImageEx5(const char *, const char *, long, const char *, const char *, const char *,
                     QString *answer)
    { answer->clear(); return unsupported<bool>(__func__); }
char *sGetDevicesId()                             { return unsupported<char *>(__func__); }
char *sEnumUSBDevice()                            { return unsupported<char *>(__func__); }
char *sGetSerialNum()                             { return unsupported<char *>(__func__); }
bool bDeleteFile(const char *)                    { return unsupported<bool>(__func__); }
bool bDeleteFileForever(const char *)             { return unsupported<bool>(__func__); }
bool bCopyFile(const char *, const char *)        { return unsupported<bool>(__func__); }
bool bMoveFile(const char *, const char *)        { return unsupported<bool>(__func__); }
bool bReNameFile(const char *, const char *)      { return unsupported<bool>(__func__); }
bool bFileIsExist(const char *)                   { return unsupported<bool>(__func__); }
bool bDirIsExist(const char *)                    { return unsupported<bool>(__func__); }
bool bCreateDir(const char *)                     { return unsupported<bool>(__func__); }
bool OpenFile(const char *)                       { return unsupported<bool>(__func__); }
bool bDispPath(const char *)                      { return unsupported<bool>(__func__); }
bool IsExeExist()                                 { return unsupported<bool>(__func__); }
const char *sGetAllFormatFiles(const char *, const char *)
    { return unsupported<const char *>(__func__); }
// clang-format on
