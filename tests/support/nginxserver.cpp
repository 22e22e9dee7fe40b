#include "nginxserver.h"

#include "boundprocess.h"
#include "files.h"
#include "scriptedserver.h"

#include <QtCore/QDir>
#include <QtNetwork/QHostAddress>
#include <QtNetwork/QTcpSocket>

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
        listen 127.0.0.1:@https@ ssl;
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

QUrl localUrl(const QString &scheme, quint16 port, const QString &pathAndQuery)
{
    return QUrl(QStringLiteral("%1://127.0.0.1:%2").arg(scheme).arg(port) + pathAndQuery);
}

} // namespace

NginxServer::NginxServer(const QByteArray &serverConfig, const QByteArray &tlsProtocols)
{
    if (!m_directory.isValid() || !QDir().mkpath(root()))
        qFatal("cannot make a directory for nginx");
    // Somebody else may take a port between its choice and its use.
    constexpr int attempts = 5;
    for (int i = 0; i < attempts; ++i) {
        if (start(serverConfig, tlsProtocols))
            return;
    }
    qFatal("nginx does not start: %s%s", m_process->readAllStandardError().constData(),
           files::read(m_directory.filePath(QStringLiteral("error.log"))).constData());
}

NginxServer::~NginxServer()
{
    stop();
}

QUrl NginxServer::httpUrl(const QString &pathAndQuery) const
{
    return localUrl(QStringLiteral("http"), m_httpPort, pathAndQuery);
}

QUrl NginxServer::httpsUrl(const QString &pathAndQuery) const
{
    return localUrl(QStringLiteral("https"), m_httpsPort, pathAndQuery);
}

QString NginxServer::root() const
{
    return m_directory.filePath(QStringLiteral("root"));
}

QList<NginxLogEntry> NginxServer::accessLog() const
{
    QList<NginxLogEntry> entries;
    const QList<QByteArray> lines =
        files::read(m_directory.filePath(QStringLiteral("access.log"))).split('\n');
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

QByteArray NginxServer::configuration(const QByteArray &serverConfig,
                                      const QByteArray &tlsProtocols) const
{
    return QByteArray(configurationFrame)
        .replace("@certificates@", TARVISNET_TEST_CERTIFICATES)
        .replace("@protocols@", tlsProtocols)
        .replace("@http@", QByteArray::number(m_httpPort))
        .replace("@https@", QByteArray::number(m_httpsPort))
        .replace("@server@", serverConfig);
}

bool NginxServer::start(const QByteArray &serverConfig, const QByteArray &tlsProtocols)
{
    m_httpPort = ScriptedServer::freePort();
    m_httpsPort = ScriptedServer::freePort();
    const QString file = m_directory.filePath(QStringLiteral("nginx.conf"));
    files::write(file, configuration(serverConfig, tlsProtocols));
    m_process.reset(new BoundProcess);
    m_process->start(QStringLiteral(TARVISNET_NGINX_PROGRAM),
                     {QStringLiteral("-p"), m_directory.path(), QStringLiteral("-c"), file,
                      QStringLiteral("-e"), QStringLiteral("stderr")});
    return m_process->waitForStarted() && waitUntilListening();
}

bool NginxServer::waitUntilListening()
{
    for (const quint16 port : {m_httpPort, m_httpsPort}) {
        QTcpSocket socket;
        do {
            socket.abort();
            socket.connectToHost(QHostAddress(QHostAddress::LocalHost), port);
            // Failing to connect means that nginx is still starting, or has ended.
        } while (!socket.waitForConnected() && !m_process->waitForFinished(10));
        if (socket.state() != QAbstractSocket::ConnectedState)
            return false;
    }
    return m_process->state() == QProcess::Running;
}

void NginxServer::stop()
{
    m_process->terminate();
    if (!m_process->waitForFinished())
        m_process->kill();
    m_process->waitForFinished();
}
