#include "liblog.h"

#include "console.h"

namespace {

// Qt calls the handler without an argument of ours.
Console *console = nullptr;
bool showAll = false;

struct Level {
    QtMsgType type;
    bool always;
    const char *name;
};

constexpr Level levels[] = {
    {QtDebugMsg, false, "debug"},     {QtInfoMsg, false, "info"},
    {QtWarningMsg, false, "warning"}, {QtCriticalMsg, true, "critical"},
    {QtFatalMsg, true, "fatal"},
};

void handleMessage(QtMsgType type, const QMessageLogContext &, const QString &text)
{
    for (const Level &level : levels) {
        if (level.type == type && (showAll || level.always)) {
            console->error(
                QStringLiteral("[%1] %2").arg(QLatin1String(level.name), text.trimmed()));
        }
    }
}

} // namespace

LibraryLog::LibraryLog(Console &target, bool verbose)
    : m_previous(qInstallMessageHandler(handleMessage))
{
    console = &target;
    showAll = verbose;
}

LibraryLog::~LibraryLog()
{
    qInstallMessageHandler(m_previous);
    console = nullptr;
}
