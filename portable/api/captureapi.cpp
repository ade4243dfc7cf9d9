// SPDX-License-Identifier: MIT
#include "devicelib/doccamera.h"
#include "portable/base/atomicfile.h"
#include "portable/base/base64text.h"
#include "portable/base/failure.h"
#include "portable/base/texts.h"
#include "portable/camera/shot.h"
#include "portable/picture/bookfold.h"
#include "portable/picture/picturefile.h"

#include <QFileInfo>

using namespace portable;

namespace {

// On its way to a page a text is there several times, in two bytes a character; a QString ends at
// 2^30 characters.
constexpr qint64 largestFileEncoded = 128 << 20;

using Encoder = QByteArray (*)(const cv::Mat &shot);

QByteArray colorJpeg(const cv::Mat &shot)
{
    return jpegFile(shot, shotQuality(), shotDpi());
}

QByteArray greyJpeg(const cv::Mat &shot)
{
    return jpegFile(greyOf(shot), shotQuality(), shotDpi());
}

QByteArray jpegTiff(const cv::Mat &shot)
{
    return jpegTiffFile(shot, shotQuality(), shotDpi());
}

QByteArray bilevelTiff(const cv::Mat &shot)
{
    return bilevelTiffFile(bilevel(shot), shotDpi());
}

QByteArray bitmap(const cv::Mat &shot)
{
    return bmpFile(shot, shotDpi());
}

QByteArray png(const cv::Mat &shot)
{
    return pngFile(shot, shotDpi());
}

/// The path of a capture; empty, with a line in the log, when the arguments give none.
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
    return guarded(function, [&] {
        std::vector<QString> paths;
        for (const Target &target : targets) {
            paths.push_back(targetPath(function, target.directory, target.name, target.extension));
            if (paths.back().isEmpty()) {
                return false;
            }
        }
        const cv::Mat shot = takeShot();
        if (shot.empty()) {
            return false; // it said why
        }
        std::vector<FileContent> files;
        auto path = paths.begin();
        for (const Target &target : targets) {
            files.emplace_back(*path++, target.encode(shot));
        }
        return writeAll(function, files);
    });
}

} // namespace

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

bool bSaveGrayAndTIF(const char *p1, const char *p2, const char *p3, const char *p4)
{
    return capture(__func__, {{p1, p2, ".jpg", greyJpeg}, {p3, p4, ".tif", bilevelTiff}});
}

bool SplitPic(const char *p1, const char *p2)
{
    const char *const function = __func__;
    return guarded(function, [&] {
        const QString folder = pathOf(p2);
        if (folder.isEmpty()) {
            return logFailure(function, QStringLiteral("it needs a directory for the halves"));
        }
        QString error;
        const cv::Mat picture = readPicture(pathOf(p1), &error);
        if (picture.empty()) {
            return logFailure(function, error);
        }
        if (picture.cols < 2) {
            return logFailure(function, pathOf(p1) + QStringLiteral(": too narrow to be split"));
        }
        const int fold = foldColumn(picture);
        const QString base = folder + QLatin1Char('/') + QFileInfo(pathOf(p1)).completeBaseName();
        return writeAll(function,
                        {{base + QStringLiteral("_left.jpg"), colorJpeg(picture.colRange(0, fold))},
                         {base + QStringLiteral("_right.jpg"),
                          colorJpeg(picture.colRange(fold, picture.cols))}});
    });
}

const char *sGetImageBase64_Byte(int number)
{
    constexpr Encoder encoders[] = {
        colorJpeg, greyJpeg, [](const cv::Mat &shot) { return pngFile(bilevel(shot), shotDpi()); }};
    if (number < 0 || size_t(number) >= std::size(encoders)) {
        logFailure(__func__, QStringLiteral("%1 is not a number from 0 to 2").arg(number));
        return nullptr;
    }
    return guarded(__func__, [&]() -> const char * {
        const cv::Mat shot = takeShot();
        if (shot.empty()) {
            return nullptr; // it said why
        }
        // Of the calling thread: the text of another one's call is still being read.
        thread_local QByteArray text;
        text = encoders[number](shot).toBase64();
        return text.constData();
    });
}

char *Base64Encode(const char *text)
{
    const char *const function = __func__;
    return guarded(function, [&]() -> char * {
        const QString path = pathOf(text);
        if (QFileInfo(path).size() > largestFileEncoded) {
            logFailure(function, path + QStringLiteral(": too large to be told as a text"));
            return nullptr;
        }
        QString error;
        const QByteArray bytes = readWholeFile(path, &error);
        if (bytes.isNull()) {
            logFailure(function, error);
            return nullptr;
        }
        return heapText(bytes.toBase64());
    });
}

bool Base64Decode(const char *first, const char *second)
{
    const char *const function = __func__;
    return guarded(function, [&] {
        QString error;
        const QByteArray bytes = bytesOfBase64(first, &error);
        if (bytes.isEmpty()) {
            return logFailure(function, error);
        }
        return writeWholeFile(QString::fromLocal8Bit(second), bytes, &error)
            || logFailure(function, error);
    });
}
