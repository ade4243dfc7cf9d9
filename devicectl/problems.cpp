// SPDX-License-Identifier: MIT
#include "devicectl/problems.h"

#include <QJsonDocument>
#include <QJsonObject>

void printProblem(const QString &text, bool isJson, QTextStream &out, QTextStream &error)
{
    if (isJson) {
        const QJsonDocument document(QJsonObject{{QStringLiteral("error"), text}});
        out << QString::fromUtf8(document.toJson(QJsonDocument::Compact)) << '\n';
    } else {
        error << text << '\n';
    }
}
