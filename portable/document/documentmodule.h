// SPDX-License-Identifier: MIT
/// \file What the library and its module for documents have in common.
#pragma once

#include "portable/document/ofddocument.h"
#include "portable/document/pdfdocument.h"

namespace portable {

/// Writes a PDF into an existing file; see writePdf().
bool writePdfByQpdf(const QString &path, const PageSpool &pages, const QString &title, PdfKind kind,
                    QString *error);

/// Writes an OFD into an existing file; see writeOfd().
bool writeOfdByZip(const QString &path, const PageSpool &pages, QString *error);

/// What libportabledocuments.so exports as `portableDocuments`.
struct DocumentModule
{
    bool (*writePdf)(const QString &path, const PageSpool &pages, const QString &title,
                     PdfKind kind, QString *error);
    bool (*writeOfd)(const QString &path, const PageSpool &pages, QString *error);
};

} // namespace portable
