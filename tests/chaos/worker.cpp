#include "worker.h"

#include "policies.h"
#include "watchdog.h"

#include <tarvisnet/tarvisnet.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QSocketNotifier>
#include <QtCore/QUrl>

#include <cstdio>
#include <memory>
#include <unistd.h>

namespace {

TransferPolicy policy(int idleTimeout)
{
    TransferPolicy policy = policies::strict();
    policy.setCaCertificates(QSslCertificate::fromPath(TARVISNET_TEST_CERTIFICATES "/server.crt"));
    policy.setIdleTimeout(idleTimeout);
    policy.setRetryDelay(1);
    return policy;
}

// At once, because the next moment may be the last.
void say(const char *what, qint64 number, const QString &url = QString())
{
    std::printf("%s %lld %s\n", what, static_cast<long long>(number), qPrintable(url));
    std::fflush(stdout);
}

std::unique_ptr<TarvisNet> makeClient(const QString &temporaryDirectory, int idleTimeout)
{
    auto client = std::make_unique<TarvisNet>(policy(idleTimeout));
    client->setTemporaryDirectory(temporaryDirectory);
    const auto connect = [&client](auto signal, const auto &receiver) {
        QObject::connect(client.get(), signal, client.get(), receiver);
    };
    connect(&TarvisNet::s_finished, [](const QString &url) { say("finished", 0, url); });
    connect(&TarvisNet::s_aborted, [](const QString &url) { say("aborted", 0, url); });
    connect(&TarvisNet::s_errorChanged,
            [](short code, const QString &url) { say("error", code, url); });
    return client;
}

void obey(TarvisNet &client, const QStringList &order)
{
    const QString verb = order.value(0);
    if (verb == QLatin1String("fetch")) {
        const QString hash = order.value(4);
        client.fetchBinary(QUrl(order.value(1)), order.value(2), order.value(3).toULongLong(),
                           hash == QLatin1String("-") ? QString() : hash);
    } else if (verb == QLatin1String("abort")) {
        client.abortDownload(order.value(1));
    } else {
        QCoreApplication::quit();
    }
}

/// Whatever has arrived; an order to quit when the other end is gone.
QByteArray readOrders()
{
    char bytes[4096];
    const ssize_t size = read(STDIN_FILENO, bytes, sizeof bytes);
    return size > 0 ? QByteArray(bytes, int(size)) : QByteArray("\nquit\n");
}

} // namespace

int worker::run(const QStringList &arguments)
{
    const Watchdog watchdog;
    std::unique_ptr<TarvisNet> client = makeClient(arguments.value(0), arguments.value(1).toInt());
    QByteArray unread;
    const QSocketNotifier input(STDIN_FILENO, QSocketNotifier::Read);
    QObject::connect(&input, &QSocketNotifier::activated, client.get(), [&client, &unread] {
        unread += readOrders();
        for (int end = unread.indexOf('\n'); end >= 0; end = unread.indexOf('\n')) {
            obey(*client, QString::fromLocal8Bit(unread.left(end)).split(QLatin1Char(' ')));
            unread.remove(0, end + 1);
        }
    });
    QCoreApplication::exec();
    client.reset();
    say("pause", watchdog.longestGapMsec());
    return 0;
}
