// SPDX-License-Identifier: MIT
#include "portable/barcodeworker/zxing.h"

#if __has_include(<ZXing/ReaderOptions.h>)
#define ZXING_API 2 // 2.2 and later
#elif __has_include(<ZXing/ImageView.h>)
#define ZXING_API 1 // 1.4
#else
#define ZXING_API 0 // 1.1
#endif
#define ZX_USE_UTF8 1
#include <ZXing/ReadBarcode.h>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <regex>

namespace portable {

namespace {

struct Format
{
    BarcodeFormats ours;
    ZXing::BarcodeFormat theirs;
};

using Theirs = ZXing::BarcodeFormat;
#if ZXING_API > 0
constexpr Format formatTable[] = {
    {barcode::aztec, Theirs::Aztec},
    {barcode::codabar, Theirs::Codabar},
    {barcode::code39, Theirs::Code39},
    {barcode::code93, Theirs::Code93},
    {barcode::code128, Theirs::Code128},
    {barcode::dataBar, Theirs::DataBar},
    {barcode::dataBarExpanded, Theirs::DataBarExpanded},
    {barcode::dataMatrix, Theirs::DataMatrix},
    {barcode::ean8, Theirs::EAN8},
    {barcode::ean13, Theirs::EAN13},
    {barcode::itf, Theirs::ITF},
    {barcode::maxiCode, Theirs::MaxiCode},
    {barcode::microQr, Theirs::MicroQRCode},
    {barcode::pdf417, Theirs::PDF417},
    {barcode::qr, Theirs::QRCode},
    {barcode::upcA, Theirs::UPCA},
    {barcode::upcE, Theirs::UPCE},
};
#else
constexpr Format formatTable[] = {
    // No MaxiCode: this version gets its letters wrong.
    {barcode::aztec, Theirs::AZTEC},
    {barcode::codabar, Theirs::CODABAR},
    {barcode::code39, Theirs::CODE_39},
    {barcode::code93, Theirs::CODE_93},
    {barcode::code128, Theirs::CODE_128},
    {barcode::dataBar, Theirs::RSS_14},
    {barcode::dataBarExpanded, Theirs::RSS_EXPANDED},
    {barcode::dataMatrix, Theirs::DATA_MATRIX},
    {barcode::ean8, Theirs::EAN_8},
    {barcode::ean13, Theirs::EAN_13},
    {barcode::itf, Theirs::ITF},
    {barcode::pdf417, Theirs::PDF_417},
    {barcode::qr, Theirs::QR_CODE},
    {barcode::upcA, Theirs::UPC_A},
    {barcode::upcE, Theirs::UPC_E},
};
#endif

ZXing::BarcodeFormats theirFormats(BarcodeFormats formats)
{
    ZXing::BarcodeFormats theirs;
    for (const Format &format : formatTable) {
        if ((formats & format.ours) != 0) {
            theirs |= format.theirs;
        }
    }
    return theirs;
}

BarcodeFormats ourFormat(ZXing::BarcodeFormat theirs)
{
    const auto *const found =
        std::find_if(std::begin(formatTable), std::end(formatTable),
                     [theirs](const Format &format) { return format.theirs == theirs; });
    return found == std::end(formatTable) ? 0 : found->ours;
}

ZXing::Result decodeOnce(const cv::Mat &grey, BarcodeFormats formats)
{
#if ZXING_API == 2
    ZXing::ReaderOptions options;
    options.setTextMode(
        ZXing::TextMode::Plain); // HRI puts brackets and names of control characters
    options.setTryCode39ExtendedMode(false);
    options.setTryInvert(false);
#else
    ZXing::DecodeHints options;
#endif
#if ZXING_API > 0
    // With fewer agreeing lines, parts of linear codes are taken for codes.
    const bool isDataBar = (formats & ~barcode::allDataBar) == 0; // which has a checksum
    options.setMinLineCount(isDataBar ? 1 : 4);
#else
    // As bytes. A code that says its encoding comes decoded all the same.
    options.setCharacterSet("ISO8859_1");
#endif
    options.setFormats(theirFormats(formats));
    const ZXing::ImageView view(grey.data, grey.cols, grey.rows, ZXing::ImageFormat::Lum,
                                int(grey.step));
    return ZXing::ReadBarcode(view, options);
}

ZXing::Result decode(const cv::Mat &grey, BarcodeFormats formats)
{
#if ZXING_API == 1
    // This version aborts when it compares lines of a DataBar, each of which is put together from
    // several. So that has a pass of its own, in which one line is enough.
    const BarcodeFormats dataBar = formats & barcode::allDataBar;
    if (dataBar != 0 && dataBar != formats) {
        ZXing::Result code = decodeOnce(grey, formats & ~dataBar);
        return code.isValid() ? code : decodeOnce(grey, dataBar);
    }
#endif
    return decodeOnce(grey, formats);
}

#if ZXING_API > 0

FoundBarcode found(const ZXing::Result &code)
{
    std::string text = code.text();
    const auto &raw = code.bytes();
    std::string bytes(reinterpret_cast<const char *>(raw.data()), raw.size());
#if ZXING_API == 2
    if (code.format() == Theirs::Codabar && text.size() >= 2) { // its start and stop letters
        text = text.substr(1, text.size() - 2);
        bytes = text;
    }
    if (code.format() == Theirs::DataBar && text.size() == 16) { // "01", and a number of 14 digits
        text = text.substr(2);
        bytes = text;
    }
#endif
    return {ourFormat(code.format()), code.hasECI(), std::move(text), std::move(bytes)};
}

#else

bool isUtf8(const std::string &bytes)
{
    for (std::size_t i = 0; i < bytes.size();) {
        const auto first = std::uint8_t(bytes[i]);
        const std::size_t more = first < 0x80 ? 0
            : first >= 0xc2 && first < 0xe0   ? 1
            : first >= 0xe0 && first < 0xf0   ? 2
            : first >= 0xf0 && first < 0xf5   ? 3
                                              : bytes.size();
        for (std::size_t k = 1; k <= more; ++k) {
            if (i + k >= bytes.size() || (std::uint8_t(bytes[i + k]) & 0xc0) != 0x80) {
                return false;
            }
        }
        i += more + 1;
    }
    return true;
}

void appendUtf8(std::uint32_t character, std::string *text)
{
    if (character < 0x80) {
        text->push_back(char(character));
    } else if (character < 0x800) {
        text->push_back(char(0xc0 | (character >> 6)));
        text->push_back(char(0x80 | (character & 0x3f)));
    } else if (character < 0x10000) {
        text->push_back(char(0xe0 | (character >> 12)));
        text->push_back(char(0x80 | ((character >> 6) & 0x3f)));
        text->push_back(char(0x80 | (character & 0x3f)));
    } else {
        text->push_back(char(0xf0 | (character >> 18)));
        text->push_back(char(0x80 | ((character >> 12) & 0x3f)));
        text->push_back(char(0x80 | ((character >> 6) & 0x3f)));
        text->push_back(char(0x80 | (character & 0x3f)));
    }
}

/**
 * The fields of a DataBar Expanded as later versions give them: "(10)AB(21)7" becomes 10AB, the
 * separator GS, 217. No separator follows identifiers whose fields have a fixed length (GS1 General
 * Specifications, 7.8.5).
 */
std::string withoutBrackets(const std::string &text)
{
    static const std::regex identifier("\\(([0-9]{2,4})\\)");
    static const std::regex fixedLength("(0[0-4]|1[1-9]|20|3[1-6]|41)[0-9]*");
    std::string plain;
    std::string rest = text;
    bool isOpen = false;
    for (std::sregex_iterator each(text.begin(), text.end(), identifier), end; each != end;
         ++each) {
        plain += each->prefix().str() + (isOpen ? "\x1d" : "") + each->str(1);
        isOpen = !std::regex_match(each->str(1), fixedLength);
        rest = each->suffix();
    }
    return plain + rest;
}

FoundBarcode found(const ZXing::Result &code)
{
    std::string bytes;
    std::string text;
    bool isDecoded = false;
    for (const wchar_t character : code.text()) {
        isDecoded = isDecoded || character > 0xff;
        bytes.push_back(char(character));
        appendUtf8(std::uint32_t(character), &text);
    }
    if (code.format() == Theirs::RSS_EXPANDED) {
        bytes = withoutBrackets(bytes);
    }
    if (!isDecoded && isUtf8(bytes)) {
        text = bytes;
    }
    return {ourFormat(code.format()), isDecoded, std::move(text), std::move(bytes)};
}

#endif

std::optional<ReadCode> read(const cv::Mat &grey, BarcodeFormats formats)
{
    const ZXing::Result code = decode(grey, formats);
    if (!code.isValid()) {
        return {};
    }
    ReadCode result;
    result.found = found(code);
    std::transform(code.position().begin(), code.position().end(), result.corners.begin(),
                   [](const ZXing::PointI &corner) { return cv::Point(corner.x, corner.y); });
#if ZXING_API == 0
    if (result.found.format == barcode::dataBar) { // from its first finder to its last
        result.corners = {result.corners[0], result.corners[2], result.corners[2],
                          result.corners[0]};
    }
#endif
    return result;
}

#if ZXING_API == 0

constexpr int reach = 8; ///< Of the lines beside that of a linear code, in pixels.

/// Whether lines beside the one that a linear code was read on say the same.
bool isConfirmed(const cv::Mat &grey, const ReadCode &code)
{
    constexpr int needed = 3; // four in all, as for the later versions
    const cv::Point along = code.corners[1] - code.corners[0];
    const bool isLevel = std::abs(along.x) >= std::abs(along.y);
    const cv::Mat lines = isLevel ? grey : cv::Mat(grey.t());
    const int at = isLevel ? code.corners[0].y : code.corners[0].x;
    int agreeing = 0;
    for (int line = std::max(0, at - reach); line < std::min(lines.rows, at + reach + 1);
         line += 2) {
        const std::optional<ReadCode> other =
            line == at ? std::nullopt : read(lines.row(line), code.found.format);
        agreeing += other && other->found.text == code.found.text ? 1 : 0;
    }
    return agreeing >= needed;
}

#endif

} // namespace

std::optional<ReadCode> readWithZxing(const cv::Mat &grey, BarcodeFormats formats)
{
    std::optional<ReadCode> code = read(grey, formats);
#if ZXING_API == 0
    // DataBar is read from several lines anyway.
    constexpr BarcodeFormats onOneLine = barcode::linear & ~barcode::allDataBar;
    constexpr int maxTries = 8;
    cv::Mat rest;
    for (int tries = 0; code && (code->found.format & onOneLine) != 0 && !isConfirmed(grey, *code);
         ++tries) {
        if (tries == 0) {
            rest = grey.clone();
        } else if (tries == maxTries) {
            return {};
        }
        cv::line(rest, code->corners[0], code->corners[1], cv::Scalar(255), 2 * reach);
        code = read(rest, formats);
    }
#endif
    return code;
}

} // namespace portable
