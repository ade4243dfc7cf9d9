// SPDX-License-Identifier: MIT
/// \file A terminal for tests of devicectl: what it looks at is in members, which tests change.
#pragma once

#include "devicectl/environment.h"
#include "tests/files.h"

QJsonObject object(const char *json);

/// The status of a server that lacks nothing, with one page.
QJsonObject healthyStatus();

/// A terminal on which everything is right, until a test changes something.
class FakeTerminal : public Environment
{
public:
    FakeTerminal();

    void add(const QByteArray &path, int mode);

    Places places() const override
    {
        return {{line("/d"), line("/etc/x"), line("/p")}, line("/d/log")};
    }
    std::optional<QJsonObject> status() const override { return m_status; }
    accesspolicy::FoundPolicy policy() const override { return m_policy; }
    QDateTime now() const override { return m_now; }
    QString variable(const char *name) const override { return m_variables.value(line(name)); }
    FileFacts facts(const QString &path) const override { return m_files.value(path); }
    QByteArray end(const QString &path, qint64 most) const override
    {
        return m_contents.value(path).right(int(most));
    }
    QStringList entries(const QString &folder) const override;
    qint64 freeBytes(const QString &) const override { return m_free; }
    QVector<Process> processes() const override { return m_processes; }
    QVector<qint64> holders(const QString &file) const override { return m_holders.value(file); }
    bool isRoot() const override { return false; }
    bool accepts(const QString &address) const override { return m_listening.contains(address); }
    std::optional<QStringList> cardReaders() const override { return m_readers; }
    Printer printer(const QString &name) const override
    {
        return name.isEmpty() ? m_printer : Printer{m_printer.isAnswered};
    }
    bool isCamera(const QString &node) const override { return !m_decoders.contains(node); }
    std::optional<MeasuredPreview> measuredPreview() const override { return m_measured; }
    bool hasProgram(const QString &name) const override { return m_programs.contains(name); }
    Outcome run(const QString &program, const QStringList &) const override
    {
        return {m_outputs.contains(program), m_isLate, 0, m_outputs.value(program)};
    }

    std::optional<QJsonObject> m_status;
    accesspolicy::FoundPolicy m_policy;
    QDateTime m_now{QDate(2026, 11, 22), QTime(12, 0)};
    QMap<QString, QString> m_variables{{line("DISPLAY"), line(":0")},
                                       {line("XAUTHORITY"), line("/home/t/.Xauthority")}};
    QMap<QString, FileFacts> m_files;
    QMap<QString, QByteArray> m_contents;
    qint64 m_free = qint64(20) << 30;
    QVector<Process> m_processes;
    QMap<QString, QVector<qint64>> m_holders;
    QStringList m_programs = words("ps pdftoppm xdg-open chromium");
    QMap<QString, QString> m_outputs{{line("fc-list"), line("/usr/share/fonts/wqy.ttc")}};
    bool m_isLate = false;
    QStringList m_listening = words("/run/pcscd/pcscd.comm /tmp/.X11-unix/X0");
    std::optional<QStringList> m_readers{words("CCID")};
    Printer m_printer{true, line("office")};
    QStringList m_decoders;
    std::optional<MeasuredPreview> m_measured;
};
