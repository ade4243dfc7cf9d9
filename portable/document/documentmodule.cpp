// SPDX-License-Identifier: MIT
#include "portable/document/documentmodule.h"

#include "portable/base/atomicfile.h"
#include "portable/base/module.h"

#include <QFileInfo>

namespace portable {

namespace {

/// Loaded when it is first needed: qpdf and libzip bring three libraries for encryption along.
const DocumentModule *documentModule(QString *error)
{
    return static_cast<const DocumentModule *>(
        symbolOfModule(QStringLiteral("libportabledocuments.so"), "portableDocuments", error));
}

} // namespace

bool writePdf(const PageSpool &pages, const QString &path, PdfKind kind, QString *error)
{
    const DocumentModule *module = documentModule(error);
    const QString title = QFileInfo(path).completeBaseName();
    const auto write = [&](const QString &temporary, QString *why) {
        return module->writePdf(temporary, pages, title, kind, why);
    };
    return module && writeWholeFile(path, write, error);
}

bool writeOfd(const PageSpool &pages, const QString &path, QString *error)
{
    const DocumentModule *module = documentModule(error);
    const auto write = [&](const QString &temporary, QString *why) {
        return module->writeOfd(temporary, pages, why);
    };
    return module && writeWholeFile(path, write, error);
}

} // namespace portable
