// SPDX-License-Identifier: MIT
#pragma once

/// The exit statuses, which docs/devicectl.md and the man page list.
enum class ExitCode {
    Good = 0, ///< done; a command was answered with anything but a failure
    Bad = 1, ///< doctor found a fault; a command answered a failure; a policy is faulty
    Usage = 2, ///< the command line can't be understood
    NoServer = 3, ///< the server doesn't run, or isn't to be reached
    NoAnswer = 4, ///< no answer came in time
    Declined = 5, ///< not done, as it would disturb other pages; --force does it
    Trouble = 6, ///< this machine doesn't let devicectl do it: a file, a program
};
