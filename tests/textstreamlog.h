// SPDX-License-Identifier: MIT
#pragma once

#include <QDateTime>
#include <QFile>
#include <QTextStream>

#include <functional>
#include <utility>

/**
 * Reference implementation of the log file: a text stream for each line, the file's name and size
 * determined every time. The log must write the same bytes; the benchmark compares their speed.
 */
class TextStreamLog
{
public:
    TextStreamLog(QString folder, qint64 maxSize, std::function<qint64()> clock)
        : m_folder(std::move(folder))
        , m_maxSize(maxSize)
        , m_clock(std::move(clock))
    {
    }

    void write(const QString &text)
    {
        const QString today = fileName(QStringLiteral("yyyy-MM-dd"));
        if (today != m_currentFileName) {
            m_currentFileName = today;
            m_file.close();
            m_file.setFileName(today);
            m_file.open(QFile::WriteOnly | QFile::Append | QFile::Text);
        }
        QTextStream stream(&m_file);
        stream << text << "\n";
        if (m_file.size() > m_maxSize) {
            m_file.rename(fileName(QStringLiteral("yyyy-MM-dd-hhmmss")));
            m_file.close();
            m_currentFileName.clear();
        }
    }

private:
    QString fileName(const QString &format) const
    {
        return QStringLiteral("%1/vx_log_%2.txt")
            .arg(m_folder, QDateTime::fromMSecsSinceEpoch(m_clock()).toString(format));
    }

    const QString m_folder;
    const qint64 m_maxSize;
    const std::function<qint64()> m_clock;
    QFile m_file;
    QString m_currentFileName;
};
