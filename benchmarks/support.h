#ifndef TARVISNET_BENCHMARKS_SUPPORT_H
#define TARVISNET_BENCHMARKS_SUPPORT_H

#include <tarvisnet/transferpolicy.h>

#include <QtCore/QCommandLineParser>
#include <QtCore/QElapsedTimer>
#include <QtCore/QJsonObject>
#include <QtNetwork/QNetworkRequest>
#include <QtNetwork/QSslConfiguration>

#include <optional>

/// What the measuring programs share.
namespace bench {

/// The options of a program, each with a value.
class Options {
public:
    /// Reads the command line and fails on what is not in \a names.
    explicit Options(const QStringList &names);

    QString text(const QString &name) const { return m_parser.value(name); }
    qint64 number(const QString &name) const { return text(name).toLongLong(); }
    /// Whether the client is to be measured, and not the bare manager.
    bool isLibrary() const { return text(QStringLiteral("engine")) == QLatin1String("library"); }

private:
    QCommandLineParser m_parser;
};

/// The policy of the client that \a engine names, which accepts certificates of the \a authority in
/// that file. Nothing if the engine is no client.
std::optional<TransferPolicy> policy(const QString &engine, const QString &authority);

/// The library logs a lot; writing it to a terminal is not what is to be measured.
void dropMessages();

/// Installs what the client installs for the whole process, and returns it.
QSslConfiguration installSslConfiguration();

/// A request with the headers that the client's requests have.
QNetworkRequest request(const QUrl &url, const QByteArray &contentType);

/// \a url with a query that makes it differ from the other ones.
QUrl numbered(const QString &url, int number);

/// What this process now has of the machine's memory.
qint64 residentBytes();

/// Seconds since \a clock was started.
double seconds(const QElapsedTimer &clock);

/// The line that the driver reads.
void print(const QJsonObject &result);

} // namespace bench

#endif // TARVISNET_BENCHMARKS_SUPPORT_H
