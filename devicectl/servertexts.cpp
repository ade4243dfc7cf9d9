// SPDX-License-Identifier: MIT
#include "devicectl/servertexts.h"

#include "devicectl/texts.h"

#include <QRegularExpression>

namespace {

/// "%1" and so on are any text, in the order of their numbers. Of two that fit, the first one
/// counts.
constexpr Text reasons[] = {
    // access/policyparser.cpp, access/origin.cpp
    {"it is no UTF-8 text", "不是 UTF-8 文本"},
    {"neither a section nor key=value", "既不是节，也不是 键=值"},
    {"[policy] version=1 is missing", "缺少 [policy] version=1"},
    {"there is no section %1", "没有节 %1"},
    {"section %1 is there twice", "节 %1 重复"},
    {"%1 is there twice", "%1 重复"},
    {"there is no key %1 in section [%2]", "节 [%2] 中没有键 %1"},
    {"%1 has an empty item", "%1 中有空项"},
    {"%1 is true or false", "%1 只能是 true 或 false"},
    {"%1 is a number from %2 to %3", "%1 是 %2 到 %3 的数字"},
    {"%1 is one of %2", "%1 只能是：%2"},
    {"%1 is one path", "%1 只能是一个路径"},
    {"%1 is no http or https address", "%1 不是 http 或 https 地址"},
    {"%1 is no absolute path and doesn't begin with ~/", "%1 不是绝对路径，也不以 ~/ 开头"},
    {"%1 is neither a command nor a family", "%1 既不是命令，也不是命令族"},
    {"%1 has to belong to root or this user, and to be neither writable by the group nor readable "
     "by "
     "others",
     "%1 必须属于 root 或当前用户，同组用户不可写，其他用户不可读"},
    {"%1: the token needs %2 characters", "%1：令牌至少需要 %2 个字符"},
    {"%1 is no IP address", "%1 不是 IP 地址"},
    {"%1 is no host", "%1 不是主机"},
    {"no policy opens %1", "任何策略都不能开放 %1"},
    {"file is a name, for a file beside the log", "file 只能是文件名，文件与日志在同一目录"},
    {"[%1] has no origin", "[%1] 没有 origin"},
    {"a token is required, but no file is named", "要求令牌，但没有指定文件"},
    {"%1 is no origin: expected scheme://host[:port], *, file or none",
     "%1 不是来源：应为 scheme://host[:port]、*、file 或 none"},
    // access/policyfile.cpp
    {"the file belongs to %1, not to %2", "文件属于 %1，不属于 %2"},
    {"its folder belongs to %1, not to %2", "所在目录属于 %1，不属于 %2"},
    {"the file is writable by others than its owner", "文件可被属主以外的用户写入"},
    {"its folder is writable by others than its owner", "所在目录可被属主以外的用户写入"},
    {"it is a link", "是符号链接"},
    {"it is no file", "不是文件"},
    {"it is longer than %1 bytes", "超过 %1 字节"},
    // access/doorkeeper.cpp, access/argumentrules.cpp
    {"there is no token", "没有令牌"},
    {"the token is wrong", "令牌错误"},
    {"the origin is not in origin.allow", "来源不在 origin.allow 中"},
    {"the Origin header is malformed", "Origin 头格式错误"},
    {"the address %1 is not in listen.addresses", "地址 %1 不在 listen.addresses 中"},
    {"the Host header is not in host.allow", "Host 头不在 host.allow 中"},
    {"there are %1 pages already", "已有 %1 个网页"},
    {"there are %1 pages of this origin already", "该来源已有 %1 个网页"},
    {"no grant is for this origin", "没有针对该来源的授权"},
    {"denied by %1", "被 %1 拒绝"},
    {"not allowed by %1", "%1 未允许"},
    {"more than limits.commands_per_second", "超过 limits.commands_per_second"},
    {"the text is longer than limits.message_kib", "文本超过 limits.message_kib"},
    {"the pages of webSite/ are not in pages.addresses", "webSite/ 的网页不在 pages.addresses 中"},
    {"a pattern of names has a /", "文件名模式中有 /"},
    {"it is no path on a server", "不是服务器上的路径"},
    {"the real path has a comma", "实际路径中有逗号"},
    {"a prefix without a folder has a /", "没有目录的前缀中有 /"},
    {"the address is malformed", "地址格式错误"},
    {"%1 is not in upload.hosts", "%1 不在 upload.hosts 中"},
    {"the file is larger than upload.max_mib", "文件超过 upload.max_mib"},
    {"the file is none of the own pages", "该文件不是自带的网页"},
    {"%1 is not in pages.addresses", "%1 不在 pages.addresses 中"},
    {"it is no device of a card reader", "不是读卡器设备"},
    // access/pathrules.cpp, access/realpath.cpp
    {"the path has control characters", "路径中有控制字符"},
    {"the path has half a character", "路径中有不完整的字符"},
    {"the path can't be written in this locale", "当前区域设置无法表示该路径"},
    {"the real path is no UTF-8", "实际路径不是 UTF-8"},
    {"it is no file and no folder", "既不是文件，也不是目录"},
    {"no policy opens this folder", "任何策略都不能开放该目录"},
    {"the extension is denied", "扩展名被拒绝"},
    {"it is in none of the folders of files.%1", "不在 files.%1 的任何目录中"},
    {"it has no name", "没有文件名"},
    {"it was replaced while it was looked at", "检查期间被替换"},
    {"it goes through what is no folder", "路径经过的不是目录"},
    {"it is a link to nothing", "符号链接没有目标"},
    {"a link has that name", "该名称是符号链接"},
    {"it goes through a link that isn't followed", "路径经过不被跟随的符号链接"},
    {"it goes back out of a folder that doesn't exist", "路径从不存在的目录退回"},
    {"it names no entry of a folder", "没有指明目录中的条目"},
    {"the current folder is unknown", "当前目录未知"},
    {"it is no path", "不是路径"},
    // base/neighbor.cpp
    {"it belongs to %1, process %2", "它属于 %1，进程 %2"},
    {"its user can't be determined: %1", "无法确定其用户：%1"},
};

QString filled(QString text, const QRegularExpressionMatch &match)
{
    for (int i = 1; i <= match.lastCapturedIndex(); ++i) {
        text.replace(QLatin1Char('%') + QString::number(i), match.captured(i));
    }
    return text;
}

} // namespace

QString inUsersLanguage(const QString &reason)
{
    static const QRegularExpression place(QStringLiteral(R"(\\%\d)"));
    for (const Text &each : reasons) {
        const QString english = QString::fromUtf8(each.english);
        const QString form =
            QRegularExpression::escape(english).replace(place, QStringLiteral("(.*)"));
        const auto match = QRegularExpression(QStringLiteral("^(?:%1)$").arg(form)).match(reason);
        const QString own = said(each);
        if (match.hasMatch() && own != english) {
            return filled(own, match) + QStringLiteral("（") + reason + QStringLiteral("）");
        }
    }
    return reason;
}

QString policyFault(accesspolicy::PolicyError error)
{
    error.reason = inUsersLanguage(error.reason);
    return error.text();
}
