// SPDX-License-Identifier: MIT
#include "app/singleinstance.h"

#include <QtGlobal>
#include <fcntl.h>

#include <cstdlib>
#include <utility>

InstanceCounting::InstanceCounting()
{
    static const char pipeline[] =
        "ps -ef |grep rvowebSocketServer  | grep -v sh | grep -v txt | grep -v -i qtcreator "
        "| grep -v grep | grep -v sudo | wc -l";
    static const char libraryPath[] = "LD_LIBRARY_PATH";

    const bool wasSet = qEnvironmentVariableIsSet(libraryPath);
    const QByteArray saved = qgetenv(libraryPath);
    qputenv(libraryPath, QByteArray());
    m_pipe = popen(pipeline, "r");
    if (wasSet) {
        qputenv(libraryPath, saved);
    } else {
        qunsetenv(libraryPath);
    }
    if (m_pipe) {
        fcntl(fileno(m_pipe), F_SETFD, FD_CLOEXEC);
    }
}

InstanceCounting::~InstanceCounting()
{
    if (m_pipe) {
        pclose(m_pipe);
    }
}

InstanceCount InstanceCounting::result()
{
    InstanceCount instances;
    if (!m_pipe) {
        return instances;
    }
    char line[100] = {};
    if (fgets(line, sizeof line, m_pipe)) {
        instances.line = QByteArray(line).trimmed();
    }
    pclose(std::exchange(m_pipe, nullptr));
    instances.count = strtol(instances.line.constData(), nullptr, 10);
    return instances;
}
