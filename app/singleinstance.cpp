// SPDX-License-Identifier: MIT
#include "app/singleinstance.h"

#include <QtGlobal>

#include <cstdio>
#include <cstdlib>

InstanceCount countInstances()
{
    static const char pipeline[] =
        "ps -ef |grep rvowebSocketServer  | grep -v sh | grep -v txt | grep -v -i qtcreator "
        "| grep -v grep | grep -v sudo | wc -l";
    static const char libraryPath[] = "LD_LIBRARY_PATH";

    const bool wasSet = qEnvironmentVariableIsSet(libraryPath);
    const QByteArray saved = qgetenv(libraryPath);
    qputenv(libraryPath, QByteArray());
    FILE *pipe = popen(pipeline, "r");
    if (wasSet) {
        qputenv(libraryPath, saved);
    } else {
        qunsetenv(libraryPath);
    }

    InstanceCount instances;
    if (!pipe) {
        return instances;
    }
    char line[100] = {};
    if (fgets(line, sizeof line, pipe)) {
        instances.line = QByteArray(line).trimmed();
    }
    pclose(pipe);
    instances.count = strtol(instances.line.constData(), nullptr, 10);
    return instances;
}
