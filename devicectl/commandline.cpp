// SPDX-License-Identifier: MIT
#include "devicectl/commandline.h"

#include "base/statuspath.h"
#include "devicectl/bundle.h"
#include "devicectl/callverb.h"
#include "devicectl/doctor.h"
#include "devicectl/policyadvice.h"
#include "devicectl/problems.h"
#include "devicectl/prometheus.h"
#include "devicectl/servertexts.h"
#include "devicectl/statusclient.h"
#include "devicectl/statustext.h"
#include "devicectl/systemenvironment.h"
#include "devicectl/texts.h"
#include "dispatch/commandfacts.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QJsonDocument>
#include <QMap>
#include <QThread>
#include <unistd.h>

#include <algorithm>
#include <vector>

namespace {

struct Line
{
    QStringList words; ///< without verb and options
    QMap<QString, QString> options;

    bool has(const char *option) const { return options.contains(QLatin1String(option)); }
    QString value(const char *option) const { return options.value(QLatin1String(option)); }
    int seconds(const char *option, int usual) const
    {
        return has(option) ? value(option).toInt() : usual;
    }
};

struct Streams
{
    QTextStream &out;
    QTextStream &error;
    bool isJson; ///< whether a program reads

    /// Says why it isn't done. \return `code`
    ExitCode refuse(const QString &text, ExitCode code) const
    {
        printProblem(text, isJson, out, error);
        return code;
    }
    void json(const QJsonDocument &document) const
    {
        out << QString::fromUtf8(document.toJson(QJsonDocument::Indented));
    }
};

struct Option
{
    const char *name;
    const char *value; ///< null: it has none
    Text help;
};

struct Verb
{
    const char *name;
    const char *words; ///< in the usage line
    int fewestWords;
    int mostWords; ///< -1: any number
    Text summary;
    std::vector<Option> options;
    ExitCode (*run)(const Line &line, const Streams &streams);
};

constexpr Option json = {"--json", nullptr, {"output for programs", "输出 JSON"}};
constexpr Option asOrigin = {
    "--origin", "ORIGIN", {"as a page of this origin", "以此来源的网页身份"}};
constexpr Option withToken = {"--token", "TOKEN", {"of the access policy", "访问策略的令牌"}};

ExitCode showStatus(const Line &line, const Streams &streams)
{
    QString error;
    const auto status = askForStatus(base::statusSocketPath(), &error);
    if (line.has("--prometheus")) {
        streams.out << QString::fromUtf8(prometheusText(status.value_or(QJsonObject())));
    }
    if (!status) {
        return streams.refuse(said({"the server does not answer: ", "服务没有应答："}) + error,
                              ExitCode::NoServer);
    }
    if (line.has("--json")) {
        const bool isLine = line.has("--watch");
        streams.out << QString::fromUtf8(QJsonDocument(*status).toJson(
            isLine ? QJsonDocument::Compact : QJsonDocument::Indented))
                    << (isLine ? "\n" : "");
    } else if (!line.has("--prometheus")) {
        streams.out << statusLines(*status).join(QLatin1Char('\n')) << '\n';
    }
    return ExitCode::Good;
}

ExitCode statusVerb(const Line &line, const Streams &streams)
{
    if (line.has("--json") && line.has("--prometheus")) {
        return streams.refuse(said({"--json and --prometheus exclude each other",
                                    "--json 与 --prometheus 不能同时使用"}),
                              ExitCode::Usage);
    }
    if (!line.has("--watch")) {
        return showStatus(line, streams);
    }
    const bool isScreen = !line.has("--json") && ::isatty(STDOUT_FILENO) == 1;
    for (;;) { // until Ctrl-C
        streams.out << (isScreen ? "\033[H\033[2J" : "");
        showStatus(line, streams);
        streams.out.flush();
        streams.error.flush();
        QThread::sleep(1);
    }
}

/// Commands whose names are close to a wrong one: another case, a part of it, a letter too few.
QStringList similarCommands(const QString &wrong)
{
    constexpr int most = 5;
    QStringList names;
    for (const commands::Facts &facts : commands::all()) {
        const QString name = facts.name;
        const bool isClose = wrong.size() > 2
            && (name.contains(wrong, Qt::CaseInsensitive)
                || wrong.contains(name, Qt::CaseInsensitive)
                || name.startsWith(wrong.left(wrong.size() - 2), Qt::CaseInsensitive));
        if (isClose && names.size() < most) {
            names << name;
        }
    }
    return names;
}

/// How many pages are connected; nullopt without a server.
std::optional<int> connectedPages()
{
    QString unused;
    const auto status = askForStatus(base::statusSocketPath(), &unused);
    return status ? std::make_optional(status->value(QStringLiteral("pageCount")).toInt())
                  : std::nullopt;
}

ExitCode callVerb(const Line &line, const Streams &streams)
{
    Call call;
    call.name = line.words.first();
    call.text = QStringLiteral("%1(%2)").arg(call.name, line.words.mid(1).join(QLatin1Char(',')));
    const QString before = line.value("--before").section(QLatin1Char('('), 0, 0);
    const QString wrong = !commands::factsOf(call.name) ? call.name
        : commands::factsOf(before)                     ? QString()
                                                        : before;
    if (!wrong.isEmpty()) {
        const QStringList similar = similarCommands(wrong);
        return streams.refuse(said({"there is no command %1", "没有命令 %1"}).arg(wrong)
                                  + (similar.isEmpty()
                                         ? QString()
                                         : said({"; similar ones: ", "；相近的命令："})
                                             + similar.join(QStringLiteral(", "))),
                              ExitCode::Usage);
    }
    const int pages = connectedPages().value_or(0);
    if (pages > 0 && !line.has("--force")) {
        return streams.refuse(
            said({"pages are connected (%1): when devicectl leaves, their preview stops and late "
                  "answers are lost. --force does it nevertheless.",
                  "有网页已连接（%1）：devicectl 断开时会停止其预览并丢失未完成的应答。"
                  "--force 可强制执行。"})
                .arg(pages),
            ExitCode::Declined);
    }
    call.before = line.value("--before");
    if (!call.before.isEmpty() && !call.before.contains(QLatin1Char('('))) {
        call.before += QLatin1String("()");
    }
    call.port = quint16(line.seconds("--port", 1818));
    call.origin = line.value("--origin");
    call.token = line.value("--token");
    call.answerSeconds = line.seconds("--timeout", 30);
    call.waitSeconds = line.seconds("--wait", 0);
    call.until = line.value("--until");
    call.pictureFile = line.value("--output");
    call.frameFile = line.value("--frame");
    call.isJson = line.has("--json");
    return carryOut(call, streams.out, streams.error);
}

/// As a column of a table; Chinese characters take two places.
QString levelText(const QString &level)
{
    if (level == QLatin1String("ok")) {
        return said({"ok      ", "正常  "});
    }
    return level == QLatin1String("warning") ? said({"warning ", "警告  "})
                                             : said({"fault   ", "故障  "});
}

ExitCode doctorVerb(const Line &line, const Streams &streams)
{
    std::optional<Environment::MeasuredPreview> measured;
    if (line.has("--measure") && connectedPages() == 0) {
        measured = measurePreview(line.value("--origin"), line.value("--token"));
    }
    SystemEnvironment environment;
    environment.setMeasuredPreview(measured);
    const QJsonArray findings = examine(environment);
    bool hasFault = false;
    for (const QJsonValue &value : findings) {
        const QJsonObject finding = value.toObject();
        const QString level = finding.value(QStringLiteral("level")).toString();
        const QString advice = finding.value(QStringLiteral("advice")).toString();
        hasFault = hasFault || level == QLatin1String("fault");
        if (!line.has("--json") && !(line.has("--quiet") && level == QLatin1String("ok"))) {
            streams.out << levelText(level) << finding.value(QStringLiteral("title")).toString()
                        << ": " << finding.value(QStringLiteral("meaning")).toString()
                        << (advice.isEmpty() ? QString() : QStringLiteral(" -> ") + advice) << '\n';
        }
    }
    if (line.has("--json")) {
        streams.json(QJsonDocument(findings));
    }
    return hasFault ? ExitCode::Bad : ExitCode::Good;
}

ExitCode bundleVerb(const Line &line, const Streams &streams)
{
    const QString file = line.words.isEmpty()
        ? QStringLiteral("devicectl-%1.tar.gz")
              .arg(QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd-HHmmss")))
        : line.words.first();
    const SystemEnvironment environment;
    const auto files = bundleFiles(environment);
    const QString problem = writeBundle(files, file);
    if (!problem.isEmpty()) {
        return streams.refuse(problem, ExitCode::Trouble);
    }
    if (line.has("--json")) {
        streams.json(QJsonDocument(
            QJsonObject{{QStringLiteral("file"), QFileInfo(file).absoluteFilePath()},
                        {QStringLiteral("bytes"), double(QFileInfo(file).size())},
                        {QStringLiteral("contents"), QJsonArray::fromStringList(files.keys())}}));
    } else {
        streams.out << QFileInfo(file).absoluteFilePath() << '\n';
    }
    return ExitCode::Good;
}

/// A draft may be anybody's and lie anywhere; it is read for what it says.
accesspolicy::FoundPolicy draftIn(const QString &path, const Places &places)
{
    QFile file(path);
    accesspolicy::PolicyError error{QFileInfo(path).absoluteFilePath(), 0, QString()};
    if (!file.open(QIODevice::ReadOnly)) {
        error.reason = file.errorString();
        return {nullptr, error};
    }
    const auto never = accesspolicy::NeverFolders::of(
        accesspolicy::PolicyPlaces::of(places.files.program, places.files.data).ownFolders);
    const auto policy = accesspolicy::parsePolicy(file.readAll(), error.file, never, &error);
    return policy
        ? accesspolicy::FoundPolicy{std::make_shared<const accesspolicy::Policy>(*policy), {}}
        : accesspolicy::FoundPolicy{nullptr, error};
}

ExitCode tryText(const Line &line, const std::shared_ptr<const accesspolicy::Policy> &policy,
                 const Places &places, const Streams &streams)
{
    const QString refusal =
        refusalOf(policy, line.value("--try"), line.words.join(QLatin1Char(' ')),
                  places.files.program + QStringLiteral("/webSite"));
    if (line.has("--json")) {
        streams.json(QJsonDocument(QJsonObject{{QStringLiteral("allowed"), refusal.isEmpty()},
                                               {QStringLiteral("reason"), refusal}}));
    } else {
        streams.out << (refusal.isEmpty() ? said({"allowed", "允许"})
                                          : said({"refused: ", "拒绝："}) + refusal)
                    << '\n';
    }
    return refusal.isEmpty() ? ExitCode::Good : ExitCode::Bad;
}

ExitCode policyVerb(const Line &line, const Streams &streams)
{
    if (line.has("--try") && line.words.isEmpty()) {
        return streams.refuse(said({"the text to be tried is missing", "缺少要试验的文本"}),
                              ExitCode::Usage);
    }
    const SystemEnvironment environment;
    const auto found = line.words.isEmpty() || line.has("--try")
        ? environment.policy()
        : draftIn(line.words.first(), environment.places());
    if (found.error) {
        if (line.has("--json")) {
            streams.json(QJsonDocument(
                QJsonObject{{QStringLiteral("error"), inUsersLanguage(found.error->reason)},
                            {QStringLiteral("file"), found.error->file},
                            {QStringLiteral("line"), found.error->line}}));
        } else {
            streams.error << policyFault(*found.error) << '\n';
        }
        return ExitCode::Bad;
    }
    if (!found.policy) {
        return streams.refuse(said({"there is no access policy: any page may do anything",
                                    "没有访问策略：任何网页都可执行任何操作"}),
                              ExitCode::Bad);
    }
    if (line.has("--try")) {
        return tryText(line, found.policy, environment.places(), streams);
    }
    const QString reportFile = environment.places().log + QStringLiteral("/access-report.json");
    const QJsonArray report =
        QJsonDocument::fromJson(environment.end(reportFile, 16 << 20)).array();
    if (line.has("--propose")) {
        const QString text = proposal(*found.policy, report);
        if (line.has("--json")) {
            streams.json(QJsonDocument(QJsonObject{{QStringLiteral("proposal"), text}}));
        } else {
            streams.out << text;
        }
    } else if (line.has("--json")) {
        streams.json(QJsonDocument(QJsonObject{
            {QStringLiteral("file"), found.policy->file},
            {QStringLiteral("explained"), QJsonArray::fromStringList(explained(*found.policy))},
            {QStringLiteral("report"), report}}));
    } else {
        const QStringList lines = reportLines(report);
        streams.out << found.policy->file << '\n'
                    << explained(*found.policy).join(QLatin1Char('\n')) << '\n'
                    << said({"refused, or would have been (%1):", "已拒绝或将拒绝（%1）："})
                           .arg(lines.size())
                    << '\n';
        for (const QString &each : lines) {
            streams.out << "  " << each << '\n';
        }
    }
    return ExitCode::Good;
}

ExitCode completionVerb(const Line &, const Streams &streams)
{
    streams.out << bashCompletion();
    return ExitCode::Good;
}

const std::vector<Verb> &verbs()
{
    static const std::vector<Verb> all = {
        {"doctor",
         "",
         0,
         0,
         {"checks the terminal, a line a check: what is wrong and what to do",
          "检查终端，每项一行：问题及处理方法"},
         {json,
          {"--quiet", nullptr, {"only warnings and faults", "只显示警告和故障"}},
          {"--measure",
           nullptr,
           {"start the preview for two seconds, if no page is connected",
            "没有网页连接时启动预览两秒，测量帧数"}},
          asOrigin,
          withToken},
         doctorVerb},
        {"status",
         "",
         0,
         0,
         {"shows the state of the server", "显示服务状态"},
         {json,
          {"--watch", nullptr, {"again every second", "每秒刷新"}},
          {"--prometheus",
           nullptr,
           {"figures for node_exporter's text files", "输出 node_exporter 文本文件格式"}}},
         statusVerb},
        {"call",
         "NAME [ARGUMENT...]",
         1,
         -1,
         {"sends one command and prints its answer", "发送一个命令并显示应答"},
         {json,
          {"--before",
           "TEXT",
           {"a command to be answered first, such as bStartPlay", "先执行的命令，如 bStartPlay"}},
          {"--wait", "SECONDS", {"also print what is pushed later", "同时显示之后推送的结果"}},
          {"--until", "NAME", {"end with the answer of this name", "收到此名称的应答后结束"}},
          {"--output",
           "FILE",
           {"put a picture of the answer into a file", "将应答中的图片存入文件"}},
          {"--frame", "FILE", {"put the next preview frame into a file", "将下一帧预览存入文件"}},
          {"--timeout", "SECONDS", {"for the answer; 30", "等待应答的秒数，默认 30"}},
          asOrigin,
          withToken,
          {"--port", "PORT", {"of the server; 1818", "服务端口，默认 1818"}},
          {"--force", nullptr, {"even though pages are connected", "即使有网页已连接"}}},
         callVerb},
        {"bundle",
         "[FILE]",
         0,
         1,
         {"makes a support archive without personal data", "生成不含个人数据的支持归档"},
         {json},
         bundleVerb},
        {"policy",
         "[FILE | --try ORIGIN TEXT]",
         0,
         -1,
         {"checks and explains the access policy", "检查并说明访问策略"},
         {json,
          {"--try",
           "ORIGIN",
           {"what happens to a text of a page of this origin", "试验某来源网页的文本"}},
          {"--propose", nullptr, {"a policy from what was refused", "根据被拒绝的请求生成策略"}}},
         policyVerb},
        {"completion",
         "",
         0,
         0,
         {"prints the completion script for bash", "输出 bash 补全脚本"},
         {},
         completionVerb},
    };
    return all;
}

const Verb *verbOf(const QString &name)
{
    const auto found = std::find_if(verbs().begin(), verbs().end(), [&name](const Verb &verb) {
        return name == QLatin1String(verb.name);
    });
    return found == verbs().end() ? nullptr : &*found;
}

QString generalHelp()
{
    QString text = said({"usage: devicectl VERB ...\n\n", "用法：devicectl 动词 ...\n\n"});
    for (const Verb &verb : verbs()) {
        text +=
            QStringLiteral("  %1 %2\n").arg(QLatin1String(verb.name), -11).arg(said(verb.summary));
    }
    return text
        + said({"\ndevicectl VERB --help has a verb's options; --version the version.\n"
                "Exit status: 0 good, 1 a fault or failure, 2 usage, 3 no server, 4 no answer,\n"
                "5 declined as pages are connected, 6 trouble on this machine.\n",
                "\ndevicectl 动词 --help 显示选项；--version 显示版本。\n"
                "退出状态：0 正常，1 故障或失败，2 用法错误，3 服务未运行，4 无应答，\n"
                "5 因有网页连接而未执行，6 本机问题。\n"});
}

QString helpOf(const Verb &verb)
{
    QString text = said({"usage: devicectl %1 [OPTION...] %2\n%3\n\n",
                         "用法：devicectl %1 [选项...] %2\n%3\n\n"})
                       .arg(QLatin1String(verb.name), QLatin1String(verb.words), said(verb.summary))
                       .replace(QLatin1String(" \n"), QLatin1String("\n"));
    for (const Option &option : verb.options) {
        const QString name = QLatin1String(option.name)
            + (option.value ? QLatin1Char(' ') + QLatin1String(option.value) : QString());
        text += QStringLiteral("  %1 %2\n").arg(name, -18).arg(said(option.help));
    }
    return text;
}

/// Reads options and words. \return what is wrong, or empty
QString parse(const Verb &verb, const QStringList &words, Line *line)
{
    bool isOption = true;
    for (int i = 0; i < words.size(); ++i) {
        const QString &word = words[i];
        if (isOption && word == QLatin1String("--")) {
            isOption = false;
            continue;
        }
        if (!isOption || !word.startsWith(QLatin1String("--"))) {
            line->words << word;
            continue;
        }
        const QString name = word.section(QLatin1Char('='), 0, 0);
        const auto option =
            std::find_if(verb.options.begin(), verb.options.end(),
                         [&name](const Option &each) { return name == QLatin1String(each.name); });
        if (option == verb.options.end()) {
            return said({"there is no option %1", "没有选项 %1"}).arg(name);
        }
        const bool hasValue = word.contains(QLatin1Char('='));
        if (!option->value && hasValue) {
            return said({"%1 takes no value", "%1 不带值"}).arg(name);
        }
        if (option->value && !hasValue && i + 1 == words.size()) {
            return said({"%1 needs a value", "%1 需要值"}).arg(name);
        }
        QString value = word.section(QLatin1Char('='), 1);
        if (option->value && !hasValue) {
            value = words[++i];
        }
        bool isNumber = true;
        if (option->value
            && (qstrcmp(option->value, "SECONDS") == 0 || qstrcmp(option->value, "PORT") == 0)) {
            const int number = value.toInt(&isNumber);
            isNumber = isNumber && number > 0 && number <= 65535;
        }
        if (!isNumber) {
            return said({"%1 is no number", "%1 不是数字"}).arg(value);
        }
        line->options.insert(name, value);
    }
    if (line->words.size() < verb.fewestWords) {
        return said({"%1 is missing", "缺少 %1"})
            .arg(QString::fromLatin1(verb.words).section(QLatin1Char(' '), 0, 0));
    }
    return verb.mostWords >= 0 && line->words.size() > verb.mostWords
        ? said({"%1 is too much", "多余的参数 %1"}).arg(line->words.last())
        : QString();
}

} // namespace

QStringList verbNames()
{
    QStringList names;
    for (const Verb &verb : verbs()) {
        names << QLatin1String(verb.name);
    }
    return names;
}

QString bashCompletion()
{
    QStringList commandNames;
    for (const commands::Facts &facts : commands::all()) {
        commandNames << facts.name;
    }
    QString cases;
    for (const Verb &verb : verbs()) {
        QStringList options{QStringLiteral("--help")};
        for (const Option &option : verb.options) {
            options << QLatin1String(option.name);
        }
        if (verb.run == callVerb) {
            options << commandNames;
        }
        cases += QStringLiteral("        %1) words=\"%2\" ;;\n")
                     .arg(QLatin1String(verb.name), options.join(QLatin1Char(' ')));
    }
    return QStringLiteral("# bash completion for devicectl; made by: devicectl completion\n"
                          "_devicectl() {\n"
                          "    local words\n"
                          "    case \"${COMP_WORDS[1]}\" in\n"
                          "%1"
                          "        *) words=\"%2 --help --version\" ;;\n"
                          "    esac\n"
                          "    if [ \"$COMP_CWORD\" -eq 1 ]; then\n"
                          "        words=\"%2 --help --version\"\n"
                          "    fi\n"
                          "    mapfile -t COMPREPLY < <(compgen -W \"$words\" -- "
                          "\"${COMP_WORDS[COMP_CWORD]}\")\n"
                          "}\n"
                          "complete -o default -F _devicectl devicectl\n")
        .arg(cases, verbNames().join(QLatin1Char(' ')));
}

ExitCode runDevicectl(const QStringList &words, QTextStream &out, QTextStream &error)
{
    const QString first = words.value(0);
    if (first == QLatin1String("--help") || first == QLatin1String("help")) {
        out << generalHelp();
        return ExitCode::Good;
    }
    if (first == QLatin1String("--version")) {
        out << "devicectl " << DEVICECTL_VERSION << '\n';
        return ExitCode::Good;
    }
    const bool isJson = words.contains(QLatin1String("--json"));
    const Verb *verb = verbOf(first);
    if (!verb) {
        if (!first.isEmpty()) {
            printProblem(said({"there is no verb %1", "没有动词 %1"}).arg(first), isJson, out,
                         error);
        }
        error << (isJson ? QString() : generalHelp());
        return ExitCode::Usage;
    }
    if (words.value(1) == QLatin1String("--help")) {
        out << helpOf(*verb);
        return ExitCode::Good;
    }
    Line line;
    const QString problem = parse(*verb, words.mid(1), &line);
    if (!problem.isEmpty()) {
        printProblem(problem, isJson, out, error);
        error << (isJson ? QString() : helpOf(*verb));
        return ExitCode::Usage;
    }
    return verb->run(line, {out, error, line.has("--json")});
}
