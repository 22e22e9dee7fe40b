// One client under load for a long time. Ends with status 0 only if every request succeeded and
// neither memory nor open files nor replies grew.

#include "soakrun.h"

#include <QtCore/QCommandLineParser>
#include <QtCore/QCoreApplication>
#include <QtCore/QTextStream>
#include <QtNetwork/QSslConfiguration>

#include <algorithm>
#include <functional>
#include <numeric>

namespace {

/// A figure that must not grow.
struct Figure {
    const char *name;
    std::function<double(const SoakSample &)> of;
    /// By how much the mean of the last third may lie above that of the first.
    double tolerance;
};

constexpr double mebibyte = 1024 * 1024;

// The allocator takes resident memory in steps, and never gives it all back: one step is no leak.
// What is allocated tells a leak of some 16 bytes for each request.
const Figure figures[] = {
    {"resident memory, MiB",
     [](const SoakSample &sample) { return double(sample.residentBytes) / mebibyte; }, 4},
    {"allocated, MiB", [](const SoakSample &sample) { return double(sample.heapBytes) / mebibyte; },
     1},
    {"open files", [](const SoakSample &sample) { return double(sample.openFiles); }, 4},
    {"replies alive", [](const SoakSample &sample) { return double(sample.replies); }, 1},
};

double mean(const QVector<SoakSample> &samples, int from, int to, const Figure &figure)
{
    const double sum = std::accumulate(
        samples.begin() + from, samples.begin() + to, 0.0,
        [&figure](double total, const SoakSample &sample) { return total + figure.of(sample); });
    return sum / (to - from);
}

double greatest(const QVector<SoakSample> &samples, const Figure &figure)
{
    double most = 0;
    for (const SoakSample &sample : samples)
        most = std::max(most, figure.of(sample));
    return most;
}

/// The samples behind the first round: what that takes, the later ones find taken.
QVector<SoakSample> settled(const QVector<SoakSample> &samples, const SoakPlan &plan)
{
    const int firstRound = int(qint64(plan.requests) * plan.downloadsAtOnce / plan.downloads);
    const auto first =
        std::find_if(samples.cbegin(), samples.cend(), [firstRound](const SoakSample &sample) {
            return sample.requests > firstRound;
        });
    return samples.mid(int(first - samples.cbegin()));
}

bool isFlat(const QVector<SoakSample> &samples, QTextStream &out)
{
    const int count = int(samples.size());
    const int third = count / 3;
    if (third == 0) {
        out << "too few samples\n";
        return false;
    }
    bool allFlat = true;
    for (const Figure &figure : figures) {
        const double first = mean(samples, 0, third, figure);
        const double last = mean(samples, count - third, count, figure);
        const bool flat = last <= first + figure.tolerance;
        out << QStringLiteral("%1: first third %2, last third %3, greatest %4: %5\n")
                   .arg(QLatin1String(figure.name), -20)
                   .arg(first, 0, 'f', 2)
                   .arg(last, 0, 'f', 2)
                   .arg(greatest(samples, figure), 0, 'f', 2)
                   .arg(QLatin1String(flat ? "flat" : "GROWS"));
        allFlat = allFlat && flat;
    }
    return allFlat;
}

/// The probe beside the client, which knows of no policy, accepts the same certificate.
TransferPolicy fastPolicy(const QString &authority)
{
    QSslConfiguration everywhere = QSslConfiguration::defaultConfiguration();
    everywhere.setCaCertificates(QSslCertificate::fromPath(authority));
    QSslConfiguration::setDefaultConfiguration(everywhere);
    TransferPolicy policy = TransferPolicy::fast();
    policy.setCaCertificates(everywhere.caCertificates());
    return policy;
}

SoakPlan planOf(const QCoreApplication &application)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Puts one client under load."));
    parser.addHelpOption();
    const auto add = [&parser](const char *name, const char *description) {
        parser.addOption(
            {QString::fromLatin1(name), QString::fromLatin1(description), QStringLiteral("value")});
    };
    add("server", "URL of the server's root.");
    add("requests", "Small requests in all.");
    add("path", "Path of a small answer; may be given several times.");
    add("downloads", "Downloads in all.");
    add("at-once", "How many of them run at once; 1 unless told.");
    add("download-path", "Path of the file to download.");
    add("download-size", "Its size in bytes.");
    add("directory", "Where downloads are put.");
    add("samples", "File for the samples.");
    add("fast", "Makes the client a fast one that accepts what this certificate has signed.");
    parser.process(application);

    SoakPlan plan;
    plan.server = QUrl(parser.value(QStringLiteral("server")));
    plan.requests = parser.value(QStringLiteral("requests")).toInt();
    plan.paths = parser.values(QStringLiteral("path"));
    plan.downloads = parser.value(QStringLiteral("downloads")).toInt();
    plan.downloadsAtOnce = std::max(parser.value(QStringLiteral("at-once")).toInt(), 1);
    plan.downloadPath = parser.value(QStringLiteral("download-path"));
    plan.downloadSize = parser.value(QStringLiteral("download-size")).toLongLong();
    plan.directory = parser.value(QStringLiteral("directory"));
    plan.samplesFile = parser.value(QStringLiteral("samples"));
    if (parser.isSet(QStringLiteral("fast")))
        plan.policy = fastPolicy(parser.value(QStringLiteral("fast")));
    if (!plan.server.isValid() || plan.paths.isEmpty() || plan.downloads < 1
        || plan.requests < plan.downloads)
        parser.showHelp(2);
    return plan;
}

/// The client logs every step of every request.
void dropMessage(QtMsgType type, const QMessageLogContext &, const QString &text)
{
    if (type == QtFatalMsg)
        fprintf(stderr, "%s\n", qPrintable(text));
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    const SoakPlan plan = planOf(application);
    qInstallMessageHandler(dropMessage);
    SoakRun run(plan);
    QObject::connect(&run, &SoakRun::done, &application, &QCoreApplication::quit);
    run.start();
    application.exec();

    QTextStream out(stdout);
    const QStringList failures = run.failures();
    for (const QString &failure : failures)
        out << failure << '\n';
    const SoakSample last = run.samples().constLast();
    out << QStringLiteral("%1 small requests, %2 downloads of %3 bytes, %4 pings in %5 s\n")
               .arg(run.requestsDone())
               .arg(run.downloadsDone())
               .arg(plan.downloadSize)
               .arg(run.pings())
               .arg(last.seconds, 0, 'f', 1);
    const bool flat = isFlat(settled(run.samples(), plan), out);
    return failures.isEmpty() && flat ? 0 : 1;
}
