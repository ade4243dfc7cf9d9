// SPDX-License-Identifier: MIT
#include "portable/barcodeworker/zbar.h"

#include <dlfcn.h>

#include <algorithm>
#include <iterator>

namespace portable {

namespace {

// From zbar.h, the same since 0.10. The library is loaded and not linked: a terminal can do without
// it, and its development package depends on that of ImageMagick.
constexpr int setEnabled = 0; // ZBAR_CFG_ENABLE
constexpr int setMinLength = 0x20; // ZBAR_CFG_MIN_LEN
constexpr unsigned long grey8 = 0x30303859; // "Y800"

/// ZBar's number of a type of codes, and ours.
struct Type
{
    int zbar;
    BarcodeFormats format;
};
constexpr Type types[] = {
    {8, barcode::ean8}, {9, barcode::upcE},    {12, barcode::upcA},   {13, barcode::ean13},
    {25, barcode::itf}, {39, barcode::code39}, {93, barcode::code93}, {128, barcode::code128},
};
constexpr int itf = 25;
constexpr int shortestItf = 6; // digits, as ZXing: parts of other codes look like short ones

struct Library
{
    Library()
    {
        void *library = dlopen("libzbar.so.0", RTLD_NOW | RTLD_LOCAL);
        isLoaded = library && load(library, "zbar_image_scanner_create", &createScanner)
            && load(library, "zbar_image_scanner_destroy", &destroyScanner)
            && load(library, "zbar_image_scanner_set_config", &configure)
            && load(library, "zbar_image_create", &createImage)
            && load(library, "zbar_image_destroy", &destroyImage)
            && load(library, "zbar_image_set_format", &setFormat)
            && load(library, "zbar_image_set_size", &setSize)
            && load(library, "zbar_image_set_data", &setData)
            && load(library, "zbar_scan_image", &scan)
            && load(library, "zbar_image_first_symbol", &firstSymbol)
            && load(library, "zbar_symbol_next", &nextSymbol)
            && load(library, "zbar_symbol_get_type", &typeOf)
            && load(library, "zbar_symbol_get_data", &dataOf)
            && load(library, "zbar_symbol_get_data_length", &sizeOf);
    }

    template <class Function> static bool load(void *library, const char *name, Function **function)
    {
        *function = reinterpret_cast<Function *>(dlsym(library, name));
        return *function != nullptr;
    }

    void *(*createScanner)() = nullptr;
    void (*destroyScanner)(void *scanner) = nullptr;
    int (*configure)(void *scanner, int type, int setting, int value) = nullptr;
    void *(*createImage)() = nullptr;
    void (*destroyImage)(void *image) = nullptr;
    void (*setFormat)(void *image, unsigned long format) = nullptr;
    void (*setSize)(void *image, unsigned width, unsigned height) = nullptr;
    void (*setData)(void *image, const void *data, unsigned long size, void *cleanup) = nullptr;
    int (*scan)(void *scanner, void *image) = nullptr;
    const void *(*firstSymbol)(const void *image) = nullptr;
    const void *(*nextSymbol)(const void *symbol) = nullptr;
    int (*typeOf)(const void *symbol) = nullptr;
    const char *(*dataOf)(const void *symbol) = nullptr;
    unsigned (*sizeOf)(const void *symbol) = nullptr;
    bool isLoaded = false;
};

} // namespace

std::vector<FoundBarcode> readWithZbar(const cv::Mat &grey, BarcodeFormats formats)
{
    static const Library zbar;
    std::vector<FoundBarcode> found;
    if (!zbar.isLoaded || !grey.isContinuous()) {
        return found;
    }
    void *scanner = zbar.createScanner();
    zbar.configure(scanner, 0, setEnabled, 0); // all types
    for (const Type &type : types) {
        const bool isWanted = (formats & type.format) != 0;
        zbar.configure(scanner, type.zbar, setEnabled, isWanted ? 1 : 0);
    }
    zbar.configure(scanner, itf, setMinLength, shortestItf);
    void *image = zbar.createImage();
    zbar.setFormat(image, grey8);
    zbar.setSize(image, unsigned(grey.cols), unsigned(grey.rows));
    zbar.setData(image, grey.data, grey.total(), nullptr);
    zbar.scan(scanner, image);
    for (const void *code = zbar.firstSymbol(image); code; code = zbar.nextSymbol(code)) {
        const auto type = std::find_if(std::begin(types), std::end(types), [&](const Type &one) {
            return one.zbar == zbar.typeOf(code);
        });
        if (type != std::end(types)) {
            const std::string text(zbar.dataOf(code), zbar.sizeOf(code));
            found.push_back({type->format, false, text, text});
        }
    }
    zbar.destroyImage(image);
    zbar.destroyScanner(scanner);
    return found;
}

} // namespace portable
