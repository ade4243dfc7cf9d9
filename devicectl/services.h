// SPDX-License-Identifier: MIT
/// \file Whether services and devices of this machine answer. Each function takes at most the time
/// it is given.
#pragma once

#include "devicectl/environment.h"

/// See Environment::accepts().
bool acceptsConnections(const QString &address, int milliseconds);

/// See Environment::cardReaders().
std::optional<QStringList> cardReaderNames(int milliseconds);

/// See Environment::printer().
Environment::Printer printerState(const QString &name, int milliseconds);

/// See Environment::isCamera().
bool isCaptureNode(const QString &node);
