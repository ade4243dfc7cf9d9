// SPDX-License-Identifier: MIT
//
// The functions of the device interface as a list: the device process, the stub libraries and the
// portable library's exports are made from it. No include guard: whoever includes this file defines
// DEVICE(library, kind, seconds, result, name, parameters, names) first and gets it expanded for
// every function. devicelib/ is included before, so a signature that differs from it doesn't
// compile.
//
// library  doccamera or cardreader: which shared library has the function
// kind     Query, or Setting: its last call is repeated to a new device process, or
//          SettingOf: the same for each value of its first argument, or
//          Opening: repeated until a Closing of the same camera, when it succeeded, or
//          Raw: a query whose `const char *` are bytes of a length that nobody says, or
//          Frame: a query that is repeated once if the device process ends meanwhile, or
//          Later: a query that calls its listener once, when it is done. If the device process ends
//          before, the listener gets zeros and nulls, or
//          Score: the same, but the listener gets -1: a score of 0 is no failure
// seconds  how long it may take before the device process is taken for stuck

#ifndef DEVICE
#error "define DEVICE before including devicelib/functions.h"
#endif

// clang-format off

// Preview
DEVICE(doccamera, Opening,    30, bool, bStartPlay, (short rotation), (rotation))
DEVICE(doccamera, Opening,    30, bool, bStartPlay2, (short rotation), (rotation))
DEVICE(doccamera, Opening,    30, bool, bStartPlay3, (short rotation), (rotation))
DEVICE(doccamera, Opening,    30, bool, bStartPlay5, (short rotation), (rotation))
DEVICE(doccamera, Opening,    30, bool, bStartPlay6, (short rotation), (rotation))
DEVICE(doccamera, Opening,    30, bool, bStartPlay8, (short rotation), (rotation))
DEVICE(doccamera, Opening,    30, bool, bStartPlay9, (short rotation), (rotation))
DEVICE(doccamera, Opening,    30, bool, bStartPlayOpen, (), ())
DEVICE(doccamera, Closing,    30, bool, bStopPlay, (), ())
DEVICE(doccamera, Opening,    30, bool, bStartPlay4, (), ())
DEVICE(doccamera, Closing,    30, bool, bStopPlay4, (), ())
DEVICE(doccamera, Frame,       5, bool, getVideoFrame, (QImage &frame), (frame))
DEVICE(doccamera, Frame,       5, bool, getVideoFrameMat, (cv::Mat &frame), (frame))
DEVICE(doccamera, Frame,       5, bool, getVideoFrameMatEx, (cv::Mat &frame), (frame))
DEVICE(doccamera, Query,    3600, bool, bAVPreview, (qint64 first, qint64 second), (first, second))
DEVICE(doccamera, Setting,     5, void, vSetImageDispFlag, (bool on), (on))

// Settings
DEVICE(doccamera, Setting,     5, bool, bSetMode, (int mode), (mode))
DEVICE(doccamera, Setting,     5, void, vSetCamaraMode, (short mode), (mode))
DEVICE(doccamera, SettingOf,   5, void, vSetResolutionEx, (int camera, int index), (camera, index))
DEVICE(doccamera, SettingOf,   5, void, setResolution, (int camera, int width, int height), (camera, width, height))
DEVICE(doccamera, Query,       5, int, iGetResolutionX, (int camera), (camera))
DEVICE(doccamera, Query,       5, int, iGetResolutionY, (int camera), (camera))
DEVICE(doccamera, Query,       5, void, getResolutionIndex, (int camera, std::vector<std::pair<double, double>> &sizes), (camera, sizes))
DEVICE(doccamera, Setting,     5, void, vSetRotate, (short angle), (angle))
DEVICE(doccamera, Query,       5, short, iGetRotate, (), ())
DEVICE(doccamera, Setting,     5, void, vSetFlip, (short mode), (mode))
DEVICE(doccamera, Query,       5, short, iGetFlip, (), ())
DEVICE(doccamera, Setting,     5, bool, vSetExposure, (int value), (value))
DEVICE(doccamera, Setting,     5, bool, vSetBrightness, (int value), (value))
DEVICE(doccamera, Setting,     5, bool, vSetContrast, (int value), (value))
DEVICE(doccamera, Query,       5, bool, AutoFocus, (), ())
DEVICE(doccamera, Setting,     5, bool, vSetDPI, (qint64 x, qint64 y), (x, y))
DEVICE(doccamera, Query,       5, void, vGetDPI, (int *x, int *y), (x, y))
DEVICE(doccamera, Setting,     5, bool, bSetImageArea, (int x1, int y1, int x2, int y2), (x1, y1, x2, y2))
DEVICE(doccamera, Query,       5, long, lGetImageAreaX1, (), ())
DEVICE(doccamera, Query,       5, long, lGetImageAreaY1, (), ())
DEVICE(doccamera, Query,       5, long, lGetImageAreaX2, (), ())
DEVICE(doccamera, Query,       5, long, lGetImageAreaY2, (), ())
DEVICE(doccamera, Setting,     5, bool, vSetImageQuality, (int quality), (quality))
DEVICE(doccamera, Query,       5, short, sGetImageQuality, (), ())
DEVICE(doccamera, Setting,     5, bool, bSetBookScannerMode, (int mode), (mode))
DEVICE(doccamera, Query,       5, int, igetBookScannerMode, (), ())
DEVICE(doccamera, Setting,     5, void, vSetCapturePin, (void (*listener)(int, int, int, unsigned int, int, void *)), (listener))

