#ifndef TARVISNET_NETWORKPROCESSOR_H
#define TARVISNET_NETWORKPROCESSOR_H

#include "records.h"
#include "tarvisnet_global.h"

#include <QtCore/QJsonDocument>
#include <QtCore/QList>
#include <QtCore/QObject>
#include <QtCore/QScopedPointer>
#include <QtNetwork/QNetworkReply>
#include <QtNetwork/QSslError>

struct NetworkProcessorPrivate;

/// \brief Starts prepared requests at once: a request engine without a queue and without
/// configuration.
///
/// The caller prepares a record: its request, the kind in ReplyData::replyType that decides what is
/// done with the answer, and for a download the path and the size in ReplyData::fileData.
/// startGet() or startPost() sends it; the result arrives by the signal of the kind together with
/// the URL text of the reply, a failure by s_errorChanged() with a code of errorcodes. There is no
/// limit on the requests in flight and no way to cancel one but deleting the processor.
///
/// Kinds that are handled: replies::remote_definition, remote_index, remote_installer,
/// remote_installer_log, remote_installer_sum (without a signal), remote_binary, raw_get, raw_post
/// and raw_get_file. Every other kind ends in errorcodes::unknown_reply.
///
/// Redirects are followed with a GET to the target exactly as the server gives it, however many
/// there are, and the result carries the URL of the last one. A body that came with a redirect
/// stays in front of the one that follows it. All SSL errors are logged and accepted.
///
/// The processor belongs to one thread, which needs an event loop. Receivers of its signals may do
/// anything, deleting the processor included.
class TARVISNET_EXPORT NetworkProcessor : public QObject {
    Q_OBJECT

public:
    /// Makes a processor with a network access manager of its own, ready for use. \a parent owns it
    /// as it does every QObject.
    explicit NetworkProcessor(QObject *parent = nullptr);

    /// Drops the requests in flight silently.
    ~NetworkProcessor() override;

Q_SIGNALS:
    /// Something failed. \a _errCode is one of errorcodes, \a _url the text of the URL that it
    /// concerns (it may be empty).
    void s_errorChanged(short _errCode, QString _url = QString());
    /// Bytes arrived, \a percentage (0 to 100) of the record's size. Emitted for every kind; for a
    /// record without a size it is infinite or not a number.
    void s_downloadFileProgress(double percentage, QString _url = QString());
    /// Part of a request's body was sent. The end of it is not reported.
    void s_uploadFileProgress(double percentage, QString _url = QString());
    /// Bytes arrived: \a _send are there, FileData::resumeOffset included, of the record's size
    /// \a _total. Emitted right before s_downloadFileProgress().
    void s_downloadFileBytesProgress(qlonglong _send, qlonglong _total, QString _url = QString());
    /// A binary or installer download ended.
    void s_finished(QString _url);
    /// Never emitted.
    void s_aborted(QString _url);
    /// A definition arrived. A body that is not JSON gives a null document.
    void s_fetchDefinition(QJsonDocument _definition, QString _url);
    /// An index arrived. A body that is not JSON gives a null document.
    void s_fetchIndex(QJsonDocument _index, QString _url);
    /// An installer's change log arrived; \a _text is the body in UTF-8 up to its first NUL byte.
    void s_fetchInstallerChangeLog(QString _text, QString _url);
    /// The same change log as bytes. Emitted right after s_fetchInstallerChangeLog().
    void s_fetchInstallerChangeLogData(QByteArray _data, QString _url);
    /// A request of kind replies::raw_get was answered. A body that is not JSON gives a null
    /// document.
    void s_rawGet(QJsonDocument _data, QString _url);
    /// A request of kind replies::raw_post was answered. A body that is not JSON gives a null
    /// document.
    void s_rawPost(QJsonDocument _data, QString _url);
    /// A request of kind replies::raw_get_file was answered, also when its body could not be saved.
    void s_rawGetFileFinished(QString _url);

public Q_SLOTS:
    /// Sends \a _data's request with GET.
    ///
    /// The body of replies::remote_binary and replies::remote_installer is appended to
    /// FileData::filePath while it arrives. The size must be known: a chunk is written, whole,
    /// while the file is shorter than FileData::size, so with 0 nothing is. The body of
    /// replies::raw_get_file overwrites that file from its start, which keeps what it has beyond
    /// the body's length.
    void startGet(ReplyData _data);

    /// As startGet() with POST and the body \a _ba.
    void startPost(ReplyData _data, QByteArray _ba);

private Q_SLOTS:
    void createReplyConnections(QNetworkReply *reply);
    QNetworkReply *post(QNetworkRequest request, QByteArray data);
    QNetworkReply *get(QNetworkRequest request);
    void replyFinished();
    void replyReadyRead();
    void replyError(QNetworkReply::NetworkError code);
    void replySslErrors(QList<QSslError> listErr);
    void replyDownloadProgress(qlonglong _received, qlonglong _total);
    void replyUploadProgress(qlonglong _sent, qlonglong _total);
    void saveBinary(QNetworkReply *_reply);
    void debugHeader(QNetworkReply *_reply);
    bool redirectReply(QNetworkReply *_reply);
    void handleReply(QNetworkReply *_reply);

private:
    Q_DISABLE_COPY(NetworkProcessor)

    QScopedPointer<NetworkProcessorPrivate> d;
};

#endif // TARVISNET_NETWORKPROCESSOR_H
