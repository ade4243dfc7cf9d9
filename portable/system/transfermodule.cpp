// SPDX-License-Identifier: MIT
#include "portable/system/transfermodule.h"

#include "portable/base/module.h"

namespace portable {

const TransferModule *transferModule(QString *error)
{
    return static_cast<const TransferModule *>(
        symbolOfModule(QStringLiteral("libportabletransfer.so"), "portableTransfer", error));
}

} // namespace portable
