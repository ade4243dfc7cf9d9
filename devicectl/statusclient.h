// SPDX-License-Identifier: MIT
#pragma once

#include <QJsonObject>
#include <QString>

#include <optional>

/**
 * Asks the server for its state, at its status socket; takes at most some seconds.
 * \param path   of the socket
 * \param error  receives why there is no answer
 */
std::optional<QJsonObject> askForStatus(const QString &path, QString *error);
