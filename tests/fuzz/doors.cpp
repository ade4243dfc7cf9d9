// SPDX-License-Identifier: MIT
//
// The doors of the access policy: heads of handshakes, command texts and policies, and whether what
// passes may.
#include "access/doorkeeper.h"
#include "access/realpath.h"
#include "dispatch/commandfacts.h"
#include "tests/accesspolicy.h"
#include "tests/fuzz/fuzztarget.h"

#include <QDir>
#include <QFile>

using namespace accesspolicy;
using commands::Use;

namespace {

constexpr char allowedOrigin[] = "https://counter.bank.example";
std::unique_ptr<Doorkeeper> s_doorkeeper;
std::shared_ptr<VisitorCounts> s_counts = std::make_shared<VisitorCounts>();

QByteArray scans()
{
    return QFile::encodeName(fuzz::folder()) + "/scan";
}

void checkHead(const QByteArray &head)
{
    const Handshake handshake = handshakeFrom(head);
    Origin origin;
    const auto refusal = s_doorkeeper->atHandshake(
        {handshake, QHostAddress(QHostAddress::LocalHost), *s_counts}, &origin);
    fuzz::require(refusal || origin.text() == QLatin1String(allowedOrigin),
                  "only the listed origin gets in");
    fuzz::require(refusal || handshake.problem.isEmpty(), "a head with a problem is refused");
}

bool isFileUse(Use use)
{
    return use == Use::ReadFile || use == Use::WriteFile || use == Use::DeleteFile
        || use == Use::MoveFile || use == Use::ReadFolder || use == Use::WriteFolder
        || use == Use::UploadFile;
}

void checkText(const QString &text)
{
    Visitor visitor(*originFrom(QString::fromLatin1(allowedOrigin)), QString(), s_counts);
    const Doorkeeper::Decision decision = s_doorkeeper->atText(visitor, text);
    if (decision.refusal || !decision.facts) {
        return;
    }
    const commands::Text passed(decision.message);
    fuzz::require(passed.name == decision.facts->name, "the name stays");
    const commands::ArgumentUses &uses = decision.facts->arguments;
    const QStringList arguments =
        uses.isWhole ? QStringList{passed.args} : passed.args.split(QLatin1Char(','));
    for (int i = 0; i < uses.count && i < arguments.size(); ++i) {
        if (!isFileUse(uses.uses[std::size_t(i)]) || arguments[i].isEmpty()) {
            continue;
        }
        const QByteArray path = QFile::encodeName(arguments[i]);
        RealPath real = realPath(path, LastLink::Keep);
        if (!real.problem.isEmpty()) { // not even its folder exists
            real = realPath(path, LastLink::Follow);
        }
        fuzz::require(real.problem.isEmpty() && real.path == path, "what passes is a real path");
        fuzz::require(isWithin(path, scans()), "what passes lies in the policy's folder");
    }
}

void checkPolicy(const QByteArray &text)
{
    PolicyError error;
    const auto policy = parsePolicy(text, QStringLiteral("access.ini"), {}, &error);
    fuzz::require(policy || !error.text().isEmpty(), "a reason is given");
}

} // namespace

void fuzz::prepare()
{
    QDir().mkpath(QFile::decodeName(scans() + "/inner"));
    QFile file(QFile::decodeName(scans() + "/a.jpg"));
    require(file.open(QIODevice::WriteOnly), "the fuzz target writes its file");
    QFile::link(QStringLiteral("/etc"), QFile::decodeName(scans() + "/etc"));
    QFile::link(QStringLiteral("../.."), QFile::decodeName(scans() + "/up"));
    QFile::link(QStringLiteral("/etc/passwd"), QFile::decodeName(scans() + "/b.jpg"));
    const QString sections = QStringLiteral(
        "[grant.a] origin=%1|allow=camera, capture, document, card, face, finger, print, sign, "
        "pages, file.read, file.write, file.open, upload, status, relay, pagedata "
        "[files] read=%2|write=%2|delete=%2|deny_extensions=sh "
        "[upload] hosts=https://ecm.example [pages] addresses=own "
        "[limits] commands_per_second=1000000");
    s_doorkeeper = std::make_unique<Doorkeeper>(
        policyOf(sections.arg(QLatin1String(allowedOrigin), QFile::decodeName(scans()))),
        QStringLiteral("/nowhere"));
}

void fuzz::run(const QByteArray &input)
{
    Fields fields(input);
    switch (fields.byte() % 3) {
    case 0:
        checkHead(fields.rest());
        break;
    case 1:
        checkText(QString::fromUtf8(fields.rest()).replace(QLatin1String("~"), folder()));
        break;
    default:
        checkPolicy(fields.rest());
    }
}

QList<QByteArray> fuzz::seeds()
{
    const QByteArray head =
        "GET /?token=a%20b HTTP/1.1\r\nHost: localhost:1818\r\nUpgrade: "
        "websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Protocol: token.ab\r\n";
    QList<QByteArray> seeds{
        QByteArray(1, '\0') + head + "Origin: https://counter.bank.example\r\n\r\n",
        QByteArray(1, '\0') + head + "Origin: null\r\n\r\n",
        QByteArray(1, '\2')
            + policyText(QStringLiteral(
                "mode=report|[listen] addresses=any, 127.0.0.1|[origin] allow=file, "
                "https://*.gov.example:8443 [host] allow=[::1] [limits] clients=3 [preview] "
                "stop_on_leave=owner [log] personal=show|max_chars=9 [audit] file=a|chain=true")),
    };
    for (const commands::Facts &facts : commands::all()) {
        const bool isWhole = facts.arguments.isWhole;
        for (const char *path :
             {"~/scan/a.jpg", "~/scan/b.jpg", "~/scan/etc/passwd", "~/scan/up/x"}) {
            QByteArray arguments = path;
            for (int i = 1; i < facts.arguments.count && !isWhole; ++i) {
                arguments += QByteArray(",") + path;
            }
            seeds << '\1' + QByteArray(facts.name.data()) + '(' + arguments + ')';
        }
    }
    return seeds;
}
