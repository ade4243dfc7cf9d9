// SPDX-License-Identifier: MIT
#include "portable/card/socialcard.h"

#include <QDate>
#include <QTextCodec>

#include <iterator>

namespace portable {

namespace {

/// Name of the application: "sx1.sh." and, in GB 2312, "社会保障".
constexpr char applicationName[] = "sx1.sh.\xC9\xE7\xBB\xE1\xB1\xA3\xD5\xCF";

/// GB/T 3304: the nationalities of China by code, from 01.
constexpr const char *nations[] = {
    "汉",     "蒙古",   "回",       "藏",     "维吾尔",   "苗",   "彝",     "壮",
    "布依",   "朝鲜",   "满",       "侗",     "瑶",       "白",   "土家",   "哈尼",
    "哈萨克", "傣",     "黎",       "傈僳",   "佤",       "畲",   "高山",   "拉祜",
    "水",     "东乡",   "纳西",     "景颇",   "柯尔克孜", "土",   "达斡尔", "仫佬",
    "羌",     "布朗",   "撒拉",     "毛南",   "仡佬",     "锡伯", "阿昌",   "普米",
    "塔吉克", "怒",     "乌孜别克", "俄罗斯", "鄂温克",   "德昂", "保安",   "裕固",
    "京",     "塔塔尔", "独龙",     "鄂伦春", "赫哲",     "门巴", "珞巴",   "基诺",
};

/// A text in GB 18030, without its padding of zeros or spaces.
QString text(const QByteArray &bytes)
{
    const QByteArray content(bytes.constData(),
                             int(qstrnlen(bytes.constData(), uint(bytes.size()))));
    const QTextCodec *codec = QTextCodec::codecForName("GB18030");
    return (codec ? codec->toUnicode(content) : QString::fromLatin1(content)).trimmed();
}

/// GB/T 2261.1
QString sex(const QByteArray &bytes)
{
    return bytes == "1" ? QStringLiteral("男") : bytes == "2" ? QStringLiteral("女") : QString();
}

QString nation(const QByteArray &bytes)
{
    const int code = bytes.toHex().toInt();
    const int count = int(std::size(nations));
    return code >= 1 && code <= count ? QString::fromUtf8(nations[code - 1]) : QString();
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
