// SPDX-License-Identifier: MIT
#include "devicectl/checks/check.h"
#include "devicectl/checks/groups.h"

namespace checks {

namespace {

Finding models(const Environment &environment)
{
    const QString folder = environment.places().files.find(QStringLiteral("models"));
    for (const char *name : {"tiny_face_detector_model.bin", "face_landmark_68_model.bin",
                             "face_recognition_model.bin"}) {
        if (environment.facts(folder + QLatin1Char('/') + QLatin1String(name)).size == 0) {
            return warning({"the weight %1 of the face networks is missing", "缺少人脸网络权重 %1"},
                           {"install rvowebsocketserver-models or run "
                            "scripts/fetch-face-models.sh, where faces are compared",
                            "需要人脸比对时请安装 rvowebsocketserver-models，或运行 "
                            "scripts/fetch-face-models.sh"},
                           QLatin1String(name));
        }
    }
    return good({"the weights of the face networks are there", "人脸网络权重齐全"});
}

Finding fonts(const Environment &environment)
{
    const auto outcome =
        environment.run(QStringLiteral("fc-list"), {QStringLiteral(":lang=zh-cn")});
    if (outcome.isLate) {
        return tooLate("fc-list");
    }
    return outcome.output.trimmed().isEmpty()
        ? warning({"there is no Chinese font", "没有中文字体"},
                  {"install fonts-wqy-microhei", "请安装 fonts-wqy-microhei"})
        : good({"there are Chinese fonts", "有中文字体"});
}

Finding companion(const Environment &environment, const char *name)
{
    const QString folder = environment.places().files.program + QLatin1Char('/');
    for (const QString &file :
         {QString::fromLatin1(name), QStringLiteral("run-%1.sh").arg(QLatin1String(name))}) {
        if (!environment.facts(folder + file).isExecutable) {
            return fault({"%1 is missing or can't be run", "缺少 %1 或无法执行"},
                         {"install the server again", "请重新安装服务"}, folder + file);
        }
    }
    return good({"%1 is there", "%1 已安装"}, QLatin1String(name));
}

Finding signature(const Environment &environment)
{
    return companion(environment, "elecsign");
}

Finding browserHelper(const Environment &environment)
{
    return companion(environment, "webbrowser");
}

Finding deviceHost(const Environment &environment)
{
    const auto status = environment.status();
    if (status && status->value(QStringLiteral("deviceProcess")).isNull()) {
        return good({"the server is linked with its device library", "服务已直接链接设备库"});
    }
    return environment.facts(environment.places().files.program + QStringLiteral("/devicehost"))
               .isExecutable
        ? good({"the program of the device process is there", "设备进程程序已安装"})
        : fault({"the program devicehost is missing", "缺少程序 devicehost"},
                {"install the server again", "请重新安装服务"});
}

template <int index> Finding neededProgram(const Environment &environment)
{
    static constexpr struct
    {
        const char *program;
        Text without;
        Text advice;
    } needed[] = {
        {"ps",
         {"ps is missing: a second server is not noticed", "缺少 ps：无法发现第二个实例"},
         {"install procps", "请安装 procps"}},
        {"pdftoppm",
         {"pdftoppm is missing: no PDF can be signed", "缺少 pdftoppm：无法签署 PDF"},
         {"install poppler-utils", "请安装 poppler-utils"}},
        {"xdg-open",
         {"xdg-open is missing: OpenFile fails", "缺少 xdg-open：OpenFile 会失败"},
         {"install xdg-utils", "请安装 xdg-utils"}},
    };
    const auto &each = needed[index];
    return environment.hasProgram(QLatin1String(each.program))
        ? good({"%1 is there", "%1 已安装"}, QLatin1String(each.program))
        : warning(each.without, each.advice);
}

Finding certificates(const Environment &environment)
{
    return environment.facts(QStringLiteral("/etc/ssl/certs/ca-certificates.crt")).size > 0
        ? good({"there are certificate authorities for uploads", "有用于上传的根证书"})
        : warning({"there are no certificate authorities: uploads to https fail",
                   "没有根证书：https 上传会失败"},
                  {"install ca-certificates", "请安装 ca-certificates"});
}

} // namespace

std::vector<Check> installedChecks()
{
    return {
        {"models", {"face networks", "人脸网络"}, models},
        {"fonts", {"fonts", "字体"}, fonts},
        {"signature", {"signature service", "签名服务"}, signature},
        {"browser-helper", {"browser helper", "浏览器助手"}, browserHelper},
        {"devicehost", {"devicehost", "设备进程程序"}, deviceHost},
        {"ps", {"ps", "ps"}, neededProgram<0>},
        {"pdftoppm", {"pdftoppm", "pdftoppm"}, neededProgram<1>},
        {"xdg-open", {"xdg-open", "xdg-open"}, neededProgram<2>},
        {"certificates", {"certificates", "根证书"}, certificates},
    };
}

} // namespace checks
