// Makes and destroys COUNT clients, or COUNT bare managers with the same SSL configuration.

#include "support.h"

#include <tarvisnet/tarvisnet.h>

#include <QtCore/QCoreApplication>
#include <QtNetwork/QNetworkAccessManager>

namespace {

void makeClient()
{
    const TarvisNet client;
}

void makeManager()
{
    const QNetworkAccessManager manager;
    bench::installSslConfiguration();
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    const bench::Options options({QStringLiteral("engine"), QStringLiteral("count")});
    bench::dropMessages();
    void (*const make)() = options.isLibrary() ? makeClient : makeManager;
    const qint64 count = options.number(QStringLiteral("count"));
    // The first one loads the TLS library and the certificates.
    make();
    QElapsedTimer clock;
    clock.start();
    for (qint64 i = 0; i < count; ++i)
        make();
    bench::print(
        {{QStringLiteral("seconds"), bench::seconds(clock)}, {QStringLiteral("count"), count}});
}
