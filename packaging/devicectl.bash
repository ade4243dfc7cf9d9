# SPDX-License-Identifier: MIT
# shellcheck shell=bash
# Completion of devicectl in bash. The program itself makes it from its verbs, their options and the
# list of commands.
eval "$(devicectl completion)"
