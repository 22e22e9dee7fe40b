#include "options.h"

#include "commands.h"
#include "exitcode.h"
#include "number.h"
#include "policyoptions.h"
#include "target.h"

#include <QtCore/QCommandLineParser>
#include <QtCore/QDir>
#include <QtCore/QFileInfo>

#include <algorithm>
#include <cstdio>
#include <limits>

namespace {

struct TextOption {
    const char *names;
    const char *value;
    const char *help;
    QString Options::*field;
};

const TextOption textOptions[] = {
    {"engine", "NAME", "What asks: 'client' (default), or 'processor', the one without a queue.",
     &Options::engine},
    {"host", "HOST", "The content server, for targets that are paths.", &Options::host},
    {"definition-path", "PATH", "What 'definition' asks for.", &Options::definitionPath},
    {"index-path", "PATH", "What 'index' asks for.", &Options::indexPath},
    {"changelog-path", "PATH", "What 'changelog' asks for.", &Options::changeLogPath},
    {"installer-path", "PATH", "What 'installer' asks for.", &Options::installerPath},
    {"installer-url", "URL", "What 'installer' asks for without an --installer-path.",
     &Options::installerUrl},
    {"temp-dir", "DIR", "Where a download grows (default: the system's).",
     &Options::temporaryDirectory},
    {"output-dir", "DIR", "Where a relative --output lies (default: here).",
     &Options::outputDirectory},
    {"app-name", "NAME", "Name of the application, for the server.", &Options::applicationName},
    {"app-version", "VERSION", "Version of the application, for the server.",
     &Options::applicationVersion},
    {"installation-id", "UUID", "Installation id, for the server.", &Options::installationId},
    {"o,output", "FILE", "Save the answer (binary, get-file, post-file); '-' for standard output.",
     &Options::output},
    {"d,data", "TEXT", "Body to send (post, patch, delete, post-file).", &Options::dataText},
    {"data-file", "FILE", "The same from a file, '-' for standard input.", &Options::dataFile},
};

struct NumberOption {
    const char *names;
    const char *value;
    const char *help;
    quint64 minimum;
    quint64 maximum;
    quint64 Options::*field;
};

const NumberOption numberOptions[] = {
    {"port", "PORT", "Port of the content server (default: 443).", 1, 65535, &Options::port},
    {"parallel", "N", "Requests in flight, 1 to 5 (default: 5).", 1, 5, &Options::parallelCount},
    {"ping-timeout", "MS", "Give up a server that is silent for so long (default: 10000).", 1,
     std::numeric_limits<int>::max(), &Options::pingTimeout},
    {"size", "BYTES", "Size of the complete file (binary, must be known).", 1,
     std::numeric_limits<qint64>::max(), &Options::size},
};

struct FlagOption {
    const char *names;
    const char *help;
    bool Options::*field;
};

const FlagOption flagOptions[] = {
    {"ping-always",
     "Watch for a silent server during every command, not only binary and installer.",
     &Options::pingAlways},
    {"q,quiet", "Say nothing but results and errors.", &Options::quiet},
    {"verbose", "Show the log of the library.", &Options::verbose},
    {"h,help", "Show this help.", &Options::help},
    {"version", "Show the version.", &Options::version},
};

constexpr char headerHelp[] = "Add a header, 'Name: value', may be repeated (get, post, patch).";

constexpr char usage[] = R"(Usage: tarvisnet-fetch COMMAND [TARGET...] [options]

Talks to a content and update server.

)";

constexpr char notes[] = R"(
A TARGET is a complete URL, or the path of something on the server of --host, which is asked over
HTTPS. Results go to standard output, all else to standard error. When one of several requests
fails, the library may abort another one too, and a failure behind a redirect ends all of them; ask
one by one where that matters.

* Makes a client with a TransferPolicy, which tells the reason of each error too; not for the
  processor. --strict asks for what is good for most, --fast for that and for speed, each of the
  others for one thing, or for another value. Server certificates are verified only with --strict,
  --fast or --ca.

A download that was interrupted is resumed by the same command, unless it goes to standard output.

)";

constexpr char severalFailures[] = R"(
Of several failures the first counts that has a status of its own.
)";

