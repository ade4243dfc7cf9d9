// SPDX-License-Identifier: MIT
#include "portable/picture/uprightimage.h"

#include "portable/picture/imageconversion.h"

#include <QFileInfo>
#include <QImageReader>

namespace portable {

namespace {

constexpr qint64 maxPixels = 64'000'000; // decoded, 256 MB
constexpr int longestSide = 2048; // afterwards

} // namespace

bool readImageFile(const QString &path, cv::Mat *picture, QString *error)
{
    picture->release();
    if (!QFileInfo(path).isFile()) { // a pipe or a device might never end
        *error = QStringLiteral("there is no such file");
        return false;
    }
    QImageReader reader(path);
    reader.setAutoTransform(true);
    reader.setDecideFormatFromContent(true);
    const QSize size = reader.size();
    if (qint64(size.width()) * size.height() > maxPixels) {
        *error = QStringLiteral("it is too large, %1 x %2").arg(size.width()).arg(size.height());
        return false;
    }
    if (qMax(size.width(), size.height()) > longestSide) {
        reader.setScaledSize(
            size.scaled(longestSide, longestSide, Qt::KeepAspectRatio).expandedTo(QSize(1, 1)));
    }
    const QImage image = reader.read();
    if (image.isNull()) {
        *error = QStringLiteral("it is no image that can be read: ") + reader.errorString();
        return false;
    }
    *picture = toMat(image);
    return true;
}

} // namespace portable
