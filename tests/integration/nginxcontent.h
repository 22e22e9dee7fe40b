#ifndef TARVISNET_TESTS_NGINXCONTENT_H
#define TARVISNET_TESTS_NGINXCONTENT_H

#include "files.h"
#include "httpresponse.h"
#include "nginxserver.h"

#include <QtTest/QTest>

/// An nginx with content for all the fetches.
struct NginxContent {
    NginxContent()
    {
        const QString root = server.root();
        files::write(root + "/definition.json", R"({"product":"tool"})");
        files::write(root + "/index.json", R"({"entries":3})");
        files::write(root + "/changes.txt", "first\nsecond\n");
        files::write(root + "/packed.json", "{\"text\":\"" + QByteArray(5000, 'x') + "\"}");
        files::write(root + "/installer.zip", small);
        files::write(root + "/small.bin", small);
        files::write(root + "/big.bin", big);
    }

    QUrl url(const QString &scheme, const QString &pathAndQuery) const
    {
        return scheme == "http" ? server.httpUrl(pathAndQuery) : server.httpsUrl(pathAndQuery);
    }

    /// The requests for \a path after the first \a from of them, once there are \a count; empty
    /// when there are never that many.
    QList<NginxLogEntry> logged(const QByteArray &path, int from, int count) const
    {
        const auto areThere = [&] { return server.accessLog(path).size() >= from + count; };
        return QTest::qWaitFor(areThere) ? server.accessLog(path).mid(from)
                                         : QList<NginxLogEntry>();
    }

    // "rate" slows a download down, so that it can be interrupted half-way.
    static constexpr char serverConfig[] = R"(
        limit_rate $arg_rate;
        location = /fixed { default_type application/json; return 200 '{"fixed":true}'; }
        location = /forbidden { return 403; }
        location = /moved { return 302 /index.json; }
        location = /packed.json { gzip on; gzip_types application/json; gzip_min_length 1; }
    )";

    const QByteArray small = HttpResponse::generated(0, 100 * 1000);
    const QByteArray big = HttpResponse::generated(0, 32 * 1024 * 1024);
    const NginxServer server{serverConfig};
};

#endif // TARVISNET_TESTS_NGINXCONTENT_H
