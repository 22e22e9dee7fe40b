#include "target.h"

#include "commands.h"
#include "options.h"
#include "serverurl.h"

namespace {

QUrl urlOfTarget(const Options &options, const QString &text)
{
    const Command &command = *options.command;
    if (!command.targets.paths || isCompleteUrl(text)) {
        return QUrl(text, QUrl::TolerantMode);
    }
    const bool configured = text.isEmpty() && command.configuredPath;
    const QString path = configured ? options.*command.configuredPath : text;
    return path.isEmpty() && !options.installerUrl.isEmpty()
        ? QUrl(options.installerUrl)
        : urlOfPath(options.host, static_cast<int>(options.port), path);
}

} // namespace

bool isCompleteUrl(const QString &text)
{
    return text.contains(QLatin1String("://"));
}

Target makeTarget(const Options &options, const QString &text)
{
    return {text, urlOfTarget(options, text)};
}
