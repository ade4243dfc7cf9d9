// SPDX-License-Identifier: MIT
/// \file What commands do, beyond their names: for the access policy and the log.
#pragma once

#include <QString>

#include <array>

namespace commands {

/// What a command is about. A policy names it as familyName() does.
enum class Family {
    Camera,
    Preview, ///< also "camera"; starts a preview
    Capture,
    Document,
    Card,
    Face,
    Finger,
    Print,
    Sign,
    Pages,
    FileRead,
    FileWrite,
    FileOpen, ///< in another program of the desktop
    Upload,
    Status,
};

/// What an argument is.
enum class Use {
    Other, ///< neither a file, a folder, a device nor an address
    Base64, ///< bytes as base64 text
    ReadFile,
    WriteFile,
    DeleteFile,
    MoveFile, ///< read and deleted
    SignedFile, ///< read; a new file is written beside it
    NewName, ///< written; a name without "/" is one beside the previous argument
    ReadFolder,
    WriteFolder,
    Folder, ///< of the file that the next argument, a Name or a Prefix, names
    Name, ///< the library adds an extension
    Prefix, ///< the library adds a number and an extension
    Pattern, ///< of names in the previous argument
    Switch, ///< a number other than 0 means yes
    ReadFileIfSwitch, ///< ignored if the previous argument is 0
    UploadAddress,
    UploadHost, ///< a host or an address
    UploadPage, ///< path on the previous argument
    UploadPort, ///< of the argument before the previous; 0: its own
    UploadFile, ///< read
    UploadRemoves, ///< a number other than 0: the UploadFile is deleted
    PageAddress, ///< of a page for the customer's screen, or a file's path
    OwnPageData, ///< data for a page of webSite/
    DevicePort, ///< a device, or a name without "/"
};

/// The arguments of a command by position; those behind the last one here are Use::Other.
struct ArgumentUses
{
    static constexpr int most = 5;

    std::array<Use, most> uses{};
    int count = 0;
    bool isWhole = false; ///< the whole argument text is one argument, whatever "," is in it
};

struct Facts
{
    QLatin1String name;
    Family family;
    ArgumentUses arguments;
    int index; ///< in the command list
};

/// How many commands there are.
int count();

/// All commands, in the order of the list.
struct AllFacts
{
    const Facts *begin() const;
    const Facts *end() const;
};
inline AllFacts all()
{
    return {};
}

/// The facts of a command; null if there is none with this name. Any thread.
const Facts *factsOf(const QString &name);

/// "camera", "file.read" ...
QString familyName(Family family);

/// Whether this is the name of a family.
bool isFamily(const QString &name);

/**
 * Whether the arguments may hold what is about a person: those of card, face, finger, upload,
 * signature and page commands, and base64 texts.
 */
bool isPersonal(const Facts &facts);

/// A command text in its two parts, "name(args)".
struct Text
{
    /// Drops the text's last character, whether or not it is ")".
    explicit Text(const QString &text);

    QString name; ///< everything before the first "(", or the whole text
    QString args;
};

} // namespace commands
