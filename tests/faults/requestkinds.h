#ifndef TARVISNET_TESTS_REQUESTKINDS_H
#define TARVISNET_TESTS_REQUESTKINDS_H

#include <tarvisnet/tarvisnet.h>

#include <QtCore/QJsonDocument>
#include <QtCore/QList>
#include <QtCore/QMetaType>

/// What the result signal of a kind carries besides the URL.
enum class Result { Document, Bytes, Address, Nothing };

/// One kind of request, as a fault meets it.
struct RequestKind {
    /// As records name it.
    const char *name = "";
    const char *verb = "GET";
    /// The client's result signal.
    const char *signal = "";
    Result result = Result::Nothing;
    /// The stand-alone processor's result signals; empty when it has none for the kind.
    QStringList processorSignals = {};

    bool isFile() const { return isBinary() || isInstaller(); }
    bool isBinary() const { return name == replies::remote_binary; }
    bool isInstaller() const { return name == replies::remote_installer; }
};

Q_DECLARE_METATYPE(RequestKind)

namespace requestkinds {

inline QList<RequestKind> all()
{
    return {
        {"remoteDefinition", "GET", "s_fetchDefinition", Result::Document, {"s_fetchDefinition"}},
        {"remoteIndex", "GET", "s_fetchIndex", Result::Document, {"s_fetchIndex"}},
        {"remoteInstaller", "GET", "s_finished", Result::Address, {"s_finished"}},
        {"remoteInstallerChangeLog",
         "GET",
         "s_fetchInstallerChangeLogData",
         Result::Bytes,
         {"s_fetchInstallerChangeLog", "s_fetchInstallerChangeLogData"}},
        {"remoteInstallerCheckSum", "GET", "", Result::Nothing, {}},
        {"remoteBinary", "GET", "s_finished", Result::Address, {"s_finished"}},
        {"rawGet", "GET", "s_rawGet", Result::Document, {"s_rawGet"}},
        {"rawPost", "POST", "s_rawPost", Result::Document, {"s_rawPost"}},
        {"rawPatch", "PATCH", "s_rawPathFinished", Result::Document, {"s_errorChanged"}},
        {"rawDelete", "DELETE", "s_rawDeleteFinished", Result::Address, {"s_errorChanged"}},
        {"rawGetFile", "GET", "s_rawGetFileFinished", Result::Bytes, {"s_rawGetFileFinished"}},
        {"rawPostFile", "POST", "s_rawPostFileFinished", Result::Bytes, {"s_errorChanged"}},
    };
}

inline RequestKind of(const QString &name)
{
    for (const RequestKind &kind : all()) {
        if (kind.name == name)
            return kind;
    }
    qFatal("no kind %s", qPrintable(name));
}

/// Starts a request of \a kind in the way that an application does. A download is to become the
/// file \a path and has \a size bytes.
inline void start(TarvisNet &client, const RequestKind &kind, const QUrl &url, const QString &path,
                  qulonglong size)
{
    using Start = void (*)(TarvisNet &, const QUrl &, const QString &, qulonglong);
    static const QMap<QByteArray, Start> starts = {
        {"remoteDefinition",
         [](TarvisNet &c, const QUrl &u, const QString &, qulonglong) { c.fetchDefinition(u); }},
        {"remoteIndex",
         [](TarvisNet &c, const QUrl &u, const QString &, qulonglong) { c.fetchIndex(u); }},
        {"remoteInstaller",
         [](TarvisNet &c, const QUrl &u, const QString &, qulonglong) { c.fetchInstaller(u); }},
        {"remoteInstallerChangeLog",
         [](TarvisNet &c, const QUrl &u, const QString &, qulonglong) {
             c.fetchInstallerChangeLog(u);
         }},
        // There is no operation for it.
        {"remoteInstallerCheckSum",
         [](TarvisNet &c, const QUrl &u, const QString &, qulonglong) {
             ReplyData record;
             record.replyType = replies::remote_installer_sum;
             record.request.setUrl(u);
             QMetaObject::invokeMethod(&c, "addRequest", Qt::DirectConnection,
                                       Q_ARG(ReplyData, record));
         }},
        {"remoteBinary",
         [](TarvisNet &c, const QUrl &u, const QString &path, qulonglong size) {
             c.fetchBinary(u, path, size);
         }},
        {"rawGet", [](TarvisNet &c, const QUrl &u, const QString &, qulonglong) { c.rawGet(u); }},
        {"rawPost",
         [](TarvisNet &c, const QUrl &u, const QString &, qulonglong) { c.rawPost(u, "asked"); }},
        {"rawPatch",
         [](TarvisNet &c, const QUrl &u, const QString &, qulonglong) { c.rawPath(u, "asked"); }},
        {"rawDelete",
         [](TarvisNet &c, const QUrl &u, const QString &, qulonglong) { c.rawDelete(u, "asked"); }},
        {"rawGetFile",
         [](TarvisNet &c, const QUrl &u, const QString &path, qulonglong) {
             c.rawGetFile(u, path);
         }},
        {"rawPostFile",
         [](TarvisNet &c, const QUrl &u, const QString &path, qulonglong) {
             c.rawPostFile(u, path, "asked");
         }},
    };
    starts.value(kind.name)(client, url, path, size);
}

} // namespace requestkinds

#endif // TARVISNET_TESTS_REQUESTKINDS_H
