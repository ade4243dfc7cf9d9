// SPDX-License-Identifier: MIT
#pragma once

#include <QSettings>
#include <QStringList>

namespace portable {

/// Reads values of the settings file devices.ini, and logs what is wrong with it.
class IniFile
{
public:
    /// Logs what can't be read; a missing file is an empty one.
    explicit IniFile(const QString &path);

    /// The keys of a group, without its name.
    QStringList keys(const QString &group);

    bool contains(const QString &key) const { return m_settings.contains(key); }

    /**
     * The value without surrounding blanks; empty when there is none.
     * \param key  with its group: "cards/reader"
     */
    QString text(const QString &key) const;

    /// Whether the value is true, 1, yes or on; logs one that is neither that nor its opposite.
    bool isOn(const QString &key) const;

    /// Logs what is wrong with the file, in one line that names it.
    void logProblem(const QString &what) const;

private:
    const QString m_path;
    QSettings m_settings;
};

} // namespace portable
