// Does what applications may do, in any order, with servers that misbehave, and checks that what
// is promised holds. Every run is drawn from a seed, and can be done again with it.

#include "chaosrun.h"
#include "strictrun.h"
#include "watchdog.h"
#include "worker.h"

#include <QtCore/QCommandLineParser>
#include <QtCore/QCoreApplication>
#include <QtCore/QElapsedTimer>
#include <QtCore/QTextStream>

#include <cstdio>
#include <functional>
#include <random>

namespace {

struct Options {
    quint64 seed = 0;
    qint64 runs = 0;
    qint64 msec = 0;
    bool isStrict = false;
    bool showsLog = false;
};

struct Tally {
    qint64 runs = 0;
    qint64 failed = 0;
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
    const QCommandLineOption strict(
        QStringLiteral("strict"),
        QStringLiteral("Downloads with a strict policy, by a program that is killed."));
    const QCommandLineOption downloads(
        QStringLiteral("downloads"),
        QStringLiteral("With --strict: as many runs as have so many downloads."),
        QStringLiteral("number"));
    const QCommandLineOption log(QStringLiteral("log"),
                                 QStringLiteral("Shows what the library and Qt log."));
    parser.addOptions({seed, runs, minutes, strict, downloads, log});
    parser.process(application);

    Options options;
    options.seed = parser.isSet(seed) ? parser.value(seed).toULongLong() : std::random_device()();
    options.runs = parser.value(runs).toLongLong();
    if (parser.isSet(downloads))
        options.runs = (parser.value(downloads).toLongLong() - 1) / StrictRun::downloadsOfOne + 1;
    options.msec = qint64(parser.value(minutes).toDouble() * 60000);
    options.isStrict = parser.isSet(strict);
    options.showsLog = parser.isSet(log);
    return options;
}

void dropMessage(QtMsgType type, const QMessageLogContext &, const QString &text)
{
    if (type == QtFatalMsg)
        std::fprintf(stderr, "%s\n", qPrintable(text));
}

// One run after the other, each with the next seed; count() is called after each.
template <typename Run>
Tally playAll(const Options &options, QTextStream &out, const std::function<void(Run &)> &count)
{
    QElapsedTimer clock;
    clock.start();
    Tally tally;
    const auto goesOn = [&] {
        return options.msec > 0 ? clock.elapsed() < options.msec : tally.runs < options.runs;
    };
    for (quint64 seed = options.seed; goesOn(); ++seed, ++tally.runs) {
        // Told before, because the run may end the process.
        out << "seed " << seed << '\n';
        out.flush();
        Run run(seed);
        const QStringList faults = run.run();
        count(run);
        if (faults.isEmpty())
            continue;
        ++tally.failed;
        out << run.diary().join(QLatin1Char('\n')) << '\n';
        for (const QString &fault : faults)
            out << "seed " << seed << ": " << fault << '\n';
    }
    return tally;
}

qint64 playOperations(const Options &options, QTextStream &out)
{
    const Watchdog watchdog;
    qint64 requests = 0;
    const Tally tally =
        playAll<ChaosRun>(options, out, [&requests](ChaosRun &run) { requests += run.requests(); });
    out << tally.runs << " runs, the first with the seed " << options.seed << ", " << requests
        << " requests, longest pause of the event loop " << watchdog.longestGapMsec() << " ms, "
        << tally.failed << " runs failed\n";
    return tally.failed;
}

qint64 playStrictly(const Options &options, QTextStream &out)
{
    StrictFigures sum;
    const Tally tally =
        playAll<StrictRun>(options, out, [&sum](StrictRun &run) { sum.add(run.figures()); });
    out << sum.downloads << " downloads, the first with the seed " << options.seed << ", "
        << sum.requests << " requests, " << sum.kills << " kills, ended:";
    for (auto outcome = sum.outcomes.begin(); outcome != sum.outcomes.end(); ++outcome)
        out << ' ' << outcome.key() << ' ' << outcome.value() << ',';
    out << " longest pause of the event loop " << sum.pauseMsec << " ms, " << tally.failed << " of "
        << tally.runs << " runs failed\n";
    return tally.failed;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    const bool isWorker = arguments.value(1) == QLatin1String(worker::option);
    if (isWorker) {
        qInstallMessageHandler(dropMessage);
        return worker::run(arguments.mid(2));
    }
    const Options options = optionsOf(application);
    if (!options.showsLog)
        qInstallMessageHandler(dropMessage);
    QTextStream out(stdout);
    const qint64 failed =
        options.isStrict ? playStrictly(options, out) : playOperations(options, out);
    return failed == 0 ? 0 : 1;
}