constexpr QLatin1String clientEngine = general::literal("client");
constexpr QLatin1String processorEngine = general::literal("processor");
constexpr QLatin1String standardOutput = general::literal("-");
constexpr QLatin1String outputOption = general::literal("output");

QStringList split(const char *names)
{
    return QString::fromLatin1(names).split(QLatin1Char(','));
}

QString longName(const char *names)
{
    return split(names).constLast();
}

void addOption(QCommandLineParser &parser, const char *names, const char *help,
               const char *value = "")
{
    parser.addOption({split(names), QString::fromLatin1(help), QString::fromLatin1(value)});
}

void describe(QCommandLineParser &parser)
{
    for (const TextOption &option : textOptions) {
        addOption(parser, option.names, option.help, option.value);
    }
    for (const NumberOption &option : numberOptions) {
        addOption(parser, option.names, option.help, option.value);
    }
    addOption(parser, "H,header", headerHelp, "HEADER");
    describePolicyOptions(parser);
    for (const FlagOption &option : flagOptions) {
        addOption(parser, option.names, option.help);
    }
}

QString takeNumber(const QCommandLineParser &parser, const NumberOption &option, Options *options)
{
    const QString name = longName(option.names);
    if (!parser.isSet(name)) {
        return QString();
    }
    const QString fault =
        readNumber(parser.value(name), option.minimum, option.maximum, &(options->*option.field));
    return fault.isEmpty() ? QString() : QStringLiteral("--%1 %2").arg(name, fault);
}

QString takeHeaders(const QCommandLineParser &parser, Options *options)
{
    const QStringList headers = parser.values(QStringLiteral("header"));
    for (const QString &header : headers) {
        const int colon = header.indexOf(QLatin1Char(':'));
        if (colon < 1) {
            return QStringLiteral("'%1' is not a header, write 'Name: value'").arg(header);
        }
        options->headers.insert(header.left(colon).trimmed().toLatin1(),
                                header.mid(colon + 1).trimmed().toUtf8());
    }
    return QString();
}

QString takeOptions(const QCommandLineParser &parser, Options *options)
{
    for (const FlagOption &option : flagOptions) {
        options->*option.field = parser.isSet(longName(option.names));
    }
    for (const TextOption &option : textOptions) {
        options->*option.field = parser.value(longName(option.names));
    }
    for (const NumberOption &option : numberOptions) {
        QString fault = takeNumber(parser, option, options);
        if (!fault.isEmpty()) {
            return fault;
        }
    }
    QString fault = takePolicyOptions(parser, options);
    return fault.isEmpty() ? takeHeaders(parser, options) : fault;
}

QString takeCommand(const QCommandLineParser &parser, Options *options)
{
    options->targets = parser.positionalArguments();
    if (options->targets.isEmpty()) {
        return QStringLiteral("no command given");
    }
    const QString name = options->targets.takeFirst();
    options->command = findCommand(name);
    return options->command ? QString() : QStringLiteral("there is no command '%1'").arg(name);
}

QString takeBody(Options *options)
{
    options->body = options->dataText.toLocal8Bit();
    if (options->dataFile.isEmpty()) {
        return QString();
    }
    QFile file(options->dataFile);
    const bool fromStandardInput = options->dataFile == QLatin1String("-");
    if (!(fromStandardInput ? file.open(stdin, QIODevice::ReadOnly)
                            : file.open(QIODevice::ReadOnly))) {
        return QStringLiteral("%1: %2").arg(options->dataFile, file.errorString());
    }
    options->body = file.readAll();
    return QString();
}

bool takesOption(const Options &options, const QString &name)
{
    // What a command shows goes to standard output anyway.
    const bool isWhereItGoes =
        name == outputOption && options.output == standardOutput && !options.command->conclude;
    return isWhereItGoes || options.command->options.contains(name)
        || (options.policy.filesChecked() && options.command->checkedOptions.contains(name));
}

QString optionsFault(const QCommandLineParser &parser, const Options &options)
{
    const Command &command = *options.command;
    const QStringList names = optionsOfCommands();
    for (const QString &name : names) {
        if (parser.isSet(name) && !takesOption(options, name)) {
            return QStringLiteral("'%1' does not take --%2").arg(command.name, name);
        }
    }
    QStringList required = command.required;
    if (options.policy.filesChecked())
        required += command.checkedOptions.mid(0, 1);
    for (const QString &name : qAsConst(required)) {
        if (!parser.isSet(name)) {
            return QStringLiteral("'%1' needs --%2").arg(command.name, name);
        }
    }
    return QString();
}

