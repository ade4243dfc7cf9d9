// SPDX-License-Identifier: MIT
#include "dispatch/deviceguard.h"

#include <QDebug>

#include <exception>

namespace {

constexpr int maxReason = 500; // characters

QString currentReason()
{
    try {
        throw;
    } catch (const std::exception &error) {
        return QString::fromLocal8Bit(error.what()).left(maxReason);
    } catch (...) {
        return QStringLiteral("an exception of an unknown type");
    }
}

} // namespace

void logException(const QString &command)
{
    qWarning() << "dispatch:" << command << "failed with an exception:" << currentReason();
}
