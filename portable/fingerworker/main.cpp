// SPDX-License-Identifier: MIT
/**
 * \file
 * The program that takes a picture of a finger through libfprint: waits for a finger on the first
 * sensor that gives pictures, writes the answer to its standard output and ends. The answer is one
 * line (see portable/finger/fingerreader.cpp), and the picture's pixels.
 *
 * It is a process of its own because libfprint brings GLib and USB drivers along, waits without a
 * limit and can't be interrupted. libfprint is loaded and not linked: a terminal can do without it.
 */
#include <dlfcn.h>
#include <poll.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <utility>

namespace {

// From the headers of libfprint 2 (1.90 to 1.94) and GLib 2, whose interfaces don't change.
struct Context;
struct Device;
struct Image;
struct GError
{
    unsigned domain;
    int code;
    char *message;
};
struct GPtrArray
{
    void **elements;
    unsigned size;
};

struct Library
{
    Context *(*newContext)();
    void (*enumerate)(Context *);
    GPtrArray *(*devicesOf)(Context *); // they stay the context's
    const char *(*nameOf)(Device *);
    int (*givesPictures)(Device *);
    int (*open)(Device *, void *cancellable, GError **);
    Image *(*capture)(Device *, int waitForFinger, void *cancellable, GError **);
    unsigned (*widthOf)(Image *);
    unsigned (*heightOf)(Image *);
    double (*pixelsPerMillimeter)(Image *);
    const unsigned char *(*pixelsOf)(Image *, size_t *size);
};

/// \return false, with the reason printed, without the library
bool load(Library *functions)
{
    void *const library = dlopen("libfprint-2.so.2", RTLD_NOW | RTLD_LOCAL);
    if (!library) {
        std::printf("none %s\n", dlerror());
        return false;
    }
    const std::pair<void *, const char *> symbols[] = {
        {&functions->newContext, "fp_context_new"},
        {&functions->enumerate, "fp_context_enumerate"},
        {&functions->devicesOf, "fp_context_get_devices"},
        {&functions->nameOf, "fp_device_get_name"},
        {&functions->givesPictures, "fp_device_supports_capture"},
        {&functions->open, "fp_device_open_sync"},
        {&functions->capture, "fp_device_capture_sync"},
        {&functions->widthOf, "fp_image_get_width"},
        {&functions->heightOf, "fp_image_get_height"},
        {&functions->pixelsPerMillimeter, "fp_image_get_ppmm"},
        {&functions->pixelsOf, "fp_image_get_data"},
    };
    for (const auto &[function, name] : symbols) {
        void *const symbol = dlsym(library, name);
        if (!symbol) {
            std::printf("none %s\n", dlerror());
            return false;
        }
        std::memcpy(function, &symbol, sizeof symbol);
    }
    return true;
}

/// The first sensor that gives pictures; null without one, with the reason printed.
Device *findSensor(const Library &library, Context *context)
{
    library.enumerate(context);
    const GPtrArray *const devices = library.devicesOf(context);
    for (unsigned i = 0; devices && i < devices->size; ++i) {
        auto *const device = static_cast<Device *>(devices->elements[i]);
        if (library.givesPictures(device) != 0) {
            return device;
        }
    }
    if (devices && devices->size > 0) {
        std::printf("none the sensor %s compares fingers itself and gives no pictures\n",
                    library.nameOf(static_cast<Device *>(devices->elements[0])));
    } else {
        std::printf("none there is no sensor that libfprint knows\n");
    }
    return nullptr;
}

int fail(const char *step, const char *sensor, const GError *error)
{
    std::printf("%s %s: %s\n", step, sensor, error ? error->message : "no reason is given");
    return EXIT_FAILURE;
}

/// Makes this process end with the thread that started it: it would keep the sensor for ever.
void endWithStarter()
{
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    pollfd output{STDOUT_FILENO, 0, 0};
    if (::poll(&output, 1, 0) > 0) { // nobody reads it: the starter has ended already
        std::_Exit(EXIT_FAILURE);
    }
}

} // namespace

int main()
{
    endWithStarter();
    Library library{};
    if (!load(&library)) {
        return EXIT_FAILURE;
    }
    Context *const context = library.newContext();
    Device *const sensor = findSensor(library, context);
    if (!sensor) {
        return EXIT_FAILURE;
    }
    const char *const name = library.nameOf(sensor);
    GError *error = nullptr;
    if (library.open(sensor, nullptr, &error) == 0) {
        return fail("closed", name, error);
    }
    std::printf("waiting %s\n", name);
    std::fflush(stdout);
    Image *const image = library.capture(sensor, 1, nullptr, &error);
    if (!image) {
        return fail("unreadable", name, error);
    }
    size_t size = 0;
    const unsigned char *const pixels = library.pixelsOf(image, &size);
    std::printf("image %u %u %d\n", library.widthOf(image), library.heightOf(image),
                int(std::lround(library.pixelsPerMillimeter(image) * 25.4)));
    std::fwrite(pixels, 1, size, stdout);
    std::fflush(stdout);
    std::_Exit(EXIT_SUCCESS); // a driver can take long to close
}
