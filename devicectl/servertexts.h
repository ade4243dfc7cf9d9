// SPDX-License-Identifier: MIT
#pragma once

#include "access/policyparser.h"

#include <QString>

/**
 * A reason that code of the server gives, which is English as in its log, in the language of the
 * user. In Chinese the English one follows in brackets, to be found in the log; one that isn't
 * known here stays as it is.
 */
QString inUsersLanguage(const QString &reason);

/// PolicyError::text() with the reason in the language of the user.
QString policyFault(accesspolicy::PolicyError error);
