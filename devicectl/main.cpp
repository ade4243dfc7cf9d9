// SPDX-License-Identifier: MIT
#include "devicectl/commandline.h"

#include <QCoreApplication>

#include <cstdio>

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    QTextStream out(stdout);
    QTextStream error(stderr);
    out.setCodec("UTF-8");
    error.setCodec("UTF-8");
    QStringList words; // UTF-8 even in a session without a locale, as over ssh
    for (int i = 1; i < argc; ++i) {
        words << QString::fromUtf8(argv[i]);
    }
    return int(runDevicectl(words, out, error));
}