// Capture
DEVICE(doccamera, Query,      30, bool, bSaveJPG, (const char *directory, const char *name), (directory, name))
DEVICE(doccamera, Query,      30, bool, bSaveTifJPG, (const char *directory, const char *name), (directory, name))
DEVICE(doccamera, Query,      30, bool, bSaveGray, (const char *directory, const char *name), (directory, name))
DEVICE(doccamera, Query,      30, bool, bSaveTIF, (const char *directory, const char *name), (directory, name))
DEVICE(doccamera, Query,      30, bool, bSaveBMP, (const char *directory, const char *name), (directory, name))
DEVICE(doccamera, Query,      30, bool, bSavePNG, (const char *directory, const char *name), (directory, name))
DEVICE(doccamera, Query,      30, bool, bSaveGrayAndTIF, (const char *p1, const char *p2, const char *p3, const char *p4), (p1, p2, p3, p4))
DEVICE(doccamera, Query,      30, bool, SplitPic, (const char *p1, const char *p2), (p1, p2))
DEVICE(doccamera, Query,      30, const char *, sGetImageBase64_Byte, (int number), (number))
DEVICE(doccamera, Query,      30, char *, Base64Encode, (const char *text), (text))
DEVICE(doccamera, Query,      30, bool, Base64Decode, (const char *first, const char *second), (first, second))

// Documents
DEVICE(doccamera, Query,     120, bool, bSavePDFStart, (const char *p1, const char *p2), (p1, p2))
DEVICE(doccamera, Query,     120, bool, bSavePDFColorPage, (), ())
DEVICE(doccamera, Query,     120, bool, bSavePDFBWPage, (), ())
DEVICE(doccamera, Query,     120, bool, bSavePDFEnd, (), ())
DEVICE(doccamera, Query,     120, bool, bAddPDFColorPage, (const char *image, float number), (image, number))
DEVICE(doccamera, Query,     120, bool, bAddPDFBWPage, (const char *image, float number), (image, number))
DEVICE(doccamera, Query,     120, bool, bAddPDFBase64ColorPage, (const char *base64), (base64))
DEVICE(doccamera, Query,     120, bool, bSaveOFDStart, (const char *p1, const char *p2), (p1, p2))
DEVICE(doccamera, Query,     120, bool, bSaveOFDColorPage, (), ())
DEVICE(doccamera, Query,     120, bool, bSaveOFDBWPage, (), ())
DEVICE(doccamera, Query,     120, bool, bSaveOFDEnd, (), ())
DEVICE(doccamera, Query,     120, bool, bAddOFDPage, (const char *image, float number), (image, number))
DEVICE(doccamera, Query,     120, bool, bAddOFDBase64ColorPage, (const char *base64), (base64))
DEVICE(doccamera, Query,     120, bool, bSaveMergeStart, (const char *p1, const char *p2, short p3, short p4, qint64 p5, qint64 p6), (p1, p2, p3, p4, p5, p6))
DEVICE(doccamera, Query,     120, bool, bSaveMergePage, (), ())
DEVICE(doccamera, Query,     120, bool, bSaveMergeEnd, (), ())

// Scanning
DEVICE(doccamera, Setting,     5, void, iAutoScan_observr, (QObject *receiver, const char *slot), (receiver, slot))
DEVICE(doccamera, Query,      30, int, iAutoScan, (int number, const char *text1, const char *text2), (number, text1, text2))
DEVICE(doccamera, Query,      30, int, iTimerScan, (int number1, const char *text1, const char *text2, int number2), (number1, text1, text2, number2))
DEVICE(doccamera, Query,      30, bool, bBookScanner, (const char *t1, const char *t2, const char *t3OrNull), (t1, t2, t3OrNull))

