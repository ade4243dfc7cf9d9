// SPDX-License-Identifier: MIT
#include "log/trace.h"

#include <QByteArray>

#include <cstring>

namespace {

/// "companionclients/signsouthinterface.cpp" -> "signsouthinterface"
QByteArray baseName(const char *file)
{
    const char *slash = std::strrchr(file, '/');
    const char *name = slash ? slash + 1 : file;
    const char *dot = std::strrchr(name, '.');
    return dot ? QByteArray(name, int(dot - name)) : QByteArray(name);
}

} // namespace

QDebug traceLine(const char *file, int line, const char *function)
{
    // QDebug quotes every kind of string but plain C strings.
    return QMessageLogger(file, line, function).debug()
        << line << function << baseName(file).constData();
}
