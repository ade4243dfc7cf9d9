// SPDX-License-Identifier: MIT
#include "devicectl/prometheus.h"

#include <QJsonArray>
#include <QStringList>

namespace {

/// A figure of the report: where it is, its name, its kind, its scale to base units.
struct Figure
{
    const char *path; ///< members, separated by "."
    const char *name; ///< behind "rvowebsocketserver_"
    const char *type;
    double factor;
    const char *help;
};

constexpr double kibibyte = 1024;
constexpr double millisecond = 0.001;

// clang-format off
constexpr Figure figures[] = {
    {"uptimeSeconds", "uptime_seconds", "gauge", 1, "Time since the start of the server."},
    {"simulation", "simulation", "gauge", 1, "Whether missing devices are simulated."},
    {"mainThread.answers", "main_thread_answers", "gauge", 1, "Whether the main thread was free to answer."},
    {"mainThread.forMs", "command_seconds", "gauge", millisecond, "Duration of the command under way."},
    {"memory.residentKiB", "resident_bytes", "gauge", kibibyte, "Memory of the server."},
    {"queues.bytesOfTexts", "queued_text_bytes", "gauge", 1, "Texts of pages that wait to be carried out."},
    {"queues.unreadBytes", "unread_bytes", "gauge", 1, "Bytes that pages have still to read."},
    {"pageCount", "pages", "gauge", 1, "Pages that are connected."},
    {"camera.source", "camera_source", "gauge", 1, "Number of the open camera, 0 for none."},
    {"camera.framesPerSecond", "camera_frames_per_second", "gauge", 1, "Frames that the camera delivers."},
    {"camera.framesFetched", "camera_frames_total", "counter", 1, "Frames delivered by the device."},
    {"camera.framesPushed", "camera_frames_pushed_total", "counter", 1, "Frames pushed to pages."},
    {"camera.framesDropped", "camera_frames_dropped_total", "counter", 1, "Frames dropped before encoding."},
    {"camera.framesFailed", "camera_frames_failed_total", "counter", 1, "Frames that the device did not deliver."},
    {"camera.fetchMs", "frame_fetch_seconds", "gauge", millisecond, "Mean time of a frame in the device library."},
    {"camera.encodeMs", "frame_encode_seconds", "gauge", millisecond, "Mean time to encode a frame."},
    {"camera.sendMs", "frame_send_seconds", "gauge", millisecond, "Mean time to send a frame to all pages."},
    {"deviceProcess.restarts", "device_process_restarts_total", "counter", 1, "Restarts of the device process."},
    {"deviceProcess.runningSeconds", "device_process_uptime_seconds", "gauge", 1, "Time since its latest start."},
    {"deviceProcess.residentKiB", "device_process_resident_bytes", "gauge", kibibyte, "Memory of the device process."},
};
// clang-format on

QByteArray quoted(const QString &value)
{
    QString text = value;
    text.replace(QLatin1Char('\\'), QLatin1String("\\\\"));
    text.replace(QLatin1Char('"'), QLatin1String("\\\""));
    text.replace(QLatin1Char('\n'), QLatin1String("\\n"));
    return '"' + text.toUtf8() + '"';
}

class Exposition
{
public:
    void head(const char *name, const char *type, const char *help)
    {
        m_text += QByteArray("# HELP rvowebsocketserver_") + name + ' ' + help
            + "\n# TYPE rvowebsocketserver_" + name + ' ' + type + '\n';
    }
    void sample(const char *name, double value, const QByteArray &labels = {})
    {
        m_text += QByteArray("rvowebsocketserver_") + name
            + (labels.isEmpty() ? "" : '{' + labels + '}') + ' '
            + QByteArray::number(value, 'g', 15) + '\n';
    }
    void single(const char *name, const char *type, const char *help, double value,
                const QByteArray &labels = {})
    {
        head(name, type, help);
        sample(name, value, labels);
    }
    QByteArray text() const { return m_text; }

private:
    QByteArray m_text;
};

QJsonValue valueAt(const QJsonObject &status, const char *path)
{
    QJsonValue value = status;
    const auto names = QString::fromLatin1(path).split(QLatin1Char('.'));
    for (const QString &name : names) {
        value = value.toObject().value(name);
    }
    return value;
}

void addProblems(const QJsonArray &problems, Exposition *text)
{
    int errors = 0;
    for (const QJsonValue &problem : problems) {
        errors +=
            problem.toObject().value(QStringLiteral("level")).toString() == QLatin1String("error")
            ? 1
            : 0;
    }
    text->head("recent_problems", "gauge", "Lines among the latest 50 warnings and errors.");
    text->sample("recent_problems", problems.size() - errors, "level=\"warning\"");
    text->sample("recent_problems", errors, "level=\"error\"");
}

} // namespace

QByteArray prometheusText(const QJsonObject &status)
{
    Exposition text;
    text.single("up", "gauge", "Whether the server answers.", status.isEmpty() ? 0 : 1);
    if (status.isEmpty()) {
        return text.text();
    }
    const QJsonObject access = status.value(QStringLiteral("access")).toObject();
    text.single("build_info", "gauge", "Version of the server and mode of its access policy.", 1,
                "version=" + quoted(status.value(QStringLiteral("version")).toString())
                    + ",policy=" + quoted(access.value(QStringLiteral("mode")).toString()));
    for (const Figure &figure : figures) {
        const QJsonValue value = valueAt(status, figure.path);
        if (value.isDouble() || value.isBool()) {
            const double number = value.isBool() ? (value.toBool() ? 1 : 0) : value.toDouble();
            text.single(figure.name, figure.type, figure.help, number * figure.factor);
        }
    }
    const QJsonValue process = status.value(QStringLiteral("deviceProcess"));
    if (process.isObject() && !process.toObject().value(QStringLiteral("inside")).toBool()) {
        text.single("device_process_up", "gauge", "Whether the device process runs.",
                    process.toObject().value(QStringLiteral("pid")).toInt() > 0 ? 1 : 0);
    }
    addProblems(status.value(QStringLiteral("problems")).toArray(), &text);
    return text.text();
}
