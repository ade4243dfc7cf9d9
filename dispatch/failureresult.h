// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

#include <optional>

/**
 * What a command answers, within the frame, when it could not be carried out; see commandlist.h.
 * Empty texts are answers; nullopt: the command doesn't answer, or there is no such command. Any
 * thread.
 */
std::optional<QString> failureResult(const QString &command);