// Recording
DEVICE(doccamera, Query,      30, bool, bStartRec, (const char *path), (path))
DEVICE(doccamera, Query,      30, bool, bStartRecMp3, (const char *path), (path))
DEVICE(doccamera, Query,      30, bool, bStopRec, (), ())
DEVICE(doccamera, Query,       5, bool, bPauseRec, (), ())
DEVICE(doccamera, Query,       5, bool, bResumeRec, (), ())
DEVICE(doccamera, Query,       5, bool, isRecording, (), ())
DEVICE(doccamera, Setting,     5, void, vSetRecSize, (qint64 width, qint64 height), (width, height))

// Printing, watermark, barcode
DEVICE(doccamera, Query,     120, bool, bPrint, (int number), (number))
DEVICE(doccamera, Query,     120, bool, bPrintImage, (short a, const char *image, short b), (a, image, b))
DEVICE(doccamera, Query,     120, bool, bPrintImageFile, (const char *image, int number), (image, number))
DEVICE(doccamera, Setting,     5, void, vSetWaterPrint, (short a, const char *text, short b), (a, text, b))
DEVICE(doccamera, Setting,     5, void, vSetWaterPrintFont, (const char *font), (font))
DEVICE(doccamera, Setting,     5, void, vSetWaterPrintFontSize, (short size), (size))
DEVICE(doccamera, Setting,     5, void, vSetWaterPrintFontColor, (long color), (color))
DEVICE(doccamera, Setting,     5, void, vSetWaterPrintPos, (short x, short y), (x, y))
DEVICE(doccamera, Query,      30, char *, sGetBarCode, (const char *image), (image))
DEVICE(doccamera, Query,      30, char *, sGetBarCodeEx, (long kind, const char *image), (kind, image))
DEVICE(doccamera, Query,      30, char *, sGetBarCodeOnline, (), ())

// Upload (the library's own limits end it first), status, files
DEVICE(doccamera, Query,     660, char *, sUpLoadImage, (const char *p1, const char *p2, const char *p3, bool flag, const char *p4), (p1, p2, p3, flag, p4))
DEVICE(doccamera, Query,     660, char *, sUpLoadImageEx2, (const char *p1, const char *p2, long p3, const char *p4), (p1, p2, p3, p4))
DEVICE(doccamera, Query,     660, bool, bUpLoadImage, (const char *p1, const char *p2, long p3, const char *p4), (p1, p2, p3, p4))
DEVICE(doccamera, Query,     660, bool, sUpLoadImageEx5, (const char *p1, const char *p2, long p3, const char *p4, const char *p6, const char *p7, QString *answer), (p1, p2, p3, p4, p6, p7, answer))
DEVICE(doccamera, Query,       5, char *, sGetDevicesId, (), ())
DEVICE(doccamera, Query,       5, char *, sEnumUSBDevice, (), ())
DEVICE(doccamera, Query,       5, char *, sGetSerialNum, (), ())
DEVICE(doccamera, Query,       5, void, doccameraVeriosn, (char *buffer, int capacity), (buffer, capacity))
DEVICE(doccamera, Query,      30, bool, bDeleteFile, (const char *path), (path))
DEVICE(doccamera, Query,      30, bool, bDeleteFileForever, (const char *path), (path))
DEVICE(doccamera, Query,     120, bool, bCopyFile, (const char *from, const char *to), (from, to))
DEVICE(doccamera, Query,     120, bool, bMoveFile, (const char *from, const char *to), (from, to))
DEVICE(doccamera, Query,      30, bool, bReNameFile, (const char *from, const char *to), (from, to))
DEVICE(doccamera, Query,       5, bool, bFileIsExist, (const char *path), (path))
DEVICE(doccamera, Query,       5, bool, bDirIsExist, (const char *path), (path))
DEVICE(doccamera, Query,       5, bool, bCreateDir, (const char *path), (path))
DEVICE(doccamera, Query,      30, bool, OpenFile, (const char *path), (path))
DEVICE(doccamera, Query,      30, bool, bDispPath, (const char *path), (path))
DEVICE(doccamera, Query,       5, bool, IsExeExist, (), ())
DEVICE(doccamera, Query,      30, const char *, sGetAllFormatFiles, (const char *directory, const char *format), (directory, format))

