#include "nginxserver.h"

#include "files.h"

#include <QtCore/QDir>

#include <algorithm>
#include <iterator>

namespace {

// A single process: there is no worker that could be left behind or that would change its user. All
// paths that the package configures for the system's nginx are replaced.
constexpr char configurationFrame[] = R"(
daemon off;
master_process off;
pid nginx.pid;
lock_file nginx.lock;
error_log error.log warn;
events { worker_connections 256; }
http {
    client_body_temp_path body;
    proxy_temp_path proxy;
    fastcgi_temp_path fastcgi;
    uwsgi_temp_path uwsgi;
    scgi_temp_path scgi;
    client_max_body_size 0;
    types { application/json json; text/plain txt; }
    default_type application/octet-stream;
    log_format fields '$request_method\t$request_uri\t$status\t$http_range\t$content_type\t'
                      '$http_user_agent\t$body_bytes_sent\t$sent_http_content_encoding\t'
                      '$ssl_protocol';
    access_log access.log fields;
    ssl_certificate "@certificates@/server.crt";
    ssl_certificate_key "@certificates@/server.key";
    ssl_protocols @protocols@;
    root root;
    server {
        listen 127.0.0.1:@http@;
@server@
    }
    server {
        listen 127.0.0.1:@https@ ssl http2;
@server@
    }
}
)";

constexpr int logFields = 9;

/// The fields of a line of the access log; nginx writes "-" for what is missing.
QList<QByteArray> fieldsOf(const QByteArray &line)
{
    QList<QByteArray> fields = line.split('\t');
    std::replace(fields.begin(), fields.end(), QByteArray("-"), QByteArray());
    return fields;
}

NginxLogEntry parsed(const QList<QByteArray> &fields)
{
    NginxLogEntry entry;
    entry.method = fields.at(0);
    entry.target = fields.at(1);
    entry.status = fields.at(2).toInt();
    entry.range = fields.at(3);
    entry.contentType = fields.at(4);
    entry.userAgent = fields.at(5);
    entry.sent = fields.at(6).toLongLong();
    entry.encoding = fields.at(7);
    entry.tls = fields.at(8);
    return entry;
}

QByteArray configuration(const QByteArray &serverConfig, const QByteArray &tlsProtocols)
{
    return QByteArray(configurationFrame)
        .replace("@certificates@", TARVISNET_TEST_CERTIFICATES)
        .replace("@protocols@", tlsProtocols)
        .replace("@server@", serverConfig);
}

QUrl localUrl(const QString &scheme, quint16 port, const QString &pathAndQuery)
{
    return QUrl(QStringLiteral("%1://127.0.0.1:%2").arg(scheme).arg(port) + pathAndQuery);
}

} // namespace

NginxServer::NginxServer(const QByteArray &serverConfig, const QByteArray &tlsProtocols)
    : m_server({QStringLiteral(TARVISNET_NGINX_PROGRAM),
                {QStringLiteral("-p"), QStringLiteral("@directory@"), QStringLiteral("-c"),
                 QStringLiteral("@file@"), QStringLiteral("-e"), QStringLiteral("stderr")},
                configuration(serverConfig, tlsProtocols),
                {"http", "https"}})
{
    if (!QDir().mkpath(root()))
        qFatal("cannot make a directory for nginx");
}

QUrl NginxServer::httpUrl(const QString &pathAndQuery) const
{
    return localUrl(QStringLiteral("http"), httpPort(), pathAndQuery);
}

QUrl NginxServer::httpsUrl(const QString &pathAndQuery) const
{
    return localUrl(QStringLiteral("https"), httpsPort(), pathAndQuery);
}

QString NginxServer::root() const
{
    return m_server.path(QStringLiteral("root"));
}

QList<NginxLogEntry> NginxServer::accessLog() const
{
    QList<NginxLogEntry> entries;
    const QList<QByteArray> lines =
        files::read(m_server.path(QStringLiteral("access.log"))).split('\n');
    for (const QByteArray &line : lines) {
        const QList<QByteArray> fields = fieldsOf(line);
        if (fields.size() == logFields)
            entries.append(parsed(fields));
    }
    return entries;
}

QList<NginxLogEntry> NginxServer::accessLog(const QByteArray &path) const
{
    const QList<NginxLogEntry> all = accessLog();
    QList<NginxLogEntry> found;
    std::copy_if(all.begin(), all.end(), std::back_inserter(found),
                 [&path](const NginxLogEntry &entry) {
                     return entry.target.mid(0, entry.target.indexOf('?')) == path;
                 });
    return found;
}
