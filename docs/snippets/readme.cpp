#include <QtCore/QCoreApplication>
#include <tarvisnet/tarvisnet.h>

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv); // URL FILE SIZE [SHA256]
    TarvisNet client(TransferPolicy::strict());
    const auto fail = [] { QCoreApplication::exit(1); };
    QObject::connect(&client, &TarvisNet::s_finished, &app, &QCoreApplication::quit);
    // Queued, because an error may come before the event loop runs.
    QObject::connect(&client, &TarvisNet::s_errorChanged, &app, fail, Qt::QueuedConnection);
    client.fetchBinary(QUrl(app.arguments().at(1)), app.arguments().at(2),
                       app.arguments().at(3).toULongLong(), app.arguments().value(4));
    return app.exec();
}
