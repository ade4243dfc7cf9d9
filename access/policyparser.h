// SPDX-License-Identifier: MIT
#pragma once

#include "access/policy.h"

#include <QByteArray>
#include <QString>

#include <optional>

namespace accesspolicy {

/// Why a file is no policy.
struct PolicyError
{
    QString file;
    int line = 0; ///< 0: the file as a whole
    QString reason;

    /// "/etc/.../access.ini:12: there is no key [origin] alow".
    QString text() const;
};

/**
 * Reads the text of a policy. Reads no file but the one that holds the token.
 * \param file   its path, for messages
 * \param never  folders that no policy opens; a policy that names one is faulty
 * \return nullopt, with the reason, if anything in it is unknown or malformed
 */
std::optional<Policy> parsePolicy(const QByteArray &text, const QString &file,
                                  const NeverFolders &never, PolicyError *error);

} // namespace accesspolicy
