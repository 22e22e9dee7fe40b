#ifndef TARVISNET_TESTS_FETCHBENCH_H
#define TARVISNET_TESTS_FETCHBENCH_H

#include <tarvisnet/errorcodes.h>
#include <tarvisnet/tarvisnet.h>

#include "logcapture.h"
#include "signalrecorder.h"

#include <QtCore/QTemporaryDir>

/// A client with a temporary directory of its own, and all that it says.
class FetchBench {
public:
    explicit FetchBench()
    {
        client.setTemporaryDirectory(path());
        recorder.clear();
    }

    /// Makes the path forms of the fetches ask \a host at \a port.
    void ask(quint16 port, const QString &host = QStringLiteral("127.0.0.1"))
    {
        client.setServerHost(host);
        client.setServerPort(QString::number(port));
        recorder.clear();
    }

    /// The same, but from now on what is queued stays pending.
    void holdFor(const QUrl &server)
    {
        ask(quint16(server.port()), server.host());
        hold();
    }

    /// From now on what is queued stays pending.
    void hold()
    {
        client.setStopProcess(true);
        recorder.clear();
    }

    /// A file in the temporary directory; without a name, that directory.
    QString path(const QString &name = QString()) const
    {
        return name.isEmpty() ? directory.path() : directory.filePath(name);
    }

    /// Codes of all errors so far.
    QList<int> errors() const
    {
        QList<int> codes;
        const QList<QVariantList> emissions = recorder.of(QStringLiteral("s_errorChanged"));
        for (const QVariantList &arguments : emissions)
            codes.append(arguments.at(0).toInt());
        return codes;
    }

    void add(const ReplyData &record)
    {
        QMetaObject::invokeMethod(&client, "addRequest", Qt::DirectConnection,
                                  Q_ARG(ReplyData, record));
    }

    /// Whether a record that equals \a record in every field is pending: the queue refuses such a
    /// one. If there is none, it is pending afterwards.
    bool isPending(const ReplyData &record)
    {
        const int before = errors().size();
        add(record);
        return errors().mid(before) == QList<int>{errorcodes::already_pending};
    }

    /// The request that a fetch is expected to queue.
    QNetworkRequest request(const QUrl &url, const QString &contentType) const
    {
        QNetworkRequest expected(url);
        expected.setHeader(QNetworkRequest::ContentTypeHeader, contentType);
        expected.setRawHeader("User-Agent", client.getUserAgent().toLocal8Bit());
        return expected;
    }

    QNetworkRequest fileRequest(const QUrl &url, const QString &contentType,
                                const QByteArray &range = QByteArray()) const
    {
        QNetworkRequest expected = request(url, contentType);
        expected.setRawHeader("Connection", "close");
        if (!range.isNull())
            expected.setRawHeader("Range", range);
        return expected;
    }

    LogCapture log;
    QTemporaryDir directory;
    TarvisNet client;
    SignalRecorder recorder{&client};
};

#endif // TARVISNET_TESTS_FETCHBENCH_H
