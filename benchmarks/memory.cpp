// Collects one body in memory. A bound on the reply's read buffer makes it arrive in small chunks,
// which on a loopback connection it would not do by itself.

#include "support.h"

#include <tarvisnet/tarvisnet.h>

#include <QtCore/QChildEvent>
#include <QtCore/QCoreApplication>
#include <QtCore/QCryptographicHash>
#include <QtCore/QPointer>
#include <QtCore/QTimer>
#include <QtNetwork/QNetworkAccessManager>
#include <QtNetwork/QNetworkReply>

namespace {

/// Bounds the read buffer of every reply, whoever made it.
class SmallChunks : public QObject {
public:
    explicit SmallChunks(qint64 size)
        : m_size(size)
    {
        QCoreApplication::instance()->installEventFilter(this);
    }

    bool eventFilter(QObject *object, QEvent *event) override
    {
        if (event->type() == QEvent::ChildAdded && qobject_cast<QNetworkAccessManager *>(object)) {
            // A child tells what it is only when its constructor is done.
            const QPointer<QObject> child = static_cast<QChildEvent *>(event)->child();
            QTimer::singleShot(0, this, [this, child] {
                if (auto *reply = qobject_cast<QNetworkReply *>(child.data()))
                    reply->setReadBufferSize(m_size);
            });
        }
        return QObject::eventFilter(object, event);
    }

private:
    const qint64 m_size;
};

struct Outcome {
    double seconds = 0;
    QByteArray body;

    void take(const QByteArray &data, const QElapsedTimer &clock)
    {
        seconds = bench::seconds(clock);
        body = data;
        QCoreApplication::quit();
    }
};

Outcome collectWithLibrary(const QUrl &url)
{
    Outcome outcome;
    QElapsedTimer clock;
    clock.start();
    TarvisNet client;
    QObject::connect(&client, &TarvisNet::s_rawGetFileFinished, &client,
                     [&](const QByteArray &data) { outcome.take(data, clock); });
    client.rawGetFile(url);
    QCoreApplication::exec();
    return outcome;
}

Outcome collectWithManager(const QUrl &url)
{
    Outcome outcome;
    QElapsedTimer clock;
    clock.start();
    const QSslConfiguration sslConfiguration = bench::installSslConfiguration();
    QNetworkAccessManager manager;
    QNetworkRequest request = bench::request(url, "application/x-www-form-urlencoded");
    request.setSslConfiguration(sslConfiguration);
    QNetworkReply *reply = manager.get(request);
    QByteArray body;
    QObject::connect(reply, &QIODevice::readyRead, reply, [&] { body += reply->readAll(); });
    QObject::connect(reply, &QNetworkReply::finished, reply, [&] { outcome.take(body, clock); });
    QCoreApplication::exec();
    return outcome;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    const bench::Options options(
        {QStringLiteral("engine"), QStringLiteral("url"), QStringLiteral("chunk")});
    bench::dropMessages();
    const SmallChunks smallChunks(options.number(QStringLiteral("chunk")));
    const QUrl url(options.text(QStringLiteral("url")));
    const Outcome outcome = options.isLibrary() ? collectWithLibrary(url) : collectWithManager(url);
    const QByteArray hash = QCryptographicHash::hash(outcome.body, QCryptographicHash::Sha1);
    bench::print({{QStringLiteral("seconds"), outcome.seconds},
                  {QStringLiteral("sha1"), QString::fromLatin1(hash.toHex())}});
}
