// Does what applications may do, in any order, with servers that misbehave, and checks that what
// is promised holds. Every run is drawn from a seed, and can be done again with it.

#include "chaosrun.h"
#include "watchdog.h"

#include <QtCore/QCommandLineParser>
#include <QtCore/QCoreApplication>
#include <QtCore/QElapsedTimer>
#include <QtCore/QTextStream>

#include <cstdio>
#include <random>

namespace {

struct Options {
    quint64 seed = 0;
    qint64 runs = 0;
    qint64 msec = 0;
    bool showsLog = false;
};

Options optionsOf(const QCoreApplication &application)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Random operations against servers that misbehave."));
    parser.addHelpOption();
    const QCommandLineOption seed(
        QStringLiteral("seed"),
        QStringLiteral("Seed of the first run; each next one has the next "
                       "number. Random unless given."),
        QStringLiteral("number"));
    const QCommandLineOption runs(QStringLiteral("runs"),
                                  QStringLiteral("How many runs; 1 unless given."),
                                  QStringLiteral("number"), QStringLiteral("1"));
    const QCommandLineOption minutes(QStringLiteral("minutes"),
                                     QStringLiteral("Runs for this long instead."),
                                     QStringLiteral("number"));
    const QCommandLineOption log(QStringLiteral("log"),
                                 QStringLiteral("Shows what the library and Qt log."));
    parser.addOptions({seed, runs, minutes, log});
    parser.process(application);

    Options options;
    options.seed = parser.isSet(seed) ? parser.value(seed).toULongLong() : std::random_device()();
    options.runs = parser.value(runs).toLongLong();
    options.msec = qint64(parser.value(minutes).toDouble() * 60000);
    options.showsLog = parser.isSet(log);
    return options;
}

void dropMessage(QtMsgType type, const QMessageLogContext &, const QString &text)
{
    if (type == QtFatalMsg)
        std::fprintf(stderr, "%s\n", qPrintable(text));
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    const Options options = optionsOf(application);
    if (!options.showsLog)
        qInstallMessageHandler(dropMessage);
    Watchdog watchdog;
    QTextStream out(stdout);
    QElapsedTimer clock;
    clock.start();
    qint64 runs = 0;
    qint64 requests = 0;
    qint64 failed = 0;
    const auto goesOn = [&] {
        return options.msec > 0 ? clock.elapsed() < options.msec : runs < options.runs;
    };
    for (quint64 seed = options.seed; goesOn(); ++seed, ++runs) {
        // Told before, because the run may end the process.
        out << "seed " << seed << '\n';
        out.flush();
        ChaosRun run(seed);
        const QStringList faults = run.run();
        requests += run.requests();
        if (faults.isEmpty())
            continue;
        ++failed;
        out << run.diary().join(QLatin1Char('\n')) << '\n';
        for (const QString &fault : faults)
            out << "seed " << seed << ": " << fault << '\n';
    }
    out << runs << " runs, the first with the seed " << options.seed << ", " << requests
        << " requests, longest pause of the event loop " << watchdog.longestGapMsec() << " ms, "
        << failed << " runs failed\n";
    return failed == 0 ? 0 : 1;
}
