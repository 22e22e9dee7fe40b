#include "commands.h"

#include "files.h"
#include "options.h"
#include "target.h"

#include <tarvisnet/tarvisnet.h>

#include <QtCore/QFileInfo>
#include <QtCore/QVector>

#include <algorithm>
#include <limits>

namespace {

// The content fetches come in a form for paths and one for URLs.
template <typename Fetch>
void fetchContent(const Target &target, Fetch fetch)
{
    if (isCompleteUrl(target.text)) {
        fetch(target.url);
    } else {
        fetch(target.text);
    }
}

void startDefinition(TarvisNet &client, const Options &, const Target &target)
{
    fetchContent(target, [&client](const auto &where) { client.fetchDefinition(where); });
}

void startIndex(TarvisNet &client, const Options &, const Target &target)
{
    fetchContent(target, [&client](const auto &where) { client.fetchIndex(where); });
}

void startChangeLog(TarvisNet &client, const Options &, const Target &target)
{
    fetchContent(target, [&client](const auto &where) { client.fetchInstallerChangeLog(where); });
}

void startInstaller(TarvisNet &client, const Options &options, const Target &target)
{
    // The library looks at a path of ours only while it has one of its own.
    if (!target.text.isEmpty() && client.getInstallerPath().isEmpty()) {
        client.setInstallerPath(target.text);
    }
    client.setInstallerFileName(options.savePath());
    client.setInstallerFileSize(options.size);
    fetchContent(target, [&client](const auto &where) { client.fetchInstaller(where); });
}

void startBinary(TarvisNet &client, const Options &options, const Target &target)
{
    fetchContent(target, [&](const auto &where) {
        client.fetchBinary(where, options.savePath(), options.size, options.hash);
    });
}

void startGet(TarvisNet &client, const Options &options, const Target &target)
{
    client.rawGet(target.url, HeadersMap(), options.headers);
}

void startPost(TarvisNet &client, const Options &options, const Target &target)
{
    client.rawPost(target.url, options.body, HeadersMap(), options.headers);
}

void startPatch(TarvisNet &client, const Options &options, const Target &target)
{
    client.rawPath(target.url, options.body, HeadersMap(), options.headers);
}

void startDelete(TarvisNet &client, const Options &options, const Target &target)
{
    client.rawDelete(target.url, options.body);
}

void startGetFile(TarvisNet &client, const Options &options, const Target &target)
{
    client.rawGetFile(target.url, options.savePath());
}

void startPostFile(TarvisNet &client, const Options &options, const Target &target)
{
    client.rawPostFile(target.url, options.savePath(), options.body);
}

QString savedText(const QString &path)
{
    return QStringLiteral("saved %1 (%2)").arg(path, sizeText(QFileInfo(path).size()));
}

Conclusion concludeInstaller(const Options &options, const Target &target)
{
    const bool isSaved = options.policy.filesChecked();
    return {true,
            isSaved ? savedText(options.savePath())
                    : QStringLiteral("arrived, not saved: %1").arg(target.urlText())};
}

Conclusion concludeBinary(const Options &options, const Target &)
{
    const QString path = options.savePath();
    const QString fault = downloadFault(path, options.size);
    return {fault.isEmpty(), fault.isEmpty() ? savedText(path) : fault};
}

Conclusion concludeDelete(const Options &, const Target &target)
{
    return {true, QStringLiteral("deleted: %1").arg(target.urlText())};
}

Conclusion concludeGetFile(const Options &options, const Target &)
{
    return {true, QStringLiteral("saved %1").arg(options.savePath())};
}

constexpr QLatin1String none;
constexpr int many = std::numeric_limits<int>::max();
constexpr TargetRule content{0, many, true};
constexpr TargetRule installer{0, 1, true};
constexpr TargetRule file{1, 1, true};
constexpr TargetRule rest{1, many, false};

const QVector<Command> &commands()
{
    const QString output = QStringLiteral("output");
    const QString size = QStringLiteral("size");
    const QString hash = QStringLiteral("hash");
    const QString data = QStringLiteral("data");
    const QString dataFile = QStringLiteral("data-file");
    const QString header = QStringLiteral("header");
    const QString installerUrl = QStringLiteral("installer-url");

    const QString optionalTargets = QStringLiteral("[TARGET...]");
    const QString urls = QStringLiteral("URL...");

    // clang-format off
    static const QVector<Command> rows = {
        {QStringLiteral("definition"), optionalTargets, QStringLiteral("the JSON definition"),
         {}, {}, content, &Options::definitionPath,
         replies::remote_definition, startDefinition, nullptr},
        {QStringLiteral("index"), optionalTargets, QStringLiteral("the JSON index"),
         {}, {}, content, &Options::indexPath,
         replies::remote_index, startIndex, nullptr},
        {QStringLiteral("changelog"), optionalTargets, QStringLiteral("the installer's change log"),
         {}, {}, content, &Options::changeLogPath,
         replies::remote_installer_log, startChangeLog, nullptr},
        {QStringLiteral("installer"), QStringLiteral("[TARGET]"),
         QStringLiteral("the installer; saved only with --strict, which needs -o FILE"),
         {installerUrl}, {}, installer, &Options::installerPath, replies::remote_installer,
         startInstaller, concludeInstaller, {output, size}},
        {QStringLiteral("binary"), QStringLiteral("TARGET -o FILE --size BYTES"),
         QStringLiteral("a file, resumed if interrupted"),
         {output, size, hash}, {output, size}, file, nullptr, replies::remote_binary,
         startBinary, concludeBinary},
        {QStringLiteral("get"), urls, QStringLiteral("GET, the answer is JSON"),
         {header}, {}, rest, nullptr, replies::raw_get, startGet, nullptr},
        {QStringLiteral("post"), urls, QStringLiteral("POST, the answer is JSON"),
         {header, data, dataFile}, {}, rest, nullptr, replies::raw_post, startPost, nullptr},
        {QStringLiteral("patch"), urls, QStringLiteral("PATCH, the answer is JSON"),
         {header, data, dataFile}, {}, rest, nullptr, none, startPatch, nullptr},
        {QStringLiteral("delete"), urls, QStringLiteral("DELETE"),
         {data, dataFile}, {}, rest, nullptr, none, startDelete, concludeDelete},
        {QStringLiteral("get-file"), urls, QStringLiteral("GET, the answer may be anything"),
         {output}, {}, rest, nullptr, replies::raw_get_file, startGetFile, concludeGetFile},
        {QStringLiteral("post-file"), urls, QStringLiteral("POST, the answer may be anything"),
         {output, data, dataFile}, {}, rest, nullptr, none, startPostFile, nullptr},
    };
    // clang-format on
    return rows;
}

} // namespace

const Command *findCommand(const QString &name)
{
    const auto command = std::find_if(commands().cbegin(), commands().cend(),
                                      [&name](const Command &each) { return each.name == name; });
    return command == commands().cend() ? nullptr : &*command;
}

QStringList optionsOfCommands()
{
    QStringList names;
    for (const Command &command : commands()) {
        names += command.options;
    }
    names.removeDuplicates();
    return names;
}

QString commandsHelp()
{
    QString text = QStringLiteral("Commands:\n");
    for (const Command &command : commands()) {
        const QString synopsis = command.name + QLatin1Char(' ') + command.arguments;
        text += QStringLiteral("  %1  %2\n").arg(synopsis, -35).arg(command.help);
    }
    return text.trimmed();
}
