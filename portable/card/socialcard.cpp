// SPDX-License-Identifier: MIT
#include "portable/card/socialcard.h"

#include "portable/card/holdercodes.h"

#include <QDate>
#include <QTextCodec>

namespace portable {

namespace {

/// Name of the application: "sx1.sh." and, in GB 2312, "社会保障".
constexpr char applicationName[] = "sx1.sh.\xC9\xE7\xBB\xE1\xB1\xA3\xD5\xCF";

/// A text in GB 18030, without its padding of zeros or spaces.
QString text(const QByteArray &bytes)
{
    const QByteArray content(bytes.constData(),
                             int(qstrnlen(bytes.constData(), uint(bytes.size()))));
    const QTextCodec *codec = QTextCodec::codecForName("GB18030");
    return (codec ? codec->toUnicode(content) : QString::fromLatin1(content)).trimmed();
}

QString sex(const QByteArray &bytes)
{
    return bytes.size() == 1 ? sexOfCode(bytes[0] - '0') : QString();
}

QString nation(const QByteArray &bytes)
{
    return nationOfCode(bytes.toHex().toInt());
}

/// A date in BCD: year, month, day.
QString date(const QByteArray &bytes)
{
    return QDate::fromString(QString::fromLatin1(bytes.toHex()), QStringLiteral("yyyyMMdd"))
        .toString(Qt::ISODate);
}

struct Field
{
    quint16 file;
    quint8 record;
    const char *key;
    QString (*meaning)(const QByteArray &);
};

constexpr Field fields[] = {
    {0xEF05, 0x05, "validFrom", date},  {0xEF05, 0x06, "validTo", date},
    {0xEF05, 0x07, "cardNumber", text}, {0xEF06, 0x08, "number", text},
    {0xEF06, 0x09, "name", text},       {0xEF06, 0x0A, "sex", sex},
    {0xEF06, 0x0B, "nation", nation},   {0xEF06, 0x0D, "birthDate", date},
};

/// The value of a record, which is its number, a length and the value; empty if malformed.
QByteArray valueOf(const QByteArray &record, int number)
{
    if (record.size() < 2 || quint8(record[0]) != number) {
        return {};
    }
    const int length = quint8(record[1]);
    return length <= record.size() - 2 ? record.mid(2, length) : QByteArray();
}

} // namespace

QJsonObject readSocialCard(CardChannel &card, QString *error)
{
    const auto fail = [&](const QString &reason) {
        *error = card.failure().isEmpty() ? reason : card.failure();
        return QJsonObject();
    };
    const CardResponse application = card.selectByName(applicationName);
    if (!application.isOk()) {
        return fail(QStringLiteral("it has no social security application (%1)")
                        .arg(application.statusText()));
    }
    QJsonObject result;
    QString refusal;
    quint16 selectedFile = 0;
    CardResponse selected;
    for (const Field &field : fields) {
        if (field.file != selectedFile) {
            selected = card.selectFile(field.file);
            selectedFile = field.file;
        }
        const CardResponse record =
            selected.isOk() ? card.readRecordOfSelectedFile(field.record) : selected;
        if (!record.isOk()) {
            refusal = record.statusText();
            continue;
        }
        const QString value = field.meaning(valueOf(record.data, field.record));
        if (!value.isEmpty()) {
            result.insert(QLatin1String(field.key), value);
        }
    }
    if (!result.contains(QLatin1String("number"))) {
        return fail(
            refusal.isEmpty()
                ? QStringLiteral("its holder's number is missing")
                : QStringLiteral("it doesn't give its basic data without a key (%1)").arg(refusal));
    }
    return result;
}

} // namespace portable
