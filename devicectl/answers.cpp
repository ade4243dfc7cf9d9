// SPDX-License-Identifier: MIT
#include "devicectl/answers.h"

#include "dispatch/failureresult.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QStringList>

std::optional<Answer> answerFrom(const QString &text)
{
    for (int at = text.lastIndexOf(QLatin1String("End")); at > 0;
         at = text.lastIndexOf(QLatin1String("End"), at - 1)) { // a name may contain it
        const QString name = text.mid(at + 3);
        const QString begin = QLatin1String("Begin") + name;
        if (!name.isEmpty() && text.startsWith(begin) && begin.size() <= at) {
            return Answer{name, text.mid(begin.size(), at - begin.size())};
        }
        if (text.size() - at > 200) { // no name is that long
            break;
        }
    }
    const QJsonObject object = QJsonDocument::fromJson(text.toUtf8()).object();
    const QString name = object.value(QStringLiteral("funcname")).toString();
    if (name.isEmpty()) {
        return {};
    }
    const bool isGood = object.value(QStringLiteral("code")).toString() == QLatin1String("1");
    return Answer{
        name, isGood ? object.value(QStringLiteral("data")).toString() : QStringLiteral("false")};
}

bool isFrame(const QString &text)
{
    return text.startsWith(QLatin1String("/9j/"));
}

bool isFailure(const Answer &answer)
{
    // These answer a constant, with or without a device; "true" is that of many others.
    const QStringList constants{QStringLiteral("version"), QStringLiteral("getVersion"),
                                QStringLiteral("sGetTempPath")};
    const auto failure = failureResult(answer.name);
    return answer.result == QLatin1String("false")
        || (failure && *failure != QLatin1String("true") && answer.result == *failure
            && !constants.contains(answer.name));
}

QByteArray bytesOf(const QString &result)
{
    static const QRegularExpression base64(QStringLiteral("^[A-Za-z0-9+/\\s]{16,}={0,2}\\s*$"));
    const QString text =
        result.startsWith(QLatin1String("data:")) ? result.section(QLatin1Char(','), 1) : result;
    return base64.match(text).hasMatch() ? QByteArray::fromBase64(text.toLatin1()) : QByteArray();
}
