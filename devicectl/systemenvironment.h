// SPDX-License-Identifier: MIT
#pragma once

#include "devicectl/environment.h"

#include <QDeadlineTimer>

/// The machine that devicectl runs on. The server is asked once.
class SystemEnvironment : public Environment
{
public:
    /// \param patience  milliseconds that programs and services may take together
    explicit SystemEnvironment(int patience = 4000);

    void setMeasuredPreview(const std::optional<MeasuredPreview> &measured)
    {
        m_measured = measured;
    }

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
    bool isRoot() const override;
    bool accepts(const QString &address) const override;
    std::optional<QStringList> cardReaders() const override;
    Printer printer(const QString &name) const override;
    bool isCamera(const QString &node) const override;
    std::optional<MeasuredPreview> measuredPreview() const override { return m_measured; }
    bool hasProgram(const QString &name) const override;
    Outcome run(const QString &program, const QStringList &arguments) const override;

private:
    /// For the next program or service, in milliseconds.
    int timeLeft() const;

    QDeadlineTimer m_deadline;
    QString m_statusError;
    std::optional<QJsonObject> m_status;
    Places m_places;
    std::optional<MeasuredPreview> m_measured;
};
