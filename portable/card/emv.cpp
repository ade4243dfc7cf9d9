// SPDX-License-Identifier: MIT
#include "portable/card/emv.h"

#include "portable/card/tlv.h"

#include <algorithm>
#include <vector>

namespace portable {

namespace {

constexpr int maxRecords = 48; // read from one application; real ones have 3 to 12
constexpr size_t maxApplications = 12;

// EMV Book 3, annex A
constexpr quint32 tagApplication = 0x4F;
constexpr quint32 tagTrack2 = 0x57;
constexpr quint32 tagNumber = 0x5A;
constexpr quint32 tagExpiry = 0x5F24;
constexpr quint32 tagDirectoryEntry = 0x61;
constexpr quint32 tagFormat1 = 0x80;
constexpr quint32 tagPriority = 0x87;
constexpr quint32 tagDirectoryFile = 0x88;
constexpr quint32 tagFileLocator = 0x94;
constexpr quint32 tagTerminalQualifiers = 0x9F66; // EMV contactless, Book A
constexpr quint32 tagPdol = 0x9F38;

/// Debit and credit applications of the payment schemes, for cards without a directory.
constexpr const char *knownApplications[] = {
    "A000000333010101", "A000000333010102", "A000000333010103", "A000000333010106",
    "A0000000031010",   "A0000000041010",   "A0000000651010",   "A00000002501",
};

/// What has been read from the card so far.
struct BankCard
{
    QString number;
    QString expiry;

