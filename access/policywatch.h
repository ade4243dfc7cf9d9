// SPDX-License-Identifier: MIT
#pragma once

#include <QObject>
#include <QSocketNotifier>
#include <QStringList>
#include <QTimer>

namespace accesspolicy {

/**
 * Notices changes of files: written, replaced by another, removed, made, other rights. Watches
 * their folders (inotify(7)), since a file that is replaced is another one. A folder that doesn't
 * exist is waited for if the one above it does.
 */
class PolicyWatch : public QObject
{
    Q_OBJECT

public:
    explicit PolicyWatch(QObject *parent = nullptr);
    ~PolicyWatch() override;

    /// Watches these files, by their names, instead of those before.
    void watch(const QStringList &files);

Q_SIGNALS:
    /// One of the files may have changed, some time ago; several changes are one signal.
    void changed();

private:
    void addFolders();
    void readEvents();

    int m_descriptor = -1;
    QSocketNotifier *m_notifier = nullptr;
    QTimer m_settle; // whoever writes a file often writes it in several steps
    QStringList m_files;
};

} // namespace accesspolicy
