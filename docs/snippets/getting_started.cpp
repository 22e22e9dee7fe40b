// Fetches the index of a content server and downloads the file that the index names.

#include <QtCore/QCoreApplication>
#include <QtCore/QDebug>
#include <QtCore/QFileInfo>
#include <QtCore/QTimer>
#include <tarvisnet/tarvisnet.h>

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() != 3 && arguments.size() != 4) {
        qCritical("Usage: getting_started HOST PORT [AUTHORITY.pem]");
        return 2;
    }

    TransferPolicy policy = TransferPolicy::strict();
    if (arguments.size() == 4)
        policy.setCaCertificates(QSslCertificate::fromPath(arguments.at(3)));
    TarvisNet client(policy);
    client.setServerHost(arguments.at(1));
    client.setServerPort(arguments.at(2));
    client.setIndexPath("/index.json");

    QObject::connect(&client, &TarvisNet::s_fetchIndex, &client,
                     [&client](const QJsonDocument &index) {
                         const QString path = index["path"].toString();
                         const auto size = qulonglong(index["size"].toDouble());
                         const QString hash = index["sha256"].toString();
                         client.fetchBinary(path, QFileInfo(path).fileName(), size, hash);
                     });
    QObject::connect(&client, &TarvisNet::s_downloadFileProgress, &client,
                     [](double percentage) { qInfo("%.0f %%", percentage); });
    QObject::connect(&client, &TarvisNet::s_finished, &client, [](const QString &url) {
        qInfo() << "Saved" << url;
        QCoreApplication::quit();
    });
    QObject::connect(&client, &TarvisNet::s_errorChanged, &client,
                     [](short code, const QString &url, const QJsonDocument &explanation) {
                         qCritical() << "Error" << code << url << explanation["reason"].toString();
                         QCoreApplication::exit(1);
                     });

    // From the event loop: an error that came before it would not end it.
    QTimer::singleShot(0, &client, [&client] { client.fetchIndex(); });
    return QCoreApplication::exec();
}
