// SPDX-License-Identifier: MIT
#include "dispatch/commandfacts.h"

#include <QHash>

#include <algorithm>
#include <iterator>

namespace commands {

namespace {

constexpr ArgumentUses none;

constexpr ArgumentUses whole(Use use)
{
    return {{use}, 1, true};
}

template <class... Uses> constexpr ArgumentUses fields(Uses... uses)
{
    static_assert(sizeof...(uses) <= ArgumentUses::most, "raise ArgumentUses::most");
    return {{uses...}, int(sizeof...(uses)), false};
}

// The names of the command list, without "Use::".
constexpr Use Other = Use::Other;
constexpr Use Base64 = Use::Base64;
constexpr Use ReadFile = Use::ReadFile;
constexpr Use WriteFile = Use::WriteFile;
constexpr Use DeleteFile = Use::DeleteFile;
constexpr Use MoveFile = Use::MoveFile;
constexpr Use SignedFile = Use::SignedFile;
constexpr Use NewName = Use::NewName;
constexpr Use ReadFolder = Use::ReadFolder;
constexpr Use WriteFolder = Use::WriteFolder;
constexpr Use Folder = Use::Folder;
constexpr Use Name = Use::Name;
constexpr Use Prefix = Use::Prefix;
constexpr Use Pattern = Use::Pattern;
constexpr Use Switch = Use::Switch;
constexpr Use ReadFileIfSwitch = Use::ReadFileIfSwitch;
constexpr Use UploadAddress = Use::UploadAddress;
constexpr Use UploadHost = Use::UploadHost;
constexpr Use UploadPage = Use::UploadPage;
constexpr Use UploadPort = Use::UploadPort;
constexpr Use UploadFile = Use::UploadFile;
constexpr Use UploadRemoves = Use::UploadRemoves;
constexpr Use PageAddress = Use::PageAddress;
constexpr Use OwnPageData = Use::OwnPageData;
constexpr Use DevicePort = Use::DevicePort;

/// A command without family or arguments does not compile.
constexpr Facts entry(const char *name, int length, int index, Family family,
                      ArgumentUses arguments)
{
    return {QLatin1String(name, length), family, arguments, index};
}

enum Index : int {
#define COMMAND(command, failure, ...) Index_##command,
#include "dispatch/commandlist.h"
    IndexCount
};

constexpr std::array<Facts, IndexCount> table{{
#define COMMAND(command, failure, ...)                                                             \
    entry(#command, int(sizeof #command) - 1, Index_##command, Family::__VA_ARGS__),
#include "dispatch/commandlist.h"
}};

struct FamilyName
{
    Family family;
    const char *name;
};

constexpr FamilyName familyNames[] = {
    {Family::Camera, "camera"},      {Family::Preview, "camera"},
    {Family::Capture, "capture"},    {Family::Document, "document"},
    {Family::Card, "card"},          {Family::Face, "face"},
    {Family::Finger, "finger"},      {Family::Print, "print"},
    {Family::Sign, "sign"},          {Family::Pages, "pages"},
    {Family::FileRead, "file.read"}, {Family::FileWrite, "file.write"},
    {Family::FileOpen, "file.open"}, {Family::Upload, "upload"},
    {Family::Status, "status"},
};

} // namespace

const Facts *AllFacts::begin() const
{
    return table.data();
}

const Facts *AllFacts::end() const
{
    return table.data() + table.size();
}

int count()
{
    return IndexCount;
}

const Facts *factsOf(const QString &name)
{
    static const QHash<QString, const Facts *> byName = [] {
        QHash<QString, const Facts *> map;
        for (const Facts &facts : table) {
            map.insert(facts.name, &facts);
        }
        return map;
    }();
    return byName.value(name);
}

QString familyName(Family family)
{
    for (const FamilyName &each : familyNames) {
        if (each.family == family) {
            return QString::fromLatin1(each.name);
        }
    }
    Q_UNREACHABLE();
    return {};
}

bool isFamily(const QString &name)
{
    return std::any_of(std::begin(familyNames), std::end(familyNames),
                       [&](const FamilyName &each) { return name == QLatin1String(each.name); });
}

bool isPersonal(const Facts &facts)
{
    switch (facts.family) {
    case Family::Card:
    case Family::Face:
    case Family::Finger:
    case Family::Sign:
    case Family::Pages:
    case Family::Upload:
        return true;
    default:
        return std::find(facts.arguments.uses.begin(), facts.arguments.uses.end(), Use::Base64)
            != facts.arguments.uses.end();
    }
}

Text::Text(const QString &text)
    : name(text)
{
    const int open = text.indexOf(QLatin1Char('('));
    if (open >= 0) {
        args = text.mid(open + 1, qMax(0, text.size() - open - 2));
        name.truncate(open);
    }
}

} // namespace commands
