// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

namespace accesspolicy {

/// Why something is refused.
struct Refusal
{
    QString reason; ///< "denied by grant.counter"
    QString key; ///< of the policy, that decided: "grant.counter.deny"; empty: no key can allow it
    int status = 403; ///< of HTTP, for a handshake
};

} // namespace accesspolicy
