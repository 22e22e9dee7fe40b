// Fetches index.json from a server, and the files that it names into a directory.

#include <QtCore/QCoreApplication>
#include <QtCore/QDebug>
#include <QtCore/QDir>
#include <QtCore/QJsonArray>
#include <QtCore/QTimer>
#include <tarvisnet/tarvisnet.h>

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    const auto authorities = QSslCertificate::fromPath(arguments.value(3, "/dev/null"));
    if (arguments.size() < 3 || (arguments.size() > 3 && authorities.isEmpty())) {
        qCritical("Usage: updater URL DIRECTORY [CA-FILE [MILLISECONDS-OF-SILENCE]]");
        return 1;
    }
    const QUrl base(arguments.at(1));
    const QDir directory(arguments.at(2));
    directory.mkpath(".");

    TransferPolicy policy = TransferPolicy::strict();
    policy.setCaCertificates(authorities); // none: those of the system
    policy.setIdleTimeout(arguments.value(4, "30000").toInt()); // if it stalls
    TarvisNet client(policy);

    int open = 1; // requests, the index's first
    int status = 0;
    const auto end = [&] {
        if (--open == 0)
            QCoreApplication::exit(status);
    };
    const auto fail = [&](short, const QString &url, const QJsonDocument &details) {
        qCritical().noquote() << url << details["reason"].toString("There are no files in it.");
        status = 1;
        end();
    };
    const auto fetchFiles = [&](const QJsonDocument &index, const QString &url) {
        const QJsonArray files = index["files"].toArray();
        if (files.isEmpty())
            return fail(0, url, index);
        open += files.size();
        for (const QJsonValue &file : files) {
            const QUrl source = base.resolved(file["path"].toString());
            client.fetchBinary(source, directory.filePath(source.fileName()),
                               qulonglong(file["size"].toDouble()), file["sha256"].toString());
        }
        end();
    };
    const auto show = [](double percentage, const QString &url) {
        qInfo("%3.0f %% %s", percentage, qPrintable(url));
    };
    QObject::connect(&client, &TarvisNet::s_fetchIndex, &client, fetchFiles);
    QObject::connect(&client, &TarvisNet::s_downloadFileProgress, &client, show);
    QObject::connect(&client, &TarvisNet::s_finished, &client, end);
    QObject::connect(&client, &TarvisNet::s_errorChanged, &client, fail);
    QTimer::singleShot(0, &client, [&] { client.fetchIndex(base.resolved(QUrl("index.json"))); });
    return QCoreApplication::exec();
}
