// SPDX-License-Identifier: MIT
#pragma once

#include "access/policy.h"

namespace accesspolicy {

/**
 * Restricts the device process to the folders of a policy, or, without one, no longer. A process
 * that runs is replaced if that changes anything. Says in the log if there is no device process.
 */
void restrictDeviceProcess(const Policy *policy);

} // namespace accesspolicy
