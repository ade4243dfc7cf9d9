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
    // A plain C text is the one kind of text that QDebug does not quote.
    return QMessageLogger(file, line, function).debug()
        << line << function << baseName(file).constData();
}
