// Many clients at once in one process: each asks for what an application asks for at its start, one
// after the other, and then downloads a file slowly enough for its probe to ask. Ends with status 0
// only if all succeeded.

#include "processfigures.h"

#include <tarvisnet/tarvisnet.h>

#include <QtCore/QCommandLineParser>
#include <QtCore/QCoreApplication>
#include <QtCore/QDir>
#include <QtCore/QElapsedTimer>
#include <QtCore/QFile>
#include <QtCore/QTextStream>

#include <memory>
#include <vector>

namespace {

struct CrowdPlan {
    QString host;
    QString port;
    int clients = 0;
    QString downloadPath;
    qulonglong downloadSize = 0;
    QString directory;
};

/// One installation of the application.
class Member : public QObject {
    Q_OBJECT

public:
    Member(const CrowdPlan &plan, int number)
        : m_plan(plan)
        , m_file(QStringLiteral("%1/%2.bin").arg(plan.directory).arg(number))
    {
        m_client.setServerHost(plan.host);
        m_client.setServerPort(plan.port);
        m_client.setTemporaryDirectory(plan.directory);
        connect(&m_client, &TarvisNet::s_fetchDefinition, this,
                [this] { m_client.fetchIndex(QStringLiteral("/index.json")); });
        // Queued, because the end of a request stops the probe of what is started within it.
        connect(
            &m_client, &TarvisNet::s_fetchIndex, this,
            [this] { m_client.fetchBinary(m_plan.downloadPath, m_file, m_plan.downloadSize); },
            Qt::QueuedConnection);
        connect(&m_client, &TarvisNet::s_finished, this, &Member::done);
        connect(&m_client, &TarvisNet::s_errorChanged, this, &Member::fail);
        connect(&m_client, &TarvisNet::s_aborted, this,
                [this](const QString &url) { fail(0, url); });
    }

    void start() { m_client.fetchDefinition(QStringLiteral("/definition.json")); }
    bool hasSucceeded() const
    {
        return !m_failed && qulonglong(QFile(m_file).size()) == m_plan.downloadSize;
    }

Q_SIGNALS:
    void done();

private:
    void fail(short code, const QString &url)
    {
        QTextStream(stderr) << "error " << code << ", " << url << '\n';
        if (m_failed)
            return;
        m_failed = true;
        Q_EMIT done();
    }

    const CrowdPlan m_plan;
    const QString m_file;
    bool m_failed = false;
    TarvisNet m_client;
};

CrowdPlan planOf(const QCoreApplication &application)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Lets many clients fetch at once."));
    parser.addHelpOption();
    const auto add = [&parser](const char *name, const char *description) {
        parser.addOption(
            {QString::fromLatin1(name), QString::fromLatin1(description), QStringLiteral("value")});
    };
    add("host", "The server.");
    add("port", "Its port.");
    add("clients", "How many clients.");
    add("download-path", "Path of the file to download.");
    add("download-size", "Its size in bytes.");
    add("directory", "Where downloads are put.");
    parser.process(application);

    CrowdPlan plan;
    plan.host = parser.value(QStringLiteral("host"));
    plan.port = parser.value(QStringLiteral("port"));
    plan.clients = parser.value(QStringLiteral("clients")).toInt();
    plan.downloadPath = parser.value(QStringLiteral("download-path"));
    plan.downloadSize = parser.value(QStringLiteral("download-size")).toULongLong();
    plan.directory = parser.value(QStringLiteral("directory"));
    if (plan.clients < 1)
        parser.showHelp(2);
    return plan;
}

/// The clients log every step of every request.
void dropMessage(QtMsgType type, const QMessageLogContext &, const QString &text)
{
    if (type == QtFatalMsg)
        fprintf(stderr, "%s\n", qPrintable(text));
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    const CrowdPlan plan = planOf(application);
    qInstallMessageHandler(dropMessage);
    processfigures::raiseOpenFilesLimit();

    std::vector<std::unique_ptr<Member>> crowd;
    int waiting = plan.clients;
    for (int number = 0; number < plan.clients; ++number) {
        crowd.push_back(std::make_unique<Member>(plan, number));
        QObject::connect(crowd.back().get(), &Member::done, &application, [&waiting] {
            if (--waiting == 0)
                QCoreApplication::quit();
        });
    }
    QElapsedTimer clock;
    clock.start();
    for (const auto &member : crowd)
        member->start();
    application.exec();

    int succeeded = 0;
    for (const auto &member : crowd)
        succeeded += member->hasSucceeded() ? 1 : 0;
    QTextStream(stdout) << succeeded << " of " << plan.clients << " clients succeeded in "
                        << double(clock.elapsed()) / 1000 << " s, with "
                        << processfigures::residentBytes() / plan.clients / 1024
                        << " KiB of memory and "
                        << double(processfigures::openFiles()) / plan.clients
                        << " open files for each\n";
    return succeeded == plan.clients ? 0 : 1;
}

#include "crowd.moc"
