// SPDX-License-Identifier: MIT
#include "portable/base/texts.h"
#include "portable/system/uploader.h"

#include <QRegularExpression>
#include <QUrlQuery>

namespace portable {

namespace {

bool isHttp(const QUrl &address)
{
    return (address.scheme() == QLatin1String("http") || address.scheme() == QLatin1String("https"))
        && !address.host().isEmpty();
}

} // namespace

QUrl uploadAddress(const QString &host, const QString &page, long port, QString *error)
{
    static const QRegularExpression scheme(QStringLiteral("^[A-Za-z][A-Za-z0-9+.-]*://"));
    const QString text = host.trimmed();
    QUrl address(scheme.match(text).hasMatch() ? text : QStringLiteral("http://") + text);
    const int question = page.indexOf(QLatin1Char('?'));
    QString path = page.left(question).trimmed();
    if (!path.isEmpty()) {
        while (path.startsWith(QLatin1Char('/'))) {
            path.remove(0, 1);
        }
        QString folder = address.path(QUrl::FullyEncoded);
        if (!folder.endsWith(QLatin1Char('/'))) {
            folder += QLatin1Char('/');
        }
        address.setPath(folder + path, QUrl::TolerantMode);
    }
    if (question >= 0) {
        address.setQuery(page.mid(question + 1).trimmed(), QUrl::TolerantMode);
    }
    address.setFragment({});
    if (port < 0 || port > 65535) {
        *error = QStringLiteral("there is no port %1").arg(port);
        return {};
    }
    if (port != 0) {
        address.setPort(int(port));
    }
    if (!address.isValid() || !isHttp(address)) {
        *error = QStringLiteral("it is not an http or https URL");
        return {};
    }
    return address;
}

bool mayFollowRedirection(const QUrl &from, const QUrl &to)
{
    const QString secure = QStringLiteral("https");
    const int usualPort = from.scheme() == secure ? 443 : 80;
    const bool isSameServer = from.scheme() == to.scheme() && from.host() == to.host()
        && from.port(usualPort) == to.port(usualPort);
    // The server has set this variable for a device process that an access policy restricts. The
    // policy has decided on the address of the command only.
    return isHttp(to) && (from.scheme() != secure || to.scheme() == secure)
        && (isSameServer || !qEnvironmentVariableIsSet("DEVICEHOST_FOLDERS"));
}

UploadFields uploadFields(const QString &text)
{
    UploadFields fields;
    const auto items = QUrlQuery(text).queryItems(QUrl::FullyDecoded);
    for (const auto &item : items) {
        if (!item.first.isEmpty()) {
            fields.emplace_back(item.first, item.second);
        }
    }
    return fields;
}

QString uploadLabel(const QUrl &address)
{
    return logText(address.toString(QUrl::RemoveUserInfo | QUrl::RemoveQuery | QUrl::RemoveFragment
                                    | QUrl::FullyEncoded));
}

} // namespace portable
