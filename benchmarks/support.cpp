#include "support.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QJsonDocument>
#include <QtCore/QUrl>

#include <cstdio>

namespace bench {

Options::Options(const QStringList &names)
{
    for (const QString &name : names)
        m_parser.addOption(QCommandLineOption(name, QString(), QStringLiteral("value")));
    m_parser.process(*QCoreApplication::instance());
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
    return request;
}

QUrl numbered(const QString &url, int number)
{
    return QUrl(url + QLatin1Char('?') + QString::number(number));
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
