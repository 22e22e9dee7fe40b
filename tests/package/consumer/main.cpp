// Uses each public class once: what is not installed, exported or found shows here.

#include <tarvisnet/errorcodes.h>
#include <tarvisnet/networkprocessor.h>
#include <tarvisnet/remoteping.h>
#include <tarvisnet/tarvisnet.h>

// The include directories hold the folder itself, too.
#include <records.h>

#include <QtCore/QCoreApplication>
#include <QtNetwork/QNetworkAccessManager>

#include <cstdio>
#include <type_traits>

static_assert(std::is_aggregate_v<FileData>);

// Each field can be given where the record is made.
const FileData file = {QStringLiteral("file"), QStringLiteral("file.part"), QString(), 6, 3};

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    TarvisNet client;
    NetworkProcessor processor;
    RemotePing probe(QSharedPointer<QNetworkAccessManager>::create());

    // Nobody listens on the discard port, so the request has to fail with the code for that.
    QObject::connect(&client, &TarvisNet::s_errorChanged, &application,
                     [](short code) { QCoreApplication::exit(-code); });
    client.rawGet(QUrl(QStringLiteral("http://127.0.0.1:9/")));
    const int code = QCoreApplication::exec();
    std::printf("%s %s\n", qPrintable(client.getUserAgent()),
                code == -errorcodes::network_error ? "works" : "does not work");
    return code == -errorcodes::network_error ? 0 : 1;
}