QString engineFault(const QCommandLineParser &parser, const Options &options)
{
    if (!options.engine.isEmpty() && options.engine != clientEngine && !options.usesProcessor())
        return QStringLiteral("--engine takes 'client' or 'processor'");
    if (!options.usesProcessor())
        return QString();
    if (options.command->replyType == QLatin1String())
        return QStringLiteral("the processor cannot '%1'").arg(options.command->name);
    if (options.command->replyType == replies::raw_get_file && options.output.isEmpty())
        return QStringLiteral("the processor's '%1' needs --output").arg(options.command->name);
    const QString policyOption = policyOptionIn(parser);
    return policyOption.isEmpty()
        ? QString()
        : QStringLiteral("the processor does not take --%1").arg(policyOption);
}

QString targetsFault(const Options &options)
{
    const Command &command = *options.command;
    const int count = options.targets.size();
    if (count < command.targets.fewest) {
        return QStringLiteral("'%1' needs a target").arg(command.name);
    }
    if (count > command.targets.most) {
        return QStringLiteral("'%1' takes only one target").arg(command.name);
    }
    if (count > 1 && (options.isSpooled() || !options.savePath().isEmpty())) {
        return QStringLiteral("--output takes only one target");
    }
    const bool complete =
        std::all_of(options.targets.cbegin(), options.targets.cend(), isCompleteUrl);
    const bool namesServer = count > 0 ? complete : !options.installerUrl.isEmpty();
    if (command.targets.paths && !namesServer && options.host.isEmpty()) {
        return QStringLiteral("'%1' needs --host, or complete URLs").arg(command.name);
    }
    return QString();
}

} // namespace

QString Options::savePath() const
{
    if (output == standardOutput)
        return spoolPath;
    return output.isEmpty() || outputDirectory.isEmpty() ? output
                                                         : QDir(outputDirectory).filePath(output);
}

QString Options::partialPath() const
{
    if (usesProcessor())
        return savePath();
    const QDir directory(temporaryDirectory.isEmpty() ? QDir::tempPath() : temporaryDirectory);
    return QStringLiteral("%1.%2").arg(directory.absoluteFilePath(QFileInfo(savePath()).fileName()),
                                       general::temp_file_suffix);
}

qint64 Options::keptBytes() const
{
    if (policy.filesChecked())
        return 0;
    const QFileInfo partial(partialPath());
    return partial.isFile() && partial.size() < static_cast<qint64>(size) ? partial.size() : 0;
}

bool Options::usesProcessor() const
{
    return engine == processorEngine;
}

bool Options::mustBeSaved() const
{
    return command->required.contains(outputOption)
        || (policy.filesChecked() && command->checkedOptions.contains(outputOption));
}

bool Options::isSpooled() const
{
    const bool needsFile =
        usesProcessor() ? command->options.contains(outputOption) : mustBeSaved();
    return output == standardOutput && needsFile;
}

QString parseCommandLine(const QStringList &arguments, Options *options)
{
    QCommandLineParser parser;
    describe(parser);
    if (!parser.parse(arguments)) {
        return parser.errorText();
    }
    QString fault = takeOptions(parser, options);
    if (options->help || options->version) {
        return QString();
    }
    const auto check = [&fault](auto next) {
        if (fault.isEmpty()) {
            fault = next();
        }
    };
    check([&] { return takeCommand(parser, options); });
    check([&] { return optionsFault(parser, *options); });
    check([&] { return engineFault(parser, *options); });
    check([&] { return targetsFault(*options); });
    check([&] { return takeBody(options); });
    return fault;
}

QString helpText()
{
    QCommandLineParser parser;
    describe(parser);
    const QString described = parser.helpText();
    return QLatin1String(usage) + commandsHelp() + QLatin1String("\n\n")
        + described.mid(described.indexOf(QLatin1String("Options:"))) + QLatin1String(notes)
        + exitCodesHelp() + QLatin1String(severalFailures);
}
