// SPDX-License-Identifier: MIT
// What libportabletransfer.so exports; portable/system/transfermodule.cpp loads it.
#include "portable/system/transfermodule.h"

extern "C" {
extern __attribute__((visibility("default"))) const portable::TransferModule portableTransfer;
}

const portable::TransferModule portableTransfer{portable::uploadByCurl, portable::printByCups};