    bool isComplete() const { return !number.isEmpty() && !expiry.isEmpty(); }
};

quint8 byteAt(const QByteArray &bytes, int place)
{
    return quint8(bytes[place]);
}

/// "2030-12" for "3012"; empty for anything that isn't a year and month.
QString expiryOf(const QString &yearMonth)
{
    bool isNumber = false;
    yearMonth.toUInt(&isNumber);
    const int month = yearMonth.mid(2, 2).toInt();
    if (!isNumber || yearMonth.size() != 4 || month < 1 || month > 12) {
        return {};
    }
    return QStringLiteral("20%1-%2").arg(yearMonth.left(2), yearMonth.mid(2));
}

/// A card number without its padding of F; empty for anything else.
QString numberOf(QString digits)
{
    while (digits.endsWith(QLatin1Char('f'))) {
        digits.chop(1);
    }
    const bool isNumber = digits.size() >= 12 && digits.size() <= 19
        && std::all_of(digits.begin(), digits.end(), [](QChar digit) {
                              return digit >= QLatin1Char('0') && digit <= QLatin1Char('9');
                          });
    return isNumber ? digits : QString();
}

QString hex(const QByteArray &bytes)
{
    return QString::fromLatin1(bytes.toHex());
}

/// Adds the number and expiry in a record, or in the response to GET PROCESSING OPTIONS.
void addDataOf(const QByteArray &data, BankCard *card)
{
    const auto set = [](QString *field, const QString &value) {
        if (field->isEmpty()) {
            *field = value;
        }
    };
    set(&card->number, numberOf(hex(findTlv(data, tagNumber))));
    set(&card->expiry, expiryOf(hex(findTlv(data, tagExpiry)).left(4)));
    // Track 2: the number, D, year and month, and more that isn't needed.
    const QString track2 = hex(findTlv(data, tagTrack2));
    const int separator = track2.indexOf(QLatin1Char('d'));
    if (separator > 0) {
        set(&card->number, numberOf(track2.left(separator)));
        set(&card->expiry, expiryOf(track2.mid(separator + 1, 4)));
    }
}

struct Application
{
    QByteArray identifier;
    int priority = 0; // 1 is the highest; 0: none is given
};

void addApplications(const QByteArray &directory, std::vector<Application> *applications)
{
    for (const QByteArray &entry : findAllTlv(directory, tagDirectoryEntry)) {
        const QByteArray identifier = findTlv(entry, tagApplication);
        const QByteArray priority = findTlv(entry, tagPriority);
        if (identifier.size() >= 5 && identifier.size() <= 16
            && applications->size() < maxApplications) {
            applications->push_back(
                {identifier, priority.isEmpty() ? 0 : byteAt(priority, 0) & 0x0F});
        }
    }
}

/// The applications in the directory of that name, by priority.
std::vector<Application> directory(CardChannel &card, const char *name)
{
    std::vector<Application> applications;
    const CardResponse response = card.selectByName(name);
    if (!response.isOk()) {
        return applications;
    }
    addApplications(response.data, &applications); // contactless cards list them here,
    const QByteArray file = findTlv(response.data, tagDirectoryFile); // contact cards in a file
    if (!file.isEmpty() && byteAt(file, 0) >= 1 && byteAt(file, 0) <= 30) {
        for (int number = 1; number <= maxRecords; ++number) {
            const CardResponse record = card.readRecord(number, byteAt(file, 0));
            if (!record.isOk()) {
                break;
            }
            addApplications(record.data, &applications);
        }
    }
    const auto rank = [](const Application &application) {
        return application.priority == 0 ? 16 : application.priority;
    };
    std::stable_sort(applications.begin(), applications.end(),
                     [&](const Application &a, const Application &b) { return rank(a) < rank(b); });
    return applications;
}

std::vector<Application> applicationsOf(CardChannel &card, bool contactlessFirst)
{
    const char *const contact = "1PAY.SYS.DDF01";
    const char *const contactless = "2PAY.SYS.DDF01";
    auto applications = directory(card, contactlessFirst ? contactless : contact);
    if (applications.empty()) {
        applications = directory(card, contactlessFirst ? contact : contactless);
    }
    if (applications.empty()) {
        for (const char *known : knownApplications) {
            applications.push_back({QByteArray::fromHex(known), 0});
        }
    }
    return applications;
}

/// The data of GET PROCESSING OPTIONS that the card's PDOL asks for; empty if it is malformed.
QByteArray processingOptionsData(const QByteArray &pdol)
{
    std::vector<DolEntry> entries;
    if (!parseDol(pdol, &entries)) {
        return {};
    }
    QByteArray values;
    for (const DolEntry &entry : entries) {
        if (entry.length > 252 - values.size()) {
            return {};
        }
        QByteArray value(entry.length, 0); // no amount, no country, no date
        if (entry.tag == tagTerminalQualifiers && entry.length == 4) {
            // EMV mode, online PIN, signature. A card refuses a terminal that supports nothing.
            value = QByteArray::fromHex("26000000");
        }
        values += value;
    }
    // Lengths from 128 on take two bytes (ISO/IEC 8825-1, 8.1.3.5).
    const char *const tag = values.size() < 128 ? "83" : "8381";
    return QByteArray::fromHex(tag) + char(values.size()) + values;
}

/// The list of records in the response to GET PROCESSING OPTIONS, which has one of two formats.
QByteArray fileLocator(const QByteArray &response)
{
    const QByteArray plain = findTlv(response, tagFormat1);
    return plain.isEmpty() ? findTlv(response, tagFileLocator) : plain.mid(2);
}

/// Reads the listed records until number and expiry are known.
void readRecords(CardChannel &channel, const QByteArray &locator, BankCard *card)
{
    int left = maxRecords;
    for (int place = 0; place + 4 <= locator.size(); place += 4) {
        const int file = byteAt(locator, place) >> 3;
        const int first = byteAt(locator, place + 1);
        const int last = byteAt(locator, place + 2);
        if (file < 1 || file > 30 || first < 1) {
            continue;
        }
        for (int number = first; number <= last && !card->isComplete() && left > 0;
             ++number, --left) {
            const CardResponse record = channel.readRecord(number, file);
            if (record.isOk()) {
                addDataOf(record.data, card);
            }
        }
    }
}

/// Reads one application. \return false without a card number, with the reason in `error`
bool readApplication(CardChannel &channel, const QByteArray &identifier, BankCard *card,
                     QString *error)
{
    const CardResponse selected = channel.selectByName(identifier);
    if (!selected.isOk()) {
        return false; // keep the more useful reason of an earlier application
    }
    const QByteArray data = processingOptionsData(findTlv(selected.data, tagPdol));
    if (data.isEmpty()) {
        *error = QStringLiteral("its list of transaction data (PDOL) is malformed");
        return false;
    }
    const CardResponse started =
        channel.send({0x80, 0xA8, 0x00, 0x00, data}); // GET PROCESSING OPTIONS
    if (!started.isOk()) {
        *error =
            QStringLiteral("its payment application doesn't start (%1)").arg(started.statusText());
        return false;
    }
    *card = {};
    addDataOf(started.data, card);
    readRecords(channel, fileLocator(started.data), card);
    if (card->number.isEmpty()) {
        *error = QStringLiteral("none of its records has a card number");
        return false;
    }
    return true;
}

} // namespace

QJsonObject readBankCard(CardChannel &card, bool contactlessFirst, QString *error)
{
    *error = QStringLiteral("it has no payment application");
    for (const Application &application : applicationsOf(card, contactlessFirst)) {
        BankCard found;
        if (readApplication(card, application.identifier, &found, error)) {
            QJsonObject fields{{QStringLiteral("number"), found.number}};
            if (!found.expiry.isEmpty()) {
                fields.insert(QStringLiteral("expiry"), found.expiry);
            }
            return fields;
        }
    }
    if (!card.failure().isEmpty()) {
        *error = card.failure();
    }
    return {};
}

} // namespace portable
