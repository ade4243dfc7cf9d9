// SPDX-License-Identifier: MIT
#include "access/policywatch.h"

#include <QDebug>
#include <QFile>
#include <QFileInfo>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <chrono>

namespace accesspolicy {

namespace {

constexpr std::chrono::milliseconds settleTime{200};
constexpr uint32_t changes = IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_CREATE | IN_DELETE
    | IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;

} // namespace

PolicyWatch::PolicyWatch(QObject *parent)
    : QObject(parent)
    , m_descriptor(inotify_init1(IN_CLOEXEC | IN_NONBLOCK))
{
    m_settle.setSingleShot(true);
    m_settle.setInterval(settleTime);
    connect(&m_settle, &QTimer::timeout, this, [this] {
        addFolders(); // that exist only now
        Q_EMIT changed();
    });
    if (m_descriptor < 0) {
        qWarning().noquote() << "access: changes of the policy are not noticed:"
                             << qt_error_string();
        return;
    }
    m_notifier = new QSocketNotifier(m_descriptor, QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &PolicyWatch::readEvents);
}

PolicyWatch::~PolicyWatch()
{
    delete m_notifier;
    if (m_descriptor >= 0) {
        ::close(m_descriptor);
    }
}

void PolicyWatch::watch(const QStringList &files)
{
    m_files = files;
    addFolders();
}

void PolicyWatch::addFolders()
{
    for (const QString &file : qAsConst(m_files)) {
        const QString folder = QFileInfo(file).path();
        const auto add = [this](const QString &path) {
            return inotify_add_watch(m_descriptor, QFile::encodeName(path).constData(), changes)
                >= 0; // a folder that is watched already is no error
        };
        if (!add(folder)) {
            add(QFileInfo(folder).path());
        }
    }
}

void PolicyWatch::readEvents()
{
    alignas(inotify_event) std::array<char, 16384> buffer;
    bool isOurs = false;
    ssize_t length = 0;
    while ((length = ::read(m_descriptor, buffer.data(), buffer.size())) > 0) {
        for (ssize_t at = 0; at < length;) {
            const auto *event = reinterpret_cast<const inotify_event *>(buffer.data() + at);
            const QString name = event->len > 0 ? QFile::decodeName(event->name) : QString();
            for (const QString &file : qAsConst(m_files)) {
                const QFileInfo info(file);
                isOurs = isOurs || name.isEmpty() || name == info.fileName()
                    || name == QFileInfo(info.path()).fileName();
            }
            at += ssize_t(sizeof(inotify_event)) + event->len;
        }
    }
    if (isOurs) {
        m_settle.start();
    }
}

} // namespace accesspolicy
