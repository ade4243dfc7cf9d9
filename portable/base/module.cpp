// SPDX-License-Identifier: MIT
#include "portable/base/module.h"

#include "portable/base/failure.h"

#include <QFile>
#include <QFileInfo>
#include <dlfcn.h>

namespace portable {

QString besideLibrary(const QString &name)
{
    static const char here = 0;
    Dl_info info{};
    const bool isKnown = ::dladdr(&here, &info) != 0;
    const QFileInfo file(isKnown ? QFile::decodeName(info.dli_fname) : QString());
    return file.absolutePath() + QLatin1Char('/') + name;
}

const void *symbolOfModule(const QString &module, const char *symbol, QString *error)
{
    const QByteArray path = QFile::encodeName(besideLibrary(module));
    void *const handle = ::dlopen(path.constData(), RTLD_NOW | RTLD_LOCAL);
    const void *found = handle ? ::dlsym(handle, symbol) : nullptr;
    if (!found) {
        setError(QString::fromLocal8Bit(::dlerror()), error);
    }
    return found;
}

} // namespace portable
