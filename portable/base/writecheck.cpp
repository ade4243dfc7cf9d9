// SPDX-License-Identifier: MIT
#include "portable/base/writecheck.h"

#include "portable/base/atomicfile.h"

namespace portable {

bool canWriteFile(const QString &path, QString *error)
{
    bool isMade = false;
    writeWholeFile(
        path,
        [&isMade](const QString &, QString *) {
            isMade = true;
            return false; // so it is taken back
        },
        error);
    return isMade;
}

} // namespace portable
