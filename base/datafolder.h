// SPDX-License-Identifier: MIT
/// \file Where the log, the settings and the simulated cards and fingers are.
#pragma once

#include <QString>

namespace base {

/// What the server's folders are called: below the user's state, and in /etc.
constexpr char dataFolderName[] = "rvowebsocketserver";

/// The environment variable by which the server hands its choice to the device process and the
/// companions. Unset: the program's own folder.
constexpr char dataFolderVariable[] = "DEVICE_DATA_DIR";

/// The folders that a file or folder of the server's data is looked for in.
struct DataPlaces
{
    QString data; ///< written to
    QString system; ///< of the administrator's settings
    QString program; ///< with the samples that were installed

    /**
     * Path of `name`: in the first of data, system and program that has it, or else in data. Where
     * the program's own folder is the data folder, that alone counts.
     */
    QString find(const QString &name) const;
};

/// The folder of this program; unlike QCoreApplication::applicationDirPath() before there is an
/// application, too.
QString programFolder();

/// The folder that the server writes its log and settings to, for every process of it.
QString dataFolder();

/// DataPlaces::find() in the folders of this process.
QString findData(const QString &name);

/// The data folder of a server without a named one: `program` if this user can write it, or else
/// the one in the user's state. Creates nothing.
QString usualDataFolder(const QString &program);

/**
 * Chooses the data folder of this process and of those it starts: the one that was named, or the
 * program's own if that can be written, or else that of the user's state ($XDG_STATE_HOME), which
 * is created with its parents, for this user only. Call once, before anything reads or writes data.
 * \param named    by an option; empty: none. The environment variable names one too.
 * \param program  its own folder
 * \return why the folder can't be used; empty: it can. The program's own remains chosen then.
 */
QString chooseDataFolder(const QString &named, const QString &program = programFolder());

} // namespace base
