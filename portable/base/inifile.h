// SPDX-License-Identifier: MIT
#pragma once

#include <QSettings>
#include <QStringList>

namespace portable {

/// The settings file devices.ini with the reading of its values; complains in the log.
class IniFile
{
public:
    /// What can't be understood is said in the log; a file that isn't there is an empty one.
    explicit IniFile(const QString &path);

    /// The keys of a group, without its name.
    QStringList keys(const QString &group);

    bool contains(const QString &key) const { return m_settings.contains(key); }

    /**
     * The value without blanks around it; empty when there is none.
     * \param key  with its group, "cards/reader"
     */
    QString text(const QString &key) const;

    /// One line in the log, with the file's name before it.
    void complain(const QString &what) const;

private:
    QSettings m_settings;
};

} // namespace portable
