// SPDX-License-Identifier: MIT
#pragma once

#include <QJsonObject>
#include <QStringList>

/// The report of the server for people, a line each.
QStringList statusLines(const QJsonObject &status);
