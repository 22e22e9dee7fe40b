#ifndef TARVISNET_TESTS_BENCH_HTTP2BENCH_H
#define TARVISNET_TESTS_BENCH_HTTP2BENCH_H

#include "clientbench.h"
#include "http2server.h"

#include <QtCore/QJsonObject>
#include <QtNetwork/QSslCertificate>

/// A fast client, and a server that speaks HTTP/2; the bench's other server speaks HTTP/1.1 alone.
struct Http2Bench : ClientBench {
    explicit Http2Bench(const TransferPolicy &policy = fast(),
                        ScriptedServer::Mode mode = ScriptedServer::Mode::Https)
        : ClientBench(mode, policy)
    {
    }

    /// The fast policy for the servers' certificate, its wait before a retry next to nothing.
    static TransferPolicy fast()
    {
        TransferPolicy policy = TransferPolicy::fast();
        policy.setCaCertificates(
            QSslCertificate::fromPath(QStringLiteral(TARVISNET_TEST_CERTIFICATES "/server.crt")));
        policy.setRetryDelay(1);
        return policy;
    }

    /// Runs the event loop until \a count requests have ended, and what is left to do is done.
    bool waitForEnds(int count = 1)
    {
        for (int changes = 1; ends().size() < count; ++changes) {
            if (!recorder.waitFor("s_repliesCountChanged", changes, 20000))
                return false;
        }
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QCoreApplication::processEvents();
        return true;
    }
    /// How requests have ended, a line each, in alphabetical order: the path, and the result's
    /// signal and bytes or the code of the error. "/a s_rawGet {"n":1}", "/b -203".
    QStringList ends() const
    {
        QStringList lines;
        for (const SignalCall &call : recorder.calls()) {
            if (const QString line = endOf(call); !line.isEmpty())
                lines.append(line);
        }
        lines.sort();
        return lines;
    }

    Http2Server http2;

private:
    static QString endOf(const SignalCall &call)
    {
        const auto pathOf = [&call](int index) {
            return QUrl(call.args.at(index).toString()).path();
        };
        if (call.name == QLatin1String("s_errorChanged"))
            return pathOf(1) + ' ' + call.args.at(0).toString();
        if (call.name == QLatin1String("s_aborted") || call.name == QLatin1String("s_finished")
            || call.name == QLatin1String("s_rawDeleteFinished"))
            return pathOf(0) + ' ' + call.name;
        const bool isResult = call.args.size() > 1
            && (call.name.startsWith(QLatin1String("s_raw"))
                || call.name.startsWith(QLatin1String("s_fetch")));
        return isResult ? pathOf(1) + ' ' + call.name + ' ' + textOf(call.args.at(0)) : QString();
    }
    static QString textOf(const QVariant &content)
    {
        const bool isDocument = content.canConvert<QJsonDocument>();
        return QString::fromUtf8(isDocument
                                     ? content.toJsonDocument().toJson(QJsonDocument::Compact)
                                     : content.toByteArray());
    }
};

#endif // TARVISNET_TESTS_BENCH_HTTP2BENCH_H
