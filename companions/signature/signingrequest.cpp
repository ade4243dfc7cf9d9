// SPDX-License-Identifier: MIT
#include "companions/signature/signingrequest.h"

#include "companions/signature/failure.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QStringList>
#include <QVector>

#include <algorithm>
#include <cmath>

namespace {

constexpr int maxTimeout = 24 * 3600; // seconds
constexpr double maxAspect = 6; // width : height
constexpr double minAspect = 0.6;
constexpr double maxPage = 14400; // points: ISO 32000-1, Annex C.2

SigningFailure bad(const QString &message)
{
    return {SigningFailure::BadRequest, message};
}

QVector<double> numbers(const QString &text)
{
    QVector<double> numbers;
    const QStringList fields = text.split(QLatin1Char(','));
    for (const QString &field : fields) {
        bool isNumber = false;
        numbers << field.trimmed().toDouble(&isNumber);
        if (!isNumber || !(std::abs(numbers.last()) <= maxPage)) { // nor NaN
            throw bad(QStringLiteral("the location holds something that is no sensible number: ")
                      + field.left(40));
        }
    }
    return numbers;
}

} // namespace

void SigningRequest::read(int type, const QByteArray &json)
{
    const QJsonDocument document = QJsonDocument::fromJson(json);
    if (!document.isObject()) {
        throw bad(QStringLiteral("the request is no JSON object"));
    }
    const QJsonObject object = document.object();

    pdfPath = object.value(QLatin1String("pdfpath")).toString();
    xmlPath = object.value(QLatin1String("xmlpath")).toString();
    retain = object.value(QLatin1String("retain")).toString() == QLatin1String("1");
    timeoutSeconds = std::clamp(object.value(QLatin1String("timeout")).toInt(), 0, maxTimeout);
    wholeDocument = type == 2;
    if (pdfPath.isEmpty()) {
        throw bad(QStringLiteral("the request names no PDF"));
    }

    const QVector<double> location = numbers(object.value(QLatin1String("location")).toString());
    if (location.size() < 4) {
        throw bad(QStringLiteral("the location has %1 numbers: it takes page, x, y, width and, if "
                                 "wanted, height")
                      .arg(location.size()));
    }
    page = int(location[0]);
    const double height = location.size() > 4 ? location[4] : location[3] / defaultAspect;
    place = QRectF(location[1], location[2], location[3], height);
    if (page != location[0] || page < 1 || place.isEmpty()) {
        throw bad(QStringLiteral("the location's page is no page number, or its rectangle empty"));
    }
}

double SigningRequest::padAspect() const
{
    return std::clamp(place.width() / place.height(), minAspect, maxAspect);
}

QRectF SigningRequest::inkPlace() const
{
    const double width = std::min(place.width(), place.height() * padAspect());
    QRectF fitted(0, 0, width, width / padAspect());
    fitted.moveCenter(place.center());
    return fitted;
}
