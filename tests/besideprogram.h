// SPDX-License-Identifier: MIT
/** \file The devices.ini beside a test program, for tests of the portable library's functions. */
#pragma once

#include <QCoreApplication>
#include <QFile>

/** While it lives, devices.ini holds what it was given last. */
class DevicesIni
{
public:
    DevicesIni() = default;
    ~DevicesIni() { QFile::remove(path()); }
    DevicesIni(const DevicesIni &) = delete;
    DevicesIni &operator=(const DevicesIni &) = delete;

    /** \return whether it could be written */
    static bool write(const QString &text)
    {
        const QByteArray bytes = text.toUtf8();
        QFile file(path());
        return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
    }

private:
    static QString path()
    {
        return QCoreApplication::applicationDirPath() + QStringLiteral("/devices.ini");
    }
};
