#include "serverurl.h"

QUrl urlOfPath(const QString &host, int port, const QString &path)
{
    QUrl url;
    url.setScheme(QStringLiteral("https"));
    url.setHost(host, QUrl::DecodedMode);
    url.setPort(port);
    url.setPath(path, QUrl::DecodedMode);
    return url;
}

QString serverText(const QUrl &url)
{
    QUrl server;
    server.setScheme(url.scheme());
    server.setHost(url.host());
    server.setPort(url.port());
    return server.toString();
}
