// SPDX-License-Identifier: MIT
#include "app/descriptorlimit.h"

#include <QDebug>
#include <sys/resource.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

quint64 raiseDescriptorLimit()
{
    constexpr rlim_t most = 65536;
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < most) {
        rlimit raised = limit;
        raised.rlim_cur = std::min(limit.rlim_max, most); // "infinite" is the greatest number
        if (setrlimit(RLIMIT_NOFILE, &raised) == 0) {
            limit = raised;
        } else {
            qWarning() << "start: can't raise the limit of open files:" << strerror(errno);
        }
    }
    return limit.rlim_cur;
}
