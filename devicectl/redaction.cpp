// SPDX-License-Identifier: MIT
#include "devicectl/redaction.h"

#include "base/logtext.h"
#include "dispatch/commandfacts.h"

#include <QRegularExpression>
#include <QString>
#include <QStringList>

#include <functional>

namespace {

QString leftOut(int characters)
{
    return QStringLiteral("(%1 characters left out)").arg(characters);
}

QString replaced(const QString &text, const QRegularExpression &pattern,
                 const std::function<QString(const QRegularExpressionMatch &)> &by)
{
    QString result;
    int at = 0;
    auto each = pattern.globalMatch(text);
    while (each.hasNext()) {
        const auto match = each.next();
        result += text.mid(at, match.capturedStart() - at) + by(match);
        at = match.capturedEnd();
    }
    return result + text.mid(at);
}

/// A text of a page: "bStartPlay()" stays, "ReadCard(...)" loses its arguments.
QString withoutArguments(const QString &quoted)
{
    static const QRegularExpression plain(
        QStringLiteral("^(?:[-0-9., ]{0,40}|\\d+ characters left out)$"));
    const commands::Text text(quoted);
    if (!commands::factsOf(text.name)) {
        return leftOut(quoted.size());
    }
    return plain.match(text.args).hasMatch() && !commands::isPersonal(*commands::factsOf(text.name))
        ? quoted
        : text.name + leftOut(text.args.size());
}

QString redactedLine(const QString &line)
{
    static const QRegularExpression quoted(QStringLiteral(R"("((?:[^"\\]|\\.)*)(?:"|$))"));
    static const QRegularExpression call(QStringLiteral(R"(([A-Za-z_]\w{3,})\(([^)]*)\)?)"));
    static const QRegularExpression frame(QStringLiteral("Begin\\w.*End\\w*"));
    static const QRegularExpression digits(QStringLiteral(R"((?:\d[ -]?){10,}\d[0-9Xx]?)"));
    static const QRegularExpression longRun(QStringLiteral(R"([A-Za-z0-9+/=_]{64,})"));
    static const QRegularExpression foreign(QStringLiteral("[^\\x00-\\x7f]+"));
    static const QRegularExpression secret(
        QStringLiteral(R"(\b((?:token|pass\w*|pwd|secret|pin|user)\s*[=:]\s*)\S+)"),
        QRegularExpression::CaseInsensitiveOption);
    const auto value = [](const QRegularExpressionMatch &match) {
        return match.captured(1) + leftOut(match.capturedLength() - match.capturedLength(1));
    };
    const auto whole = [](const QRegularExpressionMatch &match) {
        return leftOut(match.capturedLength());
    };
    const auto unlessCommand = [](const QRegularExpressionMatch &match) {
        return commands::factsOf(match.captured(1)) ? withoutArguments(match.captured())
                                                    : match.captured();
    };
    QString text = replaced(line, quoted, [](const QRegularExpressionMatch &match) {
        return QLatin1Char('"') + withoutArguments(match.captured(1)) + QLatin1Char('"');
    });
    text = replaced(replaced(base::withoutSecrets(text), secret, value), call, unlessCommand);
    for (const QRegularExpression &pattern : {frame, digits, longRun, foreign}) {
        text = replaced(text, pattern, whole);
    }
    return text;
}

} // namespace

QByteArray withoutPersonalData(const QByteArray &log)
{
    QStringList lines = QString::fromUtf8(log).split(QLatin1Char('\n'));
    for (QString &line : lines) {
        line = redactedLine(line);
    }
    return lines.join(QLatin1Char('\n')).toUtf8();
}

QByteArray withoutSecretSettings(const QByteArray &ini)
{
    static const QRegularExpression secret(
        QStringLiteral("^([^=]*(?:pass|token|secret|key|user|pin)[^=]*=).*$"),
        QRegularExpression::CaseInsensitiveOption | QRegularExpression::MultilineOption);
    QString text = QString::fromUtf8(ini);
    text.replace(secret, QStringLiteral("\\1(left out)"));
    return base::withoutSecrets(text).toUtf8();
}
