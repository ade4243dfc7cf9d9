// SPDX-License-Identifier: MIT
#pragma once

#include "devicectl/environment.h"

/// The machine that devicectl runs on. The server is asked once.
class SystemEnvironment : public Environment
{
public:
    SystemEnvironment();

    /// Why the server doesn't answer; empty if it does.
    QString statusError() const { return m_statusError; }

    Places places() const override { return m_places; }
    std::optional<QJsonObject> status() const override { return m_status; }
    accesspolicy::FoundPolicy policy() const override;
    QDateTime now() const override { return QDateTime::currentDateTime(); }
    QString variable(const char *name) const override;
    FileFacts facts(const QString &path) const override;
    QByteArray end(const QString &path, qint64 most) const override;
    QStringList entries(const QString &folder) const override;
    qint64 freeBytes(const QString &folder) const override;
    QVector<Process> processes() const override;
    QVector<qint64> holders(const QString &file) const override;
    bool hasProgram(const QString &name) const override;
    Outcome run(const QString &program, const QStringList &arguments) const override;

private:
    QString m_statusError;
    std::optional<QJsonObject> m_status;
    Places m_places;
};
