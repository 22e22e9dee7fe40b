#ifndef TARVISNET_TESTS_REALSERVERS_H
#define TARVISNET_TESTS_REALSERVERS_H

#include "nginxserver.h"

#include <QtCore/QSharedPointer>

/// What Debian has of servers, all serving the same directory, and all of them ready to compress
/// text on the way. "@root@" stands for that directory, "@backend@" for the port of nginx.
namespace realservers {

// An answer that was hinted at comes late, when another request may be waiting for its own. What
// nginx can delay is that somebody is not known.
inline constexpr char nginx[] = R"(
    gzip on;
    gzip_types text/plain;
    location /plain/ { default_type application/json; return 200 '{"path":"$uri"}'; }
    location /hinted/ {
        auth_basic late;
        auth_basic_user_file nobody;
        auth_delay 200ms;
        error_page 401 =200 @late;
    }
    location @late { default_type application/json; return 200 '{"path":"$uri"}'; }
)";

// What root starts goes on as a user without rights. A file that is overwritten must not be mapped
// into memory.
inline constexpr char apache[] = R"(
    ServerRoot "@directory@"
    ServerName localhost
    Listen 127.0.0.1:@http@
    PidFile apache.pid
    ErrorLog error.log
    User nobody
    Group nogroup
    LoadModule mpm_event_module /usr/lib/apache2/modules/mod_mpm_event.so
    LoadModule authz_core_module /usr/lib/apache2/modules/mod_authz_core.so
    LoadModule mime_module /usr/lib/apache2/modules/mod_mime.so
    LoadModule filter_module /usr/lib/apache2/modules/mod_filter.so
    LoadModule deflate_module /usr/lib/apache2/modules/mod_deflate.so
    StartServers 1
    EnableMMAP Off
    TypesConfig /dev/null
    AddType text/plain txt
    AddOutputFilterByType DEFLATE text/plain
    DocumentRoot "@root@"
)";

// What it knows of a file is out of date for a second, unless it is told to look.
inline constexpr char lighttpd[] = R"(
    server.modules = ("mod_deflate")
    server.bind = "127.0.0.1"
    server.port = @http@
    server.document-root = "@root@"
    server.stat-cache-engine = "disable"
    mimetype.assign = (".txt" => "text/plain")
    deflate.mimetypes = ("text/plain")
    deflate.allowed-encodings = ("gzip")
)";

inline constexpr char caddy[] = R"(
    {
        admin off
        auto_https off
    }
    http://127.0.0.1:@http@ {
        bind 127.0.0.1
        root * @root@
        encode gzip
        file_server
    }
)";

inline constexpr char haproxy[] = R"(
    global
        maxconn 100
    defaults
        mode http
        timeout connect 10s
        timeout client 60s
        timeout server 60s
    frontend all
        bind 127.0.0.1:@http@
        http-request early-hint Link "</style.css>; rel=preload" if { path_beg /hinted/ }
        default_backend nginx
    backend nginx
        server nginx 127.0.0.1:@backend@
)";

struct Row {
    const char *name;
    const char *program;
    QStringList arguments;
    const char *configuration;
};

inline QList<Row> rows()
{
    return {
        {"Apache", "/usr/sbin/apache2", {"-f", "@file@", "-DFOREGROUND"}, apache},
        {"lighttpd", "/usr/sbin/lighttpd", {"-D", "-f", "@file@"}, lighttpd},
        {"Caddy", "/usr/bin/caddy", {"run", "--config", "@file@", "--adapter", "caddyfile"}, caddy},
        {"haproxy", "/usr/sbin/haproxy", {"-db", "-q", "-f", "@file@"}, haproxy},
    };
}

} // namespace realservers

/// All of them at work.
class RealServers {
public:
    RealServers()
    {
        m_urls["nginx, HTTP"] = m_nginx.httpUrl();
        m_urls["nginx, HTTPS"] = m_nginx.httpsUrl();
        for (const realservers::Row &row : realservers::rows())
            start(row);
    }

    QList<QByteArray> names() const { return m_urls.keys(); }
    QUrl url(const QByteArray &name, const QString &path) const
    {
        QUrl url = m_urls.value(name);
        url.setPath(path);
        return url;
    }
    /// Directory of the files that are served.
    QString root() const { return m_nginx.root(); }

private:
    void start(const realservers::Row &row)
    {
        const QByteArray configuration =
            QByteArray(row.configuration)
                .replace("@root@", root().toUtf8())
                .replace("@backend@", QByteArray::number(m_nginx.httpPort()));
        const QSharedPointer<ServerProgram> program(
            new ServerProgram({row.program, row.arguments, configuration}));
        m_programs.append(program);
        m_urls[row.name] = QStringLiteral("http://127.0.0.1:%1/").arg(program->port());
    }

    const NginxServer m_nginx{realservers::nginx};
    QList<QSharedPointer<ServerProgram>> m_programs;
    QMap<QByteArray, QUrl> m_urls;
};

#endif // TARVISNET_TESTS_REALSERVERS_H
