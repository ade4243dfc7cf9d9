// SPDX-License-Identifier: MIT
#include "deviceprocess/host/library.h"

#include "deviceprocess/host/execute.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QStringList>
#include <QtDebug>
#include <dlfcn.h>

#include <stdexcept>

namespace deviceprocess {

namespace {

constexpr Execute executions[] = {
#define DEVICE(library, kind, seconds, result, name, parameters, names)                            \
    Execution<FunctionId::name, FunctionKind::kind, result parameters>::execute,
#include "devicelib/functions.h"
};

enum class Half { doccamera, cardreader };

constexpr Half halves[] = {
#define DEVICE(library, kind, seconds, result, name, parameters, names) Half::library,
#include "devicelib/functions.h"
};

/// \return null, with a line in the log and in `error`, on failure
void *open(const QString &configured, QByteArray *error)
{
    const QString beside = QCoreApplication::applicationDirPath() + QLatin1Char('/') + configured;
    const QString path = QFileInfo::exists(beside) ? beside : configured;
    void *library = dlopen(QFile::encodeName(path).constData(), RTLD_NOW | RTLD_GLOBAL);
    if (!library) {
        const QByteArray reason = dlerror();
        qWarning("device process: %s", reason.constData());
        *error += (error->isEmpty() ? "" : "; ") + reason;
    }
    return library;
}

} // namespace

Shortcomings Library::load(const QString &camera, const QString &cards)
{
    Shortcomings found;
    void *const libraries[] = {open(camera, &found.error), open(cards, &found.error)};
    QStringList missing;
    for (std::size_t i = 0; i < functionCount; ++i) {
        const char *name = functionName(std::uint32_t(i));
        void *library = libraries[std::size_t(halves[i])];
        m_functions[i] = library ? dlsym(library, name) : nullptr;
        if (library && !m_functions[i]) {
            missing << QString::fromLatin1(name);
        }
    }
    if (!missing.isEmpty()) {
        const QString names = missing.join(QStringLiteral(", "));
        qWarning().noquote() << "device process: the library doesn't have" << names;
        found.missing = names.toUtf8();
    }
    return found;
}

void Library::execute(std::uint32_t function, Reader &arguments, Writer &reply, Pictures &pictures)
{
    if (function >= functionCount || !m_functions[function]) {
        throw std::runtime_error("there is no such function in the library");
    }
    executions[function](m_functions[function], arguments, reply, pictures);
}

} // namespace deviceprocess
