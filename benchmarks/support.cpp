#include "support.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QFile>
#include <QtCore/QJsonDocument>
#include <QtCore/QUrl>

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <unistd.h>

namespace {

struct NamedPolicy {
    QLatin1String engine;
    TransferPolicy (*make)();
};

constexpr NamedPolicy policies[] = {
    {QLatin1String("library"), [] { return TransferPolicy(); }},
    {QLatin1String("strict"), TransferPolicy::strict},
    {QLatin1String("fast"), TransferPolicy::fast},
};

} // namespace

namespace bench {

Options::Options(const QStringList &names)
{
    for (const QString &name : names)
        m_parser.addOption(QCommandLineOption(name, QString(), QStringLiteral("value")));
    m_parser.process(*QCoreApplication::instance());
}

std::optional<TransferPolicy> policy(const QString &engine, const QString &authority)
{
    const auto named = std::find_if(std::begin(policies), std::end(policies),
                                    [&](const auto &row) { return engine == row.engine; });
    if (named == std::end(policies))
        return std::nullopt;
    TransferPolicy policy = named->make();
    if (!authority.isEmpty())
        policy.setCaCertificates(QSslCertificate::fromPath(authority));
    return policy;
}

void dropMessages()
{
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});
}

QSslConfiguration installSslConfiguration()
{
    QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
    configuration.setProtocol(QSsl::TlsV1_0OrLater);
    configuration.setPeerVerifyMode(QSslSocket::VerifyNone);
    QSslConfiguration::setDefaultConfiguration(configuration);
    return configuration;
}

QNetworkRequest request(const QUrl &url, const QByteArray &contentType)
{
    QNetworkRequest request(url);
    request.setHeader(QNetworkRequest::ContentTypeHeader, contentType);
    request.setRawHeader("User-Agent", "0.0.0_Vextor-Tarvis_1.15.0.14194_x86_64");
    // Qt 6 would use HTTP/2 unasked.
    request.setAttribute(QNetworkRequest::Http2AllowedAttribute, false);
    return request;
}

QUrl numbered(const QString &url, int number)
{
    return QUrl(url + QLatin1Char('?') + QString::number(number));
}

qint64 residentBytes()
{
    QFile file(QStringLiteral("/proc/self/statm"));
    if (!file.open(QIODevice::ReadOnly))
        qFatal("cannot read /proc/self/statm");
    // Pages: of the whole address space, then resident.
    return file.readAll().split(' ').value(1).toLongLong() * ::sysconf(_SC_PAGESIZE);
}

double seconds(const QElapsedTimer &clock)
{
    return double(clock.nsecsElapsed()) / 1e9;
}

void print(const QJsonObject &result)
{
    std::puts(QJsonDocument(result).toJson(QJsonDocument::Compact).constData());
}

} // namespace bench
