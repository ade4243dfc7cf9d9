// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

namespace base {

/**
 * Path of the socket with the state of the server, the same for the server and for whoever asks:
 * `$XDG_RUNTIME_DIR/rvowebsocketserver/status`. Without that variable, as in a cron job, the
 * folder that the system makes for a user who is logged in; else one of this user's in the
 * folder for temporary files.
 */
QString statusSocketPath();

} // namespace base
