// SPDX-License-Identifier: MIT
#include "portable/camera/testsheet.h"

#include <QPainter>
#include <QPainterPath>
#include <QtMath>
#include <ZXing/BarcodeFormat.h>
#include <ZXing/BitMatrix.h>
#include <ZXing/MultiFormatWriter.h>

namespace portable {

namespace {

#if __has_include(<ZXing/ImageView.h>)
constexpr ZXing::BarcodeFormat qrCode = ZXing::BarcodeFormat::QRCode;
constexpr ZXing::BarcodeFormat code128 = ZXing::BarcodeFormat::Code128;
#else // 1.1
constexpr ZXing::BarcodeFormat qrCode = ZXing::BarcodeFormat::QR_CODE;
constexpr ZXing::BarcodeFormat code128 = ZXing::BarcodeFormat::CODE_128;
#endif

const QColor ink(34, 36, 42);

/// The color of a page's letterhead.
QColor accentOf(int page)
{
    const QColor colors[] = {{28, 76, 138}, {24, 108, 72}, {140, 44, 52}, {92, 52, 140}};
    return colors[(page - 1) % 4];
}

QString nameOn(int page)
{
    const QString names[] = {QStringLiteral("张三 Zhang San"), QStringLiteral("李四 Li Si"),
                             QStringLiteral("王五 Wang Wu"), QStringLiteral("赵六 Zhao Liu")};
    return names[(page - 1) % 4];
}

/// The number of a page's form.
QString numberOf(int page)
{
    return QStringLiteral("%1").arg(127 + page, 6, 10, QLatin1Char('0'));
}

/// A font with Chinese glyphs; Qt substitutes the closest one it has.
QFont textFont(int pixels, bool bold = false)
{
    QFont font(QStringLiteral("WenQuanYi Micro Hei"));
    font.setStyleHint(QFont::SansSerif);
    font.setPixelSize(pixels);
    font.setBold(bold);
    return font;
}

void paintText(QPainter &painter, const QRectF &area, const QString &text, const QFont &font,
               const QColor &color = ink, int flags = Qt::AlignLeft | Qt::AlignTop)
{
    painter.setFont(font);
    painter.setPen(color);
    painter.drawText(area, flags | Qt::TextWordWrap, text);
}

/// Letterhead: logo, bilingual title, form number.
void paintHead(QPainter &painter, int page)
{
    const QColor accent = accentOf(page);
    painter.setPen(Qt::NoPen);
    painter.setBrush(accent);
    painter.drawRoundedRect(QRectF(70, 56, 84, 84), 14, 14);
    painter.setBrush(Qt::white);
    painter.drawRect(QRectF(90, 72, 44, 52));
    painter.setBrush(accent);
    for (int line = 0; line < 4; ++line) {
        painter.drawRect(QRectF(97, 81 + 10 * line, line == 3 ? 18 : 30, 4));
    }
    paintText(painter, {176, 48, 820, 62}, QStringLiteral("业务申请表 Service Application"),
              textFont(44, true), accent);
    paintText(painter, {178, 110, 820, 34},
              QStringLiteral("Sample document for tests, without effect · 测试样张，无实际效力"),
              textFont(21), QColor(96, 100, 108));
    paintText(painter, {1030, 62, 300, 40}, QStringLiteral("No. ") + numberOf(page),
              textFont(30, true), ink, Qt::AlignRight);
    paintText(painter, {1030, 106, 300, 34}, QStringLiteral("Counter 03 · 三号柜台"), textFont(21),
              QColor(96, 100, 108), Qt::AlignRight);
    painter.fillRect(QRectF(70, 160, 1260, 4), accent);
}

/// The form: a table of labels and filled-in values.
void paintForm(QPainter &painter, int page)
{
    const struct
    {
        QString label, value;
    } rows[] = {
        {QStringLiteral("姓名 Name"), nameOn(page)},
        {QStringLiteral("出生日期 Date of birth"), QStringLiteral("1985-06-12")},
        {QStringLiteral("联系电话 Telephone"), QStringLiteral("010-5555 0128")},
        {QStringLiteral("住址 Address"), QStringLiteral("北京市样例区测试路 18 号 102 室")},
        {QStringLiteral("办理业务 Service"), QStringLiteral("开户 Open an account")},
    };
    constexpr double left = 70, middle = 330, right = 860, rowHeight = 50;
    double y = 192;
    for (const auto &row : rows) {
        painter.fillRect(QRectF(left, y, middle - left, rowHeight), QColor(232, 238, 246));
        painter.setPen(QPen(QColor(140, 152, 170), 1.6));
        painter.setBrush(Qt::NoBrush);
        painter.drawRect(QRectF(left, y, right - left, rowHeight));
        painter.drawLine(QPointF(middle, y), QPointF(middle, y + rowHeight));
        paintText(painter, {left + 14, y, middle - left - 14, rowHeight}, row.label, textFont(22),
                  ink, Qt::AlignVCenter);
        paintText(painter, {middle + 16, y, right - middle - 16, rowHeight}, row.value,
                  textFont(24), QColor(20, 40, 110), Qt::AlignVCenter);
        y += rowHeight;
    }
}

void paintParagraphs(QPainter &painter, int page)
{
    paintText(painter, {70, 478, 790, 36}, QStringLiteral("About this page · 说明"),
              textFont(27, true), accentOf(page));
    paintText(painter, {70, 522, 790, 130},
              QStringLiteral("This page was drawn, to stand in for paper under a document camera. "
                             "Preview it, turn it, crop and straighten it, save it in any format, "
                             "read its barcodes: everything works as it does with a real page on "
                             "a real desk."),
              textFont(23));
    paintText(
        painter, {70, 652, 790, 110},
        QStringLiteral("您看到的是一张绘制的样张，用来代替高拍仪下的纸张。它可以像真实桌面上的"
                       "纸张一样预览、旋转、裁剪、纠偏，保存为各种格式，并识别其中的条码。"
                       "时钟在走动，说明画面是实时的。"),
        textFont(24));
}

/// The outline of a ridge of hills across `area`, filled down to its bottom.
QPainterPath ridge(const QRectF &area, double crest, double height, double phase, double waves)
{
    QPainterPath path(area.bottomLeft());
    for (double x = 0; x <= area.width(); x += 4) {
        const double t = 2 * M_PI * waves * x / area.width() + phase;
        const double rise = 0.55 * qSin(t) + 0.28 * qSin(2.3 * t + 1) + 0.12 * qSin(6.1 * t);
        path.lineTo(area.left() + x, area.top() + crest - height * rise);
    }
    path.lineTo(area.bottomRight());
    path.closeSubpath();
    return path;
}

void paintTree(QPainter &painter, const QPointF &foot, double height)
{
    QPainterPath tree;
    for (int tier = 0; tier < 4; ++tier) {
        const double base = 0.12 + 0.2 * tier;
        const double half = height * (0.24 - 0.045 * tier);
        const QPointF bottom = foot - QPointF(0, height * base);
        tree.addPolygon(QPolygonF({bottom - QPointF(half, 0), bottom + QPointF(half, 0),
                                   bottom - QPointF(0, 0.36 * height)}));
    }
    tree.setFillRule(Qt::WindingFill);
    painter.fillRect(
        QRectF(foot.x() - 0.02 * height, foot.y() - 0.14 * height, 0.04 * height, 0.14 * height),
        QColor(52, 40, 32));
    painter.fillPath(tree, QColor(24, 62, 50));
}

/// A photo-like picture: mountains above a lake in the evening.
QImage photo(const QSize &size)
{
    QImage image(size, QImage::Format_RGB32);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF area(QRect({}, size));
    const double horizon = 0.62 * area.height();

    QLinearGradient sky(0, 0, 0, horizon);
    sky.setColorAt(0.0, QColor(70, 124, 190));
    sky.setColorAt(0.6, QColor(168, 200, 226));
    sky.setColorAt(1.0, QColor(252, 222, 178));
    painter.fillRect(area, sky);
    const QPointF sun(0.7 * area.width(), 0.33 * area.height());
    QRadialGradient glow(sun, 0.35 * area.width());
    glow.setColorAt(0.0, QColor(255, 250, 220, 255));
    glow.setColorAt(0.12, QColor(255, 244, 200, 220));
    glow.setColorAt(0.2, QColor(255, 236, 180, 90));
    glow.setColorAt(1.0, QColor(255, 230, 170, 0));
    painter.fillRect(area, glow);

    const QRectF land(0, 0, area.width(), horizon);
    const double unit = area.height();
    painter.fillPath(ridge(land, 0.42 * unit, 0.13 * unit, 0.6, 1.5), QColor(128, 152, 186));
    painter.fillPath(ridge(land, 0.51 * unit, 0.09 * unit, 2.9, 2.1), QColor(84, 116, 146));
    painter.fillPath(ridge(land, 0.58 * unit, 0.04 * unit, 5.0, 3.0), QColor(52, 92, 92));

    // The lake reflects what is above it, darker and broken up by ripples.
    const QRect above(0, int(2 * horizon - area.height()), size.width(),
                      int(area.height() - horizon));
    painter.drawImage(QPointF(0, horizon), image.copy(above).mirrored(false, true));
    QLinearGradient depth(0, horizon, 0, area.height());
    depth.setColorAt(0, QColor(28, 58, 92, 70));
    depth.setColorAt(1, QColor(14, 34, 62, 190));
    painter.fillRect(QRectF(0, horizon, area.width(), area.height() - horizon), depth);
    for (int i = 0; i < 60; ++i) {
        const double t = i / 60.0;
        const double y = horizon + t * t * (area.height() - horizon);
        const double x = area.width() * std::fmod(0.618034 * i * 7, 1.0);
        painter.setPen(QPen(QColor(255, 240, 210, 60), 1 + 2 * t));
        painter.drawLine(QPointF(x, y), QPointF(x + 20 + 70 * t, y));
    }
    for (int i = 0; i < 9; ++i) {
        const double x = area.width() * (i < 6 ? 0.015 + 0.055 * i : 0.86 + 0.055 * (i - 6));
        paintTree(painter, {x, unit * (0.98 - 0.03 * std::fmod(1.7 * i, 2.0))},
                  unit * (0.34 + 0.12 * std::fmod(0.77 * i, 1.0) - 0.025 * i * (i < 6)));
    }
    return image;
}

void paintPhoto(QPainter &painter)
{
    const QRectF frame(910, 192, 420, 290);
    painter.drawImage(frame, photo(QSize(1260, 870)));
    painter.setPen(QPen(QColor(120, 124, 130), 1.6));
    painter.setBrush(Qt::NoBrush);
    painter.drawRect(frame);
    paintText(painter, {910, 488, 420, 30}, QStringLiteral("附图 Attached photo"), textFont(20),
              QColor(96, 100, 108), Qt::AlignHCenter);
}

/**
 * Paints a barcode's dark modules as one path, which avoids seams between neighbors. The quiet zone
 * is the paper around it.
 */
void paintBarcode(QPainter &painter, const ZXing::BitMatrix &code, const QRectF &area)
{
    const double width = area.width() / code.width();
    const double height = area.height() / code.height();
    QPainterPath modules;
    modules.setFillRule(Qt::WindingFill);
    for (int y = 0; y < code.height(); ++y) {
        for (int x = 0; x < code.width(); ++x) {
            if (code.get(x, y)) {
                modules.addRect(area.left() + x * width, area.top() + y * height, width, height);
            }
        }
    }
    painter.fillPath(modules, Qt::black);
}

void paintBarcodes(QPainter &painter, int page)
{
    using ZXing::MultiFormatWriter;
    const auto qr = MultiFormatWriter(qrCode).setMargin(4).setEccLevel(4).encode(
        testSheetQrText(page).toStdWString(), 1, 1);
    paintBarcode(painter, qr, {980, 530, 280, 280});
    paintText(painter, {910, 812, 420, 30}, QStringLiteral("扫码查看 Scan me"), textFont(20),
              QColor(96, 100, 108), Qt::AlignHCenter);

    const auto linear = MultiFormatWriter(code128).setMargin(10).encode(
        testSheetCode128Text(page).toStdWString(), 1, 1);
    paintBarcode(painter, linear, {40, 790, 560, 100});
    paintText(painter, {40, 894, 560, 36}, testSheetCode128Text(page), textFont(25), ink,
              Qt::AlignHCenter);
}

/// The signature line with a round seal across it.
void paintSignature(QPainter &painter)
{
    paintText(painter, {650, 770, 240, 30}, QStringLiteral("签名 Signature"), textFont(20),
              QColor(96, 100, 108));
    painter.setPen(QPen(ink, 1.6));
    painter.drawLine(QPointF(650, 890), QPointF(890, 890));
    QPainterPath hand(QPointF(664, 866));
    hand.cubicTo(690, 790, 712, 800, 700, 866);
    hand.cubicTo(706, 836, 728, 830, 730, 858);
    hand.cubicTo(738, 884, 760, 826, 772, 846);
    hand.cubicTo(784, 872, 806, 846, 858, 838);
    painter.setPen(QPen(QColor(22, 40, 120), 3.2, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    painter.setBrush(Qt::NoBrush);
    painter.drawPath(hand);

    painter.save();
    painter.translate(826, 850);
    painter.rotate(-12);
    const QColor seal(204, 30, 36, 190);
    painter.setPen(QPen(seal, 5));
    painter.drawEllipse(QPointF(), 66, 66);
    QPolygonF star;
    for (int i = 0; i < 10; ++i) {
        const double radius = i % 2 == 0 ? 26 : 10;
        star << QPointF(radius * qSin(i * M_PI / 5), -radius * qCos(i * M_PI / 5) - 8);
    }
    painter.setPen(Qt::NoPen);
    painter.setBrush(seal);
    painter.drawPolygon(star);
    paintText(painter, {-60, 22, 120, 30}, QStringLiteral("样张专用"), textFont(22, true), seal,
              Qt::AlignHCenter);
    painter.restore();
}

} // namespace

QString testSheetQrText(int page)
{
    return QStringLiteral("https://example.com/sample?no=") + numberOf(page);
}

QString testSheetCode128Text(int page)
{
    return QStringLiteral("SAMPLE-") + numberOf(page);
}

void paintTestSheet(QPainter &painter, int page)
{
    painter.fillRect(testSheetArea, QColor(251, 251, 248));
    paintHead(painter, page);
    paintForm(painter, page);
    paintParagraphs(painter, page);
    paintPhoto(painter);
    paintBarcodes(painter, page);
    paintSignature(painter);
    paintText(painter, {70, 938, 1260, 30}, QStringLiteral("第 %1 页 · Page %1").arg(page),
              textFont(18), QColor(128, 132, 140), Qt::AlignHCenter);
}

} // namespace portable
