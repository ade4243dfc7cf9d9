// SPDX-License-Identifier: MIT
// What libportabledocuments.so exports; portable/document/documentmodule.cpp loads it.
#include "portable/document/documentmodule.h"

extern "C" {
extern __attribute__((visibility("default"))) const portable::DocumentModule portableDocuments;
}

const portable::DocumentModule portableDocuments{portable::writePdfByQpdf, portable::writeOfdByZip};
