#ifndef TARVISNET_TESTS_BENCH_OPERATIONS_H
#define TARVISNET_TESTS_BENCH_OPERATIONS_H

#include <tarvisnet/tarvisnet.h>

#include <QtCore/QJsonDocument>
#include <QtCore/QList>
#include <QtCore/QMetaType>

/// What the result signal of a kind carries besides the URL.
enum class Result { Document, Bytes, Address, Nothing };

/// One kind of request.
struct RequestKind {
    /// As records name it.
    const char *name = "";
    const char *verb = "GET";
    const char *contentType = "";
    /// The client's result signal.
    const char *signal = "";
    Result result = Result::Nothing;
    /// The stand-alone processor's result signals; empty when it has none for the kind.
    QStringList processorSignals = {};

    bool isFile() const { return isBinary() || isInstaller(); }
    bool isBinary() const { return name == replies::remote_binary; }
    bool isInstaller() const { return name == replies::remote_installer; }
};

/// One way to ask the client for something.
struct Operation {
    /// What it takes besides what it sends and saves: a URL, the text of one, or a path on the
    /// configured server.
    enum Form { Url, Text, Path };

    const char *name = "";
    const char *kind = "";
    Form form = Url;
    /// Asks for \a address. Fetches of binaries are to become \a file, raw requests for files
    /// are saved at its path, and those with a body send operations::body.
    void (*call)(TarvisNet &client, const QString &address, const FileData &file) = nullptr;
    bool hasBody = false;
};

Q_DECLARE_METATYPE(RequestKind)
Q_DECLARE_METATYPE(Operation)

namespace requestkinds {

QList<RequestKind> all();
RequestKind of(const QString &name);

/// Starts a request of \a kind in the way that an application does. A download is to become the
/// file \a path and has \a size bytes.
void start(TarvisNet &client, const RequestKind &kind, const QUrl &url, const QString &path,
           qulonglong size);

} // namespace requestkinds

namespace operations {

inline const QByteArray body = "{\"asked\":1}";

QList<Operation> all();
/// The operation \a name.
Operation of(const QByteArray &name);

/// Data rows for all operations that are \a chosen, in the column "operation".
void addRows(bool (*chosen)(const Operation &) = [](const Operation &) { return true; });

/// The record that \a operation queues for \a url; \a file is that of a binary.
ReplyData record(const TarvisNet &client, const Operation &operation, const QUrl &url,
                 const FileData &file = FileData(), const QByteArray &range = QByteArray());

} // namespace operations

#endif // TARVISNET_TESTS_BENCH_OPERATIONS_H
