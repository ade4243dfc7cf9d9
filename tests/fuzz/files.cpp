// SPDX-License-Identifier: MIT
//
// Names and settings: paths and formats as pages send them, in a folder with all kinds of files,
// and the cameras of a devices.ini.
#include "portable/base/filereader.h"
#include "portable/camera/camerasources.h"
#include "portable/system/fileoperations.h"
#include "tests/fuzz/fuzztarget.h"

#include <QDir>
#include <QFile>
#include <sys/stat.h>

using namespace portable;

namespace {

constexpr qint64 mostBytes = 4096;

QString path(const QString &name)
{
    return QDir(fuzz::folder()).filePath(name);
}

void write(const QString &name, const QByteArray &bytes)
{
    QFile file(path(name));
    fuzz::require(file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size(),
                  "the fuzz target writes its files");
}

void checkPaths(const QString &name, const QString &format)
{
    QString error;
    const QByteArray bytes = readWholeFile(name, mostBytes, &error);
    fuzz::require(bytes.size() <= mostBytes, "the limit of bytes holds");
    fuzz::require(!bytes.isNull() || !error.isEmpty(), "a reason is given");
    fuzz::require(bytes.isNull() || isFile(name, &error), "what is read is a file");
    const QStringList found = filesOfFormat(fuzz::folder(), format, &error);
    for (const QString &file : found) {
        fuzz::require(isFile(path(file), &error), "what is found is a file");
    }
    isDirectory(name, &error);
}

void checkCameras()
{
    const DeviceConfig config = readDeviceConfig(path(QStringLiteral("devices.ini")));
    const auto none = [] { return V4l2Devices(); };
    for (int camera = 0; camera <= dualCamera; ++camera) {
        QString error;
        const auto source = makeSource(camera, config, none, &error);
        fuzz::require(source || !error.isEmpty(), "a reason is given");
        if (source) {
            source->name();
            source->sizes();
        }
    }
}

} // namespace

void fuzz::prepare()
{
    write(QStringLiteral("a.jpg"), QByteArray(mostBytes, 'a'));
    write(QStringLiteral("large.JPG"), QByteArray(mostBytes + 1, 'a'));
    write(QStringLiteral("empty.[pdf]"), {});
    QDir(folder()).mkdir(QStringLiteral("folder.jpg"));
    QFile::link(QStringLiteral("a.jpg"), path(QStringLiteral("link.jpg")));
    QFile::link(QStringLiteral("loop"), path(QStringLiteral("loop")));
    require(mkfifo(QFile::encodeName(path(QStringLiteral("pipe"))).constData(), 0600) == 0,
            "the fuzz target makes its pipe");
}

void fuzz::run(const QByteArray &input)
{
    Fields fields(input);
    const QString name = QString::fromUtf8(fields.part());
    const QString format = QString::fromUtf8(fields.part());
    checkPaths(path(name), format); // an absolute one stays as it is
    write(QStringLiteral("devices.ini"), fields.rest());
    checkCameras();
}

QList<QByteArray> fuzz::seeds()
{
    const QByteArray ini = "[cameras]\n1=auto\n2=scene\n3=none\n4=image:a.jpg\n5=\"folder:a, b\"\n"
                           "6=video:a.mp4\n8=v4l2:/dev/video9\ndual=scene|scene\n"
                           "[scene]\nsize=640x480\nframesPerSecond=25\n"
                           "[playback]\nframesPerSecond=1e1\nsecondsPerPicture=@Size(1 2)\n";
    return {
        field("a.jpg") + field("jpg;.pdf;*.p[dn]?") + ini,
        field("pipe") + field("*.*"),
        field("./folder.jpg/../link.jpg") + field("*"),
        field("loop") + field("[!a]*;\\*"),
        field("/dev/zero") + field(""),
        field("/proc/self/status") + field(""),
        field("large.JPG") + field("{a,b}"),
    };
}
