// SPDX-License-Identifier: MIT
//
// A device library that does wrong what it is told to: the file named by HOSTILE_ORDER holds a
// function's name and what it does when it is called. Every other function fails quietly.

#include "devicelib/biometrics.h"
#include "devicelib/cardreader.h"
#include "devicelib/doccamera.h"
#include "deviceprocess/arguments.h"

#include <QByteArray>
#include <QImage>
#include <QString>
#include <opencv2/core.hpp>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <string>

using deviceprocess::SizeList;

namespace {

/// On every socket of the device process, what no message looks like.
void writeGarbage()
{
    const std::string garbage(4096, '\x7F');
    for (int descriptor = 3; descriptor < 64; ++descriptor) {
        if (write(descriptor, garbage.data(), garbage.size()) < 0) {
            continue; // not one of them
        }
    }
}

/// Until there is no more.
void eatMemory()
{
    for (;;) {
        constexpr std::size_t block = 64 << 20;
        std::memset(::operator new(block), 1, block);
    }
}

void act(const char *function)
{
    std::ifstream file(std::getenv("HOSTILE_ORDER"));
    std::string name;
    std::string order;
    file >> name >> order;
    if (name != function && name != "any") {
        return;
    }
    if (order == "crash") {
        std::raise(SIGSEGV);
    } else if (order == "hang") {
        for (;;) {
            pause();
        }
    } else if (order == "throw") {
        throw std::runtime_error("as ordered");
    } else if (order == "garbage") {
        writeGarbage();
    } else if (order == "memory") {
        eatMemory();
    }
}

template <class Result> Result failure()
{
    return Result();
}

} // namespace

#pragma GCC diagnostic ignored "-Wunused-parameter" // what it is asked for is no matter
#define DEVICE(library, kind, seconds, result, name, parameters, names)                            \
    extern "C" result name parameters                                                              \
    {                                                                                              \
        act(#name);                                                                                \
        return failure<result>();                                                                  \
    }
#include "deviceprocess/functions.h"
