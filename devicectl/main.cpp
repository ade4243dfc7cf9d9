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
    return int(runDevicectl(QCoreApplication::arguments().mid(1), out, error));
}
