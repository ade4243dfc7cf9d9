// SPDX-License-Identifier: MIT
#include "portable/base/writecheck.h"

#include "portable/base/atomicfile.h"

namespace portable {

bool canWriteFile(const QString &path, QString *error)
{
    bool isCreated = false;
    writeWholeFile(
        path,
        [&isCreated](const QString &, QString *) {
            isCreated = true;
            return false; // so that the file is removed again
        },
        error);
    return isCreated;
}

} // namespace portable
