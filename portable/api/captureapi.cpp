// SPDX-License-Identifier: MIT
#include "devicelib/doccamera.h"
#include "portable/base/atomicfile.h"
#include "portable/base/base64text.h"
#include "portable/base/failure.h"
#include "portable/base/filereader.h"
#include "portable/base/inputlimits.h"
#include "portable/base/texts.h"
#include "portable/camera/shot.h"
#include "portable/picture/bilevel.h"
#include "portable/picture/bookfold.h"
#include "portable/picture/picturereader.h"
#include "portable/picture/picturewriter.h"

#include <QFileInfo>

using namespace portable;

namespace {

using Encoder = QByteArray (*)(const Shot &shot);

QByteArray colorJpeg(const Shot &shot)
{
    return jpegFile(shot.picture, shot.quality, shot.dpi);
}

QByteArray greyJpeg(const Shot &shot)
{
    return jpegFile(greyOf(shot.picture), shot.quality, shot.dpi);
}

QByteArray jpegTiff(const Shot &shot)
{
    return jpegTiffFile(shot.picture, shot.quality, shot.dpi);
}

QByteArray bilevelTiff(const Shot &shot)
{
    return bilevelTiffFile(bilevel(shot.picture), shot.dpi);
}

QByteArray bilevelPng(const Shot &shot)
{
    return pngFile(bilevel(shot.picture), shot.dpi);
}

QByteArray bitmap(const Shot &shot)
{
    return bmpFile(shot.picture, shot.dpi);
}

QByteArray png(const Shot &shot)
{
    return pngFile(shot.picture, shot.dpi);
}

/// The path of a capture; empty, with a line in the log, when an argument is missing.
QString targetPath(const char *function, const char *directory, const char *name,
                   const char *extension)
{
    const QString folder = pathOf(directory);
    QString file = pathOf(name);
    if (folder.isEmpty() || file.isEmpty() || file.endsWith(QLatin1Char('/'))) {
        logFailure(function, QStringLiteral("it needs a directory and the name of a file"));
        return {};
    }
    if (!file.endsWith(QLatin1String(extension), Qt::CaseInsensitive)) {
        file += QLatin1String(extension);
    }
    return folder + QLatin1Char('/') + file;
}

/// Writes all of the files or none.
bool writeAll(const char *function, const std::vector<FileContent> &files)
{
    for (const FileContent &file : files) {
        if (file.second.isEmpty()) {
            return logFailure(function, file.first + QStringLiteral(": can't be encoded"));
        }
    }
    QString error;
    return writeWholeFiles(files, &error) || logFailure(function, error);
}

/// One file of a capture.
struct Target
{
    const char *directory;
    const char *name;
    const char *extension;
    Encoder encode;
};

/// Takes a picture and writes all of the files or none.
bool capture(const char *function, std::initializer_list<Target> targets)
{
    std::vector<QString> paths;
    for (const Target &target : targets) {
        paths.push_back(targetPath(function, target.directory, target.name, target.extension));
        if (paths.back().isEmpty()) {
            return false;
        }
    }
    const Shot shot = takeShot();
    if (shot.picture.empty()) {
        return false; // the reason is in the log
    }
    std::vector<FileContent> files;
    auto path = paths.begin();
    for (const Target &target : targets) {
        files.emplace_back(*path++, target.encode(shot));
    }
    return writeAll(function, files);
}

} // namespace

namespace portable::api {

bool bSaveJPG(const char *directory, const char *name)
{
    return capture(__func__, {{directory, name, ".jpg", colorJpeg}});
}

bool bSaveTifJPG(const char *directory, const char *name)
{
    return capture(__func__, {{directory, name, ".tif", jpegTiff}});
}

bool bSaveGray(const char *directory, const char *name)
{
    return capture(__func__, {{directory, name, ".jpg", greyJpeg}});
}

bool bSaveTIF(const char *directory, const char *name)
{
    return capture(__func__, {{directory, name, ".tif", bilevelTiff}});
}

bool bSaveBMP(const char *directory, const char *name)
{
    return capture(__func__, {{directory, name, ".bmp", bitmap}});
}

bool bSavePNG(const char *directory, const char *name)
{
    return capture(__func__, {{directory, name, ".png", png}});
}

bool bSaveGrayAndTIF(const char *greyDirectory, const char *greyName, const char *tiffDirectory,
                     const char *tiffName)
{
    return capture(__func__,
                   {{greyDirectory, greyName, ".jpg", greyJpeg},
                    {tiffDirectory, tiffName, ".tif", bilevelTiff}});
}

bool SplitPic(const char *image, const char *directory)
{
    const char *const function = __func__;
    const QString folder = pathOf(directory);
    if (folder.isEmpty()) {
        return logFailure(function, QStringLiteral("it needs a directory for the halves"));
    }
    const QString path = pathOf(image);
    QString error;
    const cv::Mat picture = readPicture(path, &error);
    if (!picture.empty() && picture.cols < 2) {
        setError(QStringLiteral("it is too narrow to be split"), &error);
    }
    if (picture.cols < 2) {
        prefixError(path, &error);
        return logFailure(function, error);
    }
    const int fold = foldColumn(picture);
    const CaptureSettings settings = captureSettings();
    const auto half = [&](int begin, int end) {
        return colorJpeg({picture.colRange(begin, end), settings.quality, settings.dpi});
    };
    const QString base = folder + QLatin1Char('/') + QFileInfo(path).completeBaseName();
    return writeAll(function,
                    {{base + QStringLiteral("_left.jpg"), half(0, fold)},
                     {base + QStringLiteral("_right.jpg"), half(fold, picture.cols)}});
}

const char *sGetImageBase64_Byte(int number)
{
    constexpr Encoder encoders[] = {colorJpeg, greyJpeg, bilevelPng};
    if (number < 0 || size_t(number) >= std::size(encoders)) {
        logFailure(__func__, QStringLiteral("%1 is not a number from 0 to 2").arg(number));
        return nullptr;
    }
    const Shot shot = takeShot();
    if (shot.picture.empty()) {
        return nullptr; // the reason is in the log
    }
    // One per thread: another thread may still be reading the text of its call.
    thread_local QByteArray text;
    text = encoders[number](shot).toBase64();
    return text.constData();
}

char *Base64Encode(const char *file)
{
    const char *const function = __func__;
    const QString path = pathOf(file);
    QString error;
    const QByteArray bytes = readWholeFile(path, limits::encodedFile, &error);
    if (bytes.isNull()) {
        prefixError(path, &error);
        logFailure(function, error);
        return nullptr;
    }
    return heapText(bytes.toBase64());
}

bool Base64Decode(const char *base64, const char *path)
{
    const char *const function = __func__;
    QString error;
    const QByteArray bytes = bytesOfBase64(base64, &error);
    if (bytes.isEmpty()) {
        return logFailure(function, error);
    }
    return writeWholeFile(QString::fromLocal8Bit(path), bytes, &error)
        || logFailure(function, error);
}

} // namespace portable::api
