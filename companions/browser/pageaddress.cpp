// SPDX-License-Identifier: MIT
#include "companions/browser/pageaddress.h"

#include <QDir>
#include <QFileInfo>

namespace {

QString shortened(const QString &text)
{
    constexpr int maxLength = 200;
    return text.size() <= maxLength ? text : text.left(maxLength) + QStringLiteral("...");
}

PageAddress refused(const QString &why, const QString &what)
{
    return {QUrl(), why + QStringLiteral(": ") + shortened(what)};
}

bool isLocal(const QUrl &url)
{
    return url.host().isEmpty() || url.host() == QLatin1String("localhost");
}

} // namespace

QString PageAddress::shown() const
{
    return shortened(url.isLocalFile() ? url.toLocalFile()
                                       : url.toDisplayString(QUrl::RemoveFragment));
}

PageAddress pageAddress(const QString &text)
{
    const QString trimmed = text.trimmed();
    PageAddress address;
    if (trimmed.startsWith(QLatin1Char('/'))) { // two slashes would start a host name
        address.url = QUrl::fromLocalFile(QDir::cleanPath(QLatin1Char('/') + trimmed));
    } else {
        address.url = QUrl(trimmed);
    }

    const QString scheme = address.url.scheme();
    if (scheme == QLatin1String("file")) {
        if (!isLocal(address.url) || !QFileInfo(address.url.path()).isFile()) {
            return refused(QStringLiteral("no such file"), trimmed);
        }
        return address;
    }
    const bool isWeb = scheme == QLatin1String("http") || scheme == QLatin1String("https");
    if (!isWeb || address.url.host().isEmpty()) {
        return refused(QStringLiteral("neither an absolute path nor a file:, http: or https: URL"),
                       trimmed);
    }
    return address;
}

QByteArray withData(const QUrl &url, const QString &data)
{
    QByteArray fragment = url.fragment(QUrl::FullyEncoded).toLatin1();
    if (!fragment.isEmpty()) {
        fragment += '&';
    }
    return url.toEncoded(QUrl::RemoveFragment) + '#' + fragment
        + "data=" + QUrl::toPercentEncoding(data);
}
