// SPDX-License-Identifier: MIT
//
// What comes from cables: frames of a camera, in any format its driver claims, and the answers of
// an ID-card module on a serial port, in pieces.
#include "portable/camera/v4l2pixels.h"
#include "portable/card/idcardtext.h"
#include "portable/card/moduleframe.h"
#include "portable/picture/picturewriter.h"
#include "tests/fuzz/fuzztarget.h"

#include <QtEndian>

#include <vector>

using namespace portable;

namespace {

enum What { Camera, Module };

constexpr unsigned maxSide = 256; // so that an input takes milliseconds

unsigned number(fuzz::Fields &fields)
{
    const unsigned low = unsigned(fields.byte());
    return low | unsigned(fields.byte()) << 8U;
}

void decodeFrames(fuzz::Fields &fields)
{
    const auto &codes = decodableCodes();
    const unsigned code = codes[unsigned(fields.byte()) % codes.size()];
    const unsigned width = number(fields) % maxSide;
    const unsigned height = number(fields) % maxSide;
    V4l2FrameFormat format;
    if (!decodableFormat(code, width, height, number(fields), &format)) {
        return;
    }
    V4l2Pixels pixels;
    for (int i = 0; i < 3; ++i) {
        const QByteArray bytes = i < 2 ? fields.part() : fields.rest();
        cv::Mat frame(format.size, CV_8UC3);
        pixels.decode(
            format, {reinterpret_cast<const uchar *>(bytes.constData()), std::size_t(bytes.size())},
            frame);
        fuzz::require(frame.type() == CV_8UC3, "a frame is 8-bit BGR");
        pixels.tolerateDamage();
    }
}

void collectAnswers(fuzz::Fields &fields)
{
    FrameCollector collector;
    while (!fields.atEnd()) {
        if (collector.add(fields.part()) == FrameCollector::State::Complete) {
            QString error;
            const QByteArray &data = collector.answer().data;
            const QJsonObject card = decodeIdCardText(data.right(256), &error);
            fuzz::require(!card.isEmpty() || !error.isEmpty(), "a reason is given");
            return;
        }
    }
}

QByteArray cameraSeed(int format, const QByteArray &frame)
{
    return QByteArray(1, char(Camera)) + char(format) + QByteArray("\x20\0\x10\0\0\0", 6)
        + fuzz::field(frame) + fuzz::field(frame) + frame;
}

/// A module's answer with a text block of blanks, but for the number.
QByteArray moduleSeed()
{
    QByteArray text;
    const QString fields = QString(61, QLatin1Char(' ')) + QStringLiteral("11010119900307002X")
        + QString(49, QLatin1Char(' '));
    for (const QChar character : fields) {
        char bytes[2];
        qToLittleEndian(character.unicode(), bytes);
        text.append(bytes, 2);
    }
    const QByteArray content = QByteArray("\0\0\x90", 3) + text;
    QByteArray counted(2, '\0');
    qToBigEndian(quint16(content.size() + 1), counted.data());
    counted += content;
    char check = 0;
    for (const char byte : counted) {
        check = char(check ^ byte);
    }
    const QByteArray frame = QByteArray::fromHex("aaaaaa9669") + counted + check;
    return QByteArray(1, char(Module)) + fuzz::field("noise") + fuzz::field(frame.left(100))
        + fuzz::field(frame.mid(100));
}

} // namespace

void fuzz::prepare() { }

void fuzz::run(const QByteArray &input)
{
    Fields fields(input);
    if (fields.byte() % 2 == Camera) {
        decodeFrames(fields);
    } else {
        collectAnswers(fields);
    }
}

QList<QByteArray> fuzz::seeds()
{
    const cv::Mat picture(16, 32, CV_8UC3, cv::Scalar(20, 90, 200));
    QList<QByteArray> all{moduleSeed()};
    for (int i = 0; i < int(decodableCodes().size()); ++i) {
        all << cameraSeed(i, i == 0 ? jpegFile(picture, 80, Dpi()) : QByteArray(32 * 16 * 3, 'p'));
    }
    return all;
}
