#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Checks the direction of includes: each room, and the rooms that it may include besides itself.
# Everything may include base/, and log/ and devicelib/ but portable/ (no log) and the companions
# (neither).
# docs/architecture.md has the picture; tests and benchmarks may include everything.
cd "$(dirname "$0")/.."
set -eu

git ls-files -co --exclude-standard '*.cpp' '*.h' ':!tests/' ':!bench/' ':!scripts/' \
    | xargs grep -n '^ *# *include "' | awk -F: '
function rule(room, allowed) { rules[room] = " base " allowed " " }
BEGIN {
    families = "camera identity status upload files companionclients"
    rule("app", "statussocket transport access " families " dispatch log devicelib")
    rule("transport", families " access dispatch log devicelib")
    rule("access", "dispatch log") # no family of commands knows of it
    rule("statussocket", "transport camera access dispatch log") # looks, and changes nothing
    rule("camera", "dispatch log devicelib")
    rule("identity", "dispatch log devicelib camera") # liveness is shown in the preview
    rule("status", "dispatch log devicelib")
    rule("upload", "dispatch log devicelib")
    rule("files", "dispatch log devicelib")
    rule("companionclients", "dispatch log devicelib companions/common") # the choice of the screen
    rule("dispatch", "log devicelib")
    rule("log", "")
    rule("base", "")
    rule("devicelib", "")

    rule("portable/base", "devicelib")
    rule("portable/fingerworker", "") # a program of its own, with few libraries
    rule("portable/barcodeworker", "") # a program of its own, with few libraries
    rule("portable/picture", "devicelib portable/base portable/barcodeworker")
    rule("portable/video", "portable/picture portable/base") # its module/ is compiled by itself
    rule("portable/camera", "devicelib portable/video portable/picture portable/base")
    rule("portable/document", "devicelib portable/picture portable/base")
    rule("portable/recording", "devicelib portable/video portable/camera portable/picture portable/base")
    rule("portable/system", "devicelib portable/picture portable/base")
    rule("portable/face", "devicelib portable/camera portable/base")
    rule("portable/finger", "devicelib portable/picture portable/base")
    rule("portable/card", "portable/base") # no devicelib: it brings OpenCV along
    rule("portable/api", "devicelib portable/base portable/picture portable/camera " \
        "portable/document portable/recording portable/system portable/face portable/finger " \
        "portable/card")

    rule("deviceprocess", "devicelib")
    rule("devicectl", "access dispatch") # the rules of a policy, the list of commands
    rule("docs", "devicelib") # the example of a device library

    rule("companions/common", "")
    rule("companions/browser", "companions/common")
    rule("companions/signature", "companions/common")
}
function room(path,   parts) {
    split(path, parts, "/")
    return parts[1] ~ /^(portable|companions)$/ ? parts[1] "/" parts[2] : parts[1]
}
{
    from = room($1)
    split($3, quoted, "\"")
    included = quoted[2]
    # A name without a folder lies beside the file, or is made by a generator.
    to = included ~ /\// ? room(included) : from
    if (!(from in rules)) {
        wrong($1 ":" $2 ": no rule for the room " from)
    } else if (to != from && to != "base" && index(rules[from], " " to " ") == 0) {
        wrong($1 ":" $2 ": includes " included ", which room " from " may not")
    }
}
function wrong(text) { print text; found = 1 }
END { exit found }
'
