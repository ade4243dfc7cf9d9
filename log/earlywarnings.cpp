// SPDX-License-Identifier: MIT
#include "log/earlywarnings.h"

#include <QString>
#include <QStringList>
#include <QtDebug>

#include <mutex>

namespace {

constexpr int most = 100; // a library may print without end

std::mutex mutex;
QStringList &kept = *new QStringList; // guarded; threads may still print at exit
QtMessageHandler before = nullptr; // set before there is another thread

void keep(QtMsgType type, const QMessageLogContext &context, const QString &text)
{
    if (type != QtDebugMsg && type != QtInfoMsg && qstrcmp(context.category, "default") == 0) {
        const std::lock_guard<std::mutex> lock(mutex);
        if (kept.size() < most) {
            kept << text;
        }
    }
    before(type, context, text);
}

} // namespace

void keepEarlyWarnings()
{
    before = qInstallMessageHandler(keep);
}

void repeatEarlyWarnings()
{
    QStringList lines;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        lines.swap(kept);
    }
    for (const QString &line : qAsConst(lines)) {
        qWarning().noquote() << line;
    }
}
