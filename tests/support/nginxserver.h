#ifndef TARVISNET_TESTS_NGINXSERVER_H
#define TARVISNET_TESTS_NGINXSERVER_H

#include "serverprogram.h"

#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtCore/QString>
#include <QtCore/QUrl>

/// One request that nginx answered.
struct NginxLogEntry {
    QByteArray method;
    /// Path and query as requested.
    QByteArray target;
    int status = 0;
    /// The Range header of the request; empty without one.
    QByteArray range;
    QByteArray contentType;
    QByteArray userAgent;
    /// Body bytes of the answer.
    qint64 sent = 0;
    /// Content-Encoding of the answer; empty without one.
    QByteArray encoding;
    /// "TLSv1.3" for example; empty for plain HTTP.
    QByteArray tls;
};

/// Debian's nginx over HTTP and HTTPS, the latter by HTTP/2 for a client that wants it. It runs as
/// whoever runs the test:
///
///     NginxServer server("location = /fixed { return 200 'always this'; }");
///     files::write(server.root() + "/index.json", "{}");
///     client.rawGet(server.httpsUrl("/index.json"));
class NginxServer {
public:
    /// \a serverConfig goes into both server blocks, whose root is root(). \a tlsProtocols is what
    /// nginx calls ssl_protocols.
    explicit NginxServer(const QByteArray &serverConfig = QByteArray(),
                         const QByteArray &tlsProtocols = "TLSv1.2 TLSv1.3");

    quint16 httpPort() const { return m_server.port("http"); }
    quint16 httpsPort() const { return m_server.port("https"); }
    /// URLs of \a pathAndQuery, which is taken as encoded.
    QUrl httpUrl(const QString &pathAndQuery = QStringLiteral("/")) const;
    QUrl httpsUrl(const QString &pathAndQuery = QStringLiteral("/")) const;
    /// Directory of the files that are served; empty at first.
    QString root() const;

    /// All requests so far, in the order in which nginx was done with them. nginx logs a request
    /// when it has sent the answer, so the client may be a little ahead.
    QList<NginxLogEntry> accessLog() const;
    /// The same for requests of exactly \a path, whatever their query.
    QList<NginxLogEntry> accessLog(const QByteArray &path) const;

private:
    ServerProgram m_server;
};

#endif // TARVISNET_TESTS_NGINXSERVER_H