// Faces, liveness, fingerprints
DEVICE(doccamera, Query,      30, int, lImageMatch, (const char *image1, const char *image2), (image1, image2))
DEVICE(doccamera, Query,      30, qint64, lFaceMatch, (const char *image), (image))
DEVICE(doccamera, Query,      30, qint64, lImageIdMatch, (const char *image1, const char *image2), (image1, image2))
DEVICE(doccamera, Query,      30, bool, bImageMatch, (const char *image1, const char *image2), (image1, image2))
DEVICE(doccamera, Raw,        30, qint64, lFaceFeatureMatch, (const char *feature1, const char *feature2), (feature1, feature2))
DEVICE(doccamera, Query,      90, bool, bFaceFeatureGet, (bool flag, const char *text1, const char *text2, void (*onFeature)(const char *feature, void *context), void *context), (flag, text1, text2, onFeature, context))
DEVICE(doccamera, Score,      30, bool, bImageMatchOnline, (const char *text, int a, int b, int c, void (*onResult)(int result, void *context)), (text, a, b, c, onResult))
DEVICE(doccamera, Later,      30, bool, bFaceFeatureGetOnline, (int a, int b, void (*onFeature)(const char *feature, void *context)), (a, b, onFeature))
DEVICE(doccamera, Query,      30, bool, bLivingBodyDetect, (), ())
DEVICE(doccamera, Later,      30, bool, bLivingBodyDetectOnline, (int a, int b, void (*onResult)(int result, void *context)), (a, b, onResult))
DEVICE(doccamera, Closing,    30, bool, AutoLivingBody, (void (*onData)(const char *data, int length, int kind)), (onData))
DEVICE(doccamera, Later,      30, void, CloseLivingBody, (void (*onDone)()), (onDone))
DEVICE(doccamera, Later,      30, void, DemoUIShow, (int number, void (*onResult)(int result)), (number, onResult))
DEVICE(doccamera, Score,      30, void, fingerCaptureRawData, (int timeoutMs, void (*onCapture)(QByteArray image, QByteArray feature, int score, const char *message, void *context), void *context), (timeoutMs, onCapture, context))
DEVICE(doccamera, Raw,        30, int, lFingerMatch, (int mode, const char *feature, int count, const char *storedFeatures), (mode, feature, count, storedFeatures))

// Cards
DEVICE(cardreader, Query,     30, char *, sIDCardReader, (), ())
DEVICE(cardreader, Query,     30, void, ReadSFZCardVX, (QString *text), (text))
DEVICE(cardreader, Query,     30, void, readIDMsg_qt, (QString *text), (text))
DEVICE(cardreader, Query,     30, void, readIDMsgVX_qt, (QString *text), (text))
DEVICE(cardreader, Query,     30, void, iReadCardBas_noPasam_qt, (int type, QString *text), (type, text))
DEVICE(cardreader, Query,     30, void, ReadCardBasExVX, (QString *text, int type), (text, type))
DEVICE(cardreader, Query,      5, bool, GetDeviceStatus_dc, (), ())
DEVICE(cardreader, Query,     30, bool, ReadSBKCardBas_DK, (int type, QString *text), (type, text))
DEVICE(cardreader, Query,     30, void, ReadSFZCardBas_VX, (QString *text), (text))
DEVICE(cardreader, Query,     30, char *, ReadCard, (void *reserved, const char *parameter), (reserved, parameter))
DEVICE(cardreader, Query,     30, void, ReadSFZCardBas_DK, (QString *text), (text))
DEVICE(cardreader, Query,     30, bool, GetBankCardInfoVX, (QString *text, int type), (text, type))
DEVICE(cardreader, Setting,   30, bool, bOpenIDCardUSBPort, (const char *port), (port))
DEVICE(cardreader, Setting,   30, bool, openIDCardSerialPort, (const char *port), (port))
DEVICE(cardreader, Setting,   30, bool, bCloseIDCardDevie, (), ())
DEVICE(cardreader, Query,      5, bool, bgetSAMStatus, (), ())
DEVICE(cardreader, Query,     30, char *, GetSAMID, (), ())
DEVICE(cardreader, Query,     30, char *, sReadIDCardSnr, (), ())
DEVICE(cardreader, Query,     30, int, iReadICCardSnr, (), ())
DEVICE(cardreader, Query,     30, bool, bPlayVoice, (int number), (number))

// clang-format on

#undef DEVICE
