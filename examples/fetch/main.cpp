#include "console.h"
#include "exitcode.h"
#include "fetcher.h"
#include "interrupt.h"
#include "liblog.h"
#include "options.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QDir>
#include <QtCore/QTemporaryDir>
#include <QtCore/QTimer>

namespace {

int refuse(Console &console, const QString &fault)
{
    console.error(QStringLiteral("tarvisnet-fetch: %1\nTry 'tarvisnet-fetch --help'.").arg(fault));
    return WrongUsage;
}

int show(Console &console, const QString &text)
{
    return console.result(text.toLocal8Bit()) ? Succeeded : NotWritten;
}

int run(QCoreApplication &application, const Options &options, Console &console)
{
    const LibraryLog log(console, options.verbose);
    Fetcher fetcher(options, console);
    Interrupt interrupt;
    QObject::connect(&interrupt, &Interrupt::interrupted, &fetcher, &Fetcher::interrupt);
    QObject::connect(&fetcher, &Fetcher::finished, &application, &QCoreApplication::exit);
    QTimer::singleShot(0, &fetcher, &Fetcher::start);
    return QCoreApplication::exec();
}

/// Runs in a directory that is gone afterwards.
int runSpooled(QCoreApplication &application, Options options, Console &console)
{
    const QDir parent(options.temporaryDirectory.isEmpty() ? QDir::tempPath()
                                                           : options.temporaryDirectory);
    parent.mkpath(QStringLiteral("."));
    const QTemporaryDir spool(parent.filePath(QStringLiteral("tarvisnet-fetch-XXXXXX")));
    if (!spool.isValid()) {
        console.error(spool.errorString());
        return NotWritten;
    }
    options.temporaryDirectory = spool.path();
    options.spoolPath = spool.filePath(QStringLiteral("answer"));
    return run(application, options, console);
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    Options options;
    const QString fault = parseCommandLine(QCoreApplication::arguments(), &options);
    Console console(options.quiet);
    if (!fault.isEmpty()) {
        return refuse(console, fault);
    }
    if (options.help) {
        return show(console, helpText());
    }
    if (options.version) {
        return show(console, QStringLiteral("tarvisnet-fetch " TARVISNET_FETCH_VERSION "\n"));
    }
    return options.isSpooled() ? runSpooled(application, options, console)
                               : run(application, options, console);
}
