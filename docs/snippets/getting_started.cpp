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
    if (arguments.size() != 3) {
        qCritical("Usage: getting_started HOST PORT");
        return 2;
    }

    TarvisNet client;
    client.setServerHost(arguments.at(1));
    client.setServerPort(arguments.at(2));
    client.setIndexPath("/index.json"); // for example {"path": "/files/atlas.bin", "size": 1048576}

    QObject::connect(&client, &TarvisNet::s_fetchIndex, &client,
                     [&client](const QJsonDocument &index) {
                         const QString path = index["path"].toString();
                         const auto size = qulonglong(index["size"].toDouble());
                         client.fetchBinary(path, QFileInfo(path).fileName(), size);
                     });
    QObject::connect(&client, &TarvisNet::s_downloadFileProgress, &client,
                     [](double percentage) { qInfo("%.0f %%", percentage); });
    QObject::connect(&client, &TarvisNet::s_finished, &client, [](const QString &url) {
        qInfo() << "Saved" << url;
        QCoreApplication::quit();
    });
    QObject::connect(&client, &TarvisNet::s_errorChanged, &client,
                     [](short code, const QString &url) {
                         qCritical() << "Error" << code << url;
                         QCoreApplication::exit(1);
                     });

    // From the event loop: an error that came before it would not end it.
    QTimer::singleShot(0, &client, [&client] { client.fetchIndex(); });
    return QCoreApplication::exec();
}
