// SPDX-License-Identifier: MIT
// What an access policy costs a text: parsing and looking up alone, with a policy, and with an
// audit.
#include "access/accesscontrol.h"
#include "bench/ratios.h"
#include "dispatch/commandfacts.h"
#include "tests/accesspolicy.h"
#include "tests/manualclock.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <unistd.h>

namespace {

const char *const texts[] = {"bStartPlay()", "bSaveJPG(%1,scan1)", "Base64Encode(%1/scan1.jpg)"};

void writeFile(const QString &path, const QByteArray &content)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size()) {
        qFatal("%s", qPrintable(file.errorString()));
    }
}

/// A policy like the one in docs/access.md, and a page that it admits.
class Terminal
{
public:
    explicit Terminal(const QString &audit)
    {
        m_folder.setAutoRemove(true);
        const QString scans = m_folder.filePath(QStringLiteral("scan"));
        QDir().mkpath(scans);
        writeFile(scans + QStringLiteral("/scan1.jpg"), "picture");
        QDir().mkpath(m_folder.filePath(QStringLiteral("etc")));
        const QString file = m_folder.filePath(QStringLiteral("etc/access.ini"));
        writeFile(file,
                  policyText(QStringLiteral("[limits] commands_per_second=1000000 "
                                            "[grant.a] origin=https://a.example, "
                                            "https://counter.bank.example|"
                                            "allow=camera, capture, file.read [files] "
                                            "read=~/none, /var/none, %1|write=~/none, %1|"
                                            "deny_extensions=sh, desktop, so, ini, py %2")
                                 .arg(scans, audit)));
        m_access = std::make_unique<accesspolicy::AccessControl>(
            accesspolicy::PolicyPlaces{file, getuid(), {}, {}}, m_folder.path(), QString());
        m_access->start();
        for (const char *text : texts) {
            m_texts << QString::fromLatin1(text).replace(QStringLiteral("%1"), scans);
        }
    }

    void carryOut(int which)
    {
        const auto passage = m_access->atText(m_visitor, m_texts[which]);
        if (!passage.isOpen) {
            qFatal("refused: %s", qPrintable(m_texts[which]));
        }
    }

    const QString &text(int which) const { return m_texts[which]; }

private:
    QTemporaryDir m_folder;
    QStringList m_texts;
    std::unique_ptr<accesspolicy::AccessControl> m_access;
    accesspolicy::Visitor m_visitor{
        *accesspolicy::originFrom(QStringLiteral("https://counter.bank.example")), QString(),
        std::make_shared<accesspolicy::VisitorCounts>()};
};

void BM_without(benchmark::State &state)
{
    const Terminal terminal{QString()};
    for (auto _ : state) {
        const commands::Text text(terminal.text(int(state.range(0))));
        benchmark::DoNotOptimize(commands::factsOf(text.name));
    }
}
BENCHMARK(BM_without)->DenseRange(0, 2);

void BM_policy(benchmark::State &state)
{
    Terminal terminal{QString()};
    for (auto _ : state) {
        terminal.carryOut(int(state.range(0)));
    }
}
BENCHMARK(BM_policy)->DenseRange(0, 2);

void BM_audit(benchmark::State &state)
{
    ManualClock clock; // or lines would only be counted
    base::Clock::setShared(&clock);
    Terminal terminal{QStringLiteral("[audit] file=audit.log")};
    for (auto _ : state) {
        clock.advance(std::chrono::seconds(1));
        terminal.carryOut(int(state.range(0)));
    }
    base::Clock::setShared(nullptr);
}
BENCHMARK(BM_audit)->DenseRange(0, 2);

} // namespace

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    qInstallMessageHandler([](QtMsgType type, const QMessageLogContext &, const QString &text) {
        if (type == QtFatalMsg) {
            std::fprintf(stderr, "%s\n", qPrintable(text));
        }
    });
    const RatioRun run(argc, argv);
    run.printRatio("a text: with a policy / without", "BM_policy/0", "BM_without/0", 100);
    run.printRatio("a path: with a policy / without", "BM_policy/2", "BM_without/2", 200);
}
