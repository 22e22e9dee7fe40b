#ifndef TARVISNET_TARVISNET_H
#define TARVISNET_TARVISNET_H

#include "records.h"
#include "tarvisnet_global.h"
#include "transferpolicy.h"

#include <QtCore/QJsonDocument>
#include <QtCore/QList>
#include <QtCore/QObject>
#include <QtCore/QScopedPointer>
#include <QtCore/QStringList>
#include <QtCore/QUrl>
#include <QtCore/QUuid>
#include <QtNetwork/QNetworkReply>
#include <QtNetwork/QSslError>

QT_BEGIN_NAMESPACE
class QNetworkCookieJar;
QT_END_NAMESPACE

struct TarvisNetPrivate;

/// \brief The connection of an application to its content and update server.
///
/// An application makes one client, tells it where the server is (setServerHost(), setServerPort(),
/// the path setters), connects the signals it needs and calls the slots. Every request waits in a
/// queue until fewer than getParallelRequestsCount() requests are in flight. Nothing is returned:
/// each result arrives by the signal of its operation together with the URL text of the request,
/// failures by s_errorChanged() with a code of errorcodes.
///
/// Downloads grow in a temporary file and are resumed from it, see fetchBinary().
///
/// The client belongs to one thread, which needs an event loop, and emits its signals there. Their
/// receivers may do anything: abort, queue more requests, delete the client.
///
/// Constructing a client installs an SSL configuration for the whole process
/// (QSslConfiguration::setDefaultConfiguration()): TLS 1.0 or later, peers not verified. It
/// outlives the client. With TransferPolicy::peersVerified() it does not.
///
/// What is said here holds for a client without a policy. Where a property of TransferPolicy makes
/// it otherwise, that is said at the property; a client that is made with TransferPolicy::strict()
/// verifies its peers, checks its files and redirects, isolates failures and tries again.
///
/// Redirects are followed with a GET to the target exactly as the server gives it, however many
/// there are, and the result carries the URL of the first request. A failure carries the URL that
/// failed, and each redirect that led to it keeps a place among the requests in flight as long as
/// the client lives.
class TARVISNET_EXPORT TarvisNet : public QObject {
    Q_OBJECT

public:
    /// What a HeadersMap may hold under QNetworkRequest::ContentTypeHeader. Each value stands for
    /// the text of the same name in mime. A QVariant that cannot become a ContentType, or a number
    /// that is none of these, leaves the request without the header; a text that is not a number
    /// counts as WwwForm.
    enum ContentType : int {
        WwwForm = 0, ///< mime::wwwForm
        Json = 1, ///< mime::json
        Xml = 2, ///< mime::xml
        Zip = 3, ///< mime::zip
        Pdf = 4, ///< mime::pdf
        Plain = 5, ///< mime::plain
    };

    /// Makes a client that is ready for use, without a server. \a parent owns it as it does every
    /// QObject.
    explicit TarvisNet(QObject *parent = nullptr);

    /// The same with a policy, which is the client's for its life: Qt shares connections between
    /// requests whatever their TLS settings are, so it cannot change.
    /// \since 1.15
    explicit TarvisNet(const TransferPolicy &policy, QObject *parent = nullptr);

    /// Aborts the requests in flight, with an s_aborted() for each. Pending requests are dropped
    /// silently.
    ~TarvisNet() override;

    /// The policy that the client was made with; one that asks for nothing if there was none.
    /// \since 1.15
    TransferPolicy transferPolicy() const;

    /// \name The server
    /// Each setter emits its change signal when the value changes.
    /// @{

    /// Host of the URLs that the path forms of the fetches build; empty at first.
    QString getServerHost() const;
    void setServerHost(const QString &host); ///< Takes it decoded.
    /// Port of those URLs in decimal; empty at first. A text that is not a number counts as port 0.
    QString getServerPort() const;
    void setServerPort(const QString &port); ///< "443" for example.
    /// Carried for the application, like the password and the URL: no operation reads them.
    QString getUserName() const;
    void setUserName(const QString &name); ///< Only stored.
    QString getUserPassword() const; ///< Carried for the application; empty at first.
    void setUserPassword(const QString &password); ///< Only stored.
    QString getUrl() const; ///< Carried for the application; empty at first.
    void setUrl(const QString &url); ///< Only stored.

    /// @}
    /// \name Where the content lies on the server
    /// Absolute paths, "/content/index.json" for example; all empty at first. Each setter emits its
    /// change signal when the value changes, unless it says otherwise.
    /// @{

    QString getDefinitionPath() const; ///< What fetchDefinition() asks for.
    void setDefinitionPath(const QString &path); ///< Emits s_definitionPathChanged().
    QString getIndexPath() const; ///< What fetchIndex() asks for.
    void setIndexPath(const QString &path); ///< Emits s_indexPathChaged().
    QString getInstallerPath() const; ///< What fetchInstaller() asks for.
    void setInstallerPath(const QString &path); ///< Emits s_installerPathChanged().
    QString getInstallerCheckSumPath() const; ///< Carried for the application.
    void setInstallerCheckSumPath(const QString &path); ///< Only stored.
    QString getInstallerChangeLogPath() const; ///< What fetchInstallerChangeLog() asks for.
    /// Emits s_installerChangeLogPathChanged().
    void setInstallerChangeLogPath(const QString &path);
    /// Complete URL that fetchInstaller(QString) asks for while the installer path is empty.
    QString getDirectInstallerUrl() const;
    /// Emits no signal.
    void setDirectInstallerUrl(const QString &url);

    /// @}
    /// \name Identity of the application
    /// All empty at first; see getUserAgent(). Each setter emits its change signal when the value
    /// changes.
    /// @{

    QString getVtxVersion() const; ///< Version of the application.
    void setVtxVersion(const QString &version); ///< Emits s_vtxVersionChanged().
    QString getVtxName() const; ///< Name of the application.
    void setVtxName(const QString &name); ///< Emits s_vtxNameChanged().
    /// The installation id as it was set.
    QString getVtxIdText() const;
    void setVtxIdByText(const QString &id); ///< Takes any text. Emits s_vtxIdChanged().
    /// The installation id as a UUID; null when its text is not one.
    QUuid getVtxId() const;
    void setVtxId(const QUuid &uuid); ///< Stores it in braces. Emits s_vtxIdChanged().
    /// The text that requests carry as their user agent: name and version of the application, name
    /// and version of the library, the machine, the installation id. What follows a redirect and
    /// what the probe sends do not carry it.
    QString getUserAgent() const;

    /// @}
    /// \name Files
    /// @{

    /// Path of the installer on disk; empty at first.
    QString getInstallerFileName() const;
    /// Stores and emits also when the value is the same, so that the file is looked at again: an
    /// incomplete installer on disk is resumed by the next fetchInstaller().
    void setInstallerFileName(const QString &path);
    /// Size of the complete installer in bytes; 0, unknown, at first.
    quint64 getInstallerFileSize() const;
    /// Emits s_installerFileSizeChanged() when the value changes; the file is looked at again, too.
    void setInstallerFileSize(quint64 bytes);
    /// Carried for the application; empty at first.
    QString getOutputDirectory() const;
    void setOutputDirectory(const QString &path); ///< Emits s_outputDirChanged() on a change.
    /// Where temporary download files are kept; while it is empty, as at first, QDir::tempPath(),
    /// or the folder of each destination with TransferPolicy::filesChecked().
    QString getTemporaryDirectory() const;
    void setTemporaryDirectory(const QString &path); ///< Emits s_temporaryDirChange() on a change.

    /// @}
    /// \name Queue and probe
    /// @{

    /// How many requests may be in flight, from 1 to 5; 5 at first. Qt itself opens at most six
    /// connections to one host, with TransferPolicy::downloadThreads() as many for each thread.
    int getParallelRequestsCount() const;
    /// Brings \a count into the range from 1 to 5. Emits whenever \a count differs from the stored
    /// value, also when bringing it into the range then changes nothing. A higher limit takes
    /// effect when the next request is added or done, which starts one pending request.
    void setParallelRequestsCount(int count);
    /// Whether every request starts the probe, and not only the file downloads; false at first.
    bool isPingAlwaysOn() const;
    void setPingAlwaysOn(bool on); ///< Emits s_pingAlwaysOnChanged() on a change.
    /// While it is set no pending request is started; false at first.
    bool isStopProcess() const;
    /// Clearing the flag does not start anything by itself: the next request that is added or done
    /// does.
    void setStopProcess(bool stop);
    /// Longest silence of the server, in milliseconds, before the probe reports a time-out and the
    /// first request in flight is aborted; 10000 at first.
    int getPingTimeout() const;
    void setPingTimeout(int msec); ///< Takes effect at once; emits no signal.
    /// The cookie jar of all requests, never null; owned by the client unless it was set.
    QNetworkCookieJar *getCoockies() const;
    /// The caller keeps \a jar and must not delete it before the client or before it is replaced by
    /// another. Null is ignored.
    void setCookies(QNetworkCookieJar *jar);

    /// @}

Q_SIGNALS:
    void s_serverHostChanged(); ///< getServerHost() changed.
    void s_serverPortChanged(); ///< getServerPort() changed.
    void s_userNameChanged(); ///< getUserName() changed.
    void s_userPasswordChanged(); ///< getUserPassword() changed.
    void s_urlChanged(); ///< getUrl() changed.
    void s_installerFileNameChanged(); ///< setInstallerFileName() was called.
    void s_installerFileSizeChanged(); ///< getInstallerFileSize() changed.
    void s_vtxIdChanged(); ///< getVtxIdText() changed.
    void s_vtxVersionChanged(); ///< getVtxVersion() changed.
    void s_vtxNameChanged(); ///< getVtxName() changed.
    void s_definitionPathChanged(); ///< getDefinitionPath() changed.
    void s_indexPathChaged(); ///< getIndexPath() changed.
    void s_installerPathChanged(); ///< getInstallerPath() changed.
    void s_installerChangeLogPathChanged(); ///< getInstallerChangeLogPath() changed.
    void s_installerCheckSumPathChanged(); ///< getInstallerCheckSumPath() changed.

    /// Something failed. \a _errCode is one of errorcodes, \a _url the text of the URL that it
    /// concerns (it may be empty), \a _data what the server said about it if the answer's body was
    /// JSON, otherwise a null document. With TransferPolicy::errorsExplained() it is an object that
    /// tells what happened.
    void s_errorChanged(short _errCode, QString _url = QString(),
                        QJsonDocument _data = QJsonDocument());
    /// Bytes arrived: they are \a percentage (0 to 100) of the expected size. Without an expected
    /// size, of the size that the server announced; 0 if it announced none. More than 100 when the
    /// server sends more than was expected.
    void s_downloadFileProgress(double percentage, QString _url = QString());
    /// Part of a request's body was sent. The end of it is not reported.
    void s_uploadFileProgress(double percentage, QString _url = QString());
    /// Bytes arrived: \a _send are there, those of an earlier download included, of the expected
    /// \a _total, which is 0 for requests other than a binary download. Emitted right before
    /// s_downloadFileProgress().
    void s_downloadFileBytesProgress(qlonglong _send, qlonglong _total, QString _url = QString());
    /// A binary download ended and its file is in place, or an installer download ended; with
    /// TransferPolicy::filesChecked() either file is in place, and right.
    void s_finished(QString _url);
    /// A request in flight was aborted: by abortDownload(), which the client calls itself after a
    /// time-out of the probe and after most network errors, by a certificate that is not accepted,
    /// or because the client dies.
    void s_aborted(QString _url);
    /// Never emitted: a probe's time-out arrives as s_errorChanged() with
    /// errorcodes::network_error.
    void s_timeout();
    /// Starts the client's own probe with RemotePing::start(). Emitted by the client.
    void s_startPing(int _count = -1);
    /// Stops the client's own probe. Emitted by the client.
    void s_stopPing();

    /// A definition arrived. A body that is not JSON gives a null document.
    void s_fetchDefinition(QJsonDocument _definition, QString _url);
    /// An index arrived. A body that is not JSON gives a null document.
    void s_fetchIndex(QJsonDocument _index, QString _url);
    /// An installer's change log arrived.
    void s_fetchInstallerChangeLogData(QByteArray _data, QString _url);
    /// A rawGet() or forceRawGet() was answered. A body that is not JSON gives a null document.
    void s_rawGet(QJsonDocument _data, QString _url);
    /// A rawPost() was answered. A body that is not JSON gives a null document.
    void s_rawPost(QJsonDocument _data, QString _url);
    /// A rawPath() was answered. A body that is not JSON gives a null document.
    void s_rawPathFinished(QJsonDocument _data, QString _url);
    /// A rawGetFile() was answered; \a _data is the body, also when it could not be saved, and
    /// \a _headerPairs are the headers of the answer.
    void s_rawGetFileFinished(QByteArray _data, QString _url,
                              QList<QNetworkReply::RawHeaderPair> _headerPairs);
    /// A rawPostFile() was answered; \a _data is the body, also when it could not be saved, and
    /// \a _headerPairs are the headers of the answer.
    void s_rawPostFileFinished(QByteArray _data, QString _url,
                               QList<QNetworkReply::RawHeaderPair> _headerPairs);
    /// A rawDelete() was answered.
    void s_rawDeleteFinished(QString _url);

    /// A request was added or is done; one pending request may start. Emitting it has the same
    /// effect.
    void s_repliesCountChanged();
    void s_parallelRequestCountChanged(); ///< See setParallelRequestsCount().
    void s_outputDirChanged(); ///< getOutputDirectory() changed.
    void s_temporaryDirChange(); ///< getTemporaryDirectory() changed.
    void s_pingAlwaysOnChanged(); ///< isPingAlwaysOn() changed.
    void s_stopProcessChanged(); ///< isStopProcess() changed.

public Q_SLOTS:
    /// A new random installation id. It is not stored: setVtxId() does that.
    QUuid generateVtxId();

    /// \name Content of the server
    /// The forms with a path ask for it on the configured server over HTTPS; an empty path stands
    /// for the configured one, and fetchBinary() has none. The forms with a URL ask for that URL, a
    /// missing scheme being "https". An invalid URL, which a path without a leading "/" makes too,
    /// is refused with errorcodes::invalid_url.
    /// @{

    /// Ends in s_fetchDefinition().
    void fetchDefinition(QString _definitionPath = QString());
    void fetchDefinition(QUrl _url); ///< The same for any server.
    /// Ends in s_fetchIndex().
    void fetchIndex(QString _indexPath = QString());
    void fetchIndex(QUrl _url); ///< The same for any server.
    /// Ends in s_fetchInstallerChangeLogData().
    void fetchInstallerChangeLog(QString _changeLogPath = QString());
    void fetchInstallerChangeLog(QUrl _url); ///< The same for any server.
    /// Ends in s_finished(). The body is not saved unless TransferPolicy::filesChecked() asks for
    /// it; then it is, to getInstallerFileName(). While the configured installer path is empty the
    /// argument is ignored and the direct installer URL is asked for.
    void fetchInstaller(QString _installerPath = QString());
    void fetchInstaller(QUrl _url); ///< The same for any server; the configured path plays no part.

    /// Downloads a file; ends in s_finished(), or in s_errorChanged() with
    /// errorcodes::file_not_completed when it cannot be put in place.
    ///
    /// \a _savePath is the path of the finished file; without one nothing is saved and the download
    /// fails at its end. The bytes go to a file in getTemporaryDirectory(), of the same name with
    /// the suffix general::temp_file_suffix. At the end it is moved to \a _savePath, or copied and
    /// then deleted where it cannot be moved. A shorter temporary file of an earlier, interrupted
    /// download is continued. A file of exactly \a _size bytes at \a _savePath is deleted and
    /// downloaded anew; one of another size makes the download fail at its end, and is deleted
    /// then.
    ///
    /// \a _size is the size of the complete file in bytes. It must be known: a chunk that arrives
    /// is written, whole, while the file is shorter, so with 0 nothing is. The finished file is not
    /// compared with it, and a full disk, too, ends in s_finished() with a short file. \a _hash is
    /// only carried.
    ///
    /// With TransferPolicy::filesChecked() all of this is otherwise: the size may be unknown, the
    /// hash is checked, and only a file that is right takes the place of what is at \a _savePath.
    void fetchBinary(QString _urlPath, QString _savePath = QString(), qulonglong _size = 0,
                     QString _hash = QString());
    /// The same for any server.
    void fetchBinary(QUrl _url, QString _savePath = QString(), qulonglong _size = 0,
                     QString _hash = QString());

    /// @}
    /// \name Requests to any URL
    /// The URL is used as it is given. An empty or invalid one is refused with
    /// errorcodes::invalid_url.
    /// @{

    /// Ends in s_rawGet(). Content type of the request: JSON unless \a _headers has one.
    void rawGet(QUrl _rawUrl, HeadersMap _headers = HeadersMap(),
                RawHeadersMap _rawHeaders = RawHeadersMap());
    void rawGet(QString _rawPath); ///< The same for a URL in text form.
    /// Ends in s_rawPost(). Content type of the request: form unless \a _headers has one.
    void rawPost(QUrl _rawUrl, QByteArray _data, HeadersMap _headers = HeadersMap(),
                 RawHeadersMap _rawHeaders = RawHeadersMap());
    /// Sends \a _data in the local 8-bit encoding.
    void rawPost(QString _rawPath, QString _data);
    /// Sends a PATCH request; ends in s_rawPathFinished(). Content type of the request: JSON unless
    /// \a _headers has one.
    void rawPath(QUrl _rawUrl, QByteArray _data, HeadersMap _headers = HeadersMap(),
                 RawHeadersMap _rawHeaders = RawHeadersMap());
    /// Sends a DELETE request with a body; ends in s_rawDeleteFinished(). Content type of the
    /// request: JSON.
    void rawDelete(QUrl _rawUrl, QByteArray _data);
    /// Ends in s_rawGetFileFinished(). \a _savePath becomes the path that every file request still
    /// in flight and every later one writes its body to; an empty one leaves that path as it is. An
    /// existing file is overwritten from its start and keeps what it has beyond the body's length.
    void rawGetFile(QUrl _rawFileUrl, QString _savePath = QString());
    /// The same for a URL in text form.
    void rawGetFile(QString _filePath, QString _savePath = QString());
    /// As rawGetFile() with a POST of \a _data; ends in s_rawPostFileFinished().
    void rawPostFile(QUrl _rawFileUrl, QString _savePath = QString(),
                     QByteArray _data = QByteArray());
    /// The same for a URL in text form.
    void rawPostFile(QString _rawPath, QString _savePath = QString(),
                     QByteArray _data = QByteArray());
    /// As rawGet(), but queued also when an equal request is already pending.
    void forceRawGet(QUrl _rawUrl);
    void forceRawGet(QString _rawPath); ///< The same for a URL in text form.

    /// @}
    /// \name Aborting
    /// @{

    /// Drops every pending request whose URL has the path \a _fileUrl, silently unless
    /// TransferPolicy::failuresIsolated() has each end with s_aborted(), and aborts the
    /// first request in flight that has it, with s_aborted(). An empty text aborts the first
    /// request in flight, whichever it is. At most one request is aborted by a call.
    void abortDownload(QString _fileUrl = QString());
    /// As abortDownload(QString) for each path in turn; pending requests wait until all are done.
    void abortDownload(QStringList _fileUrls);

    /// @}
    /// \name Download files
    /// @{

    /// Makes a complete temporary file the destination file. True when the destination is in place.
    /// A destination of the expected size is taken as it is; one of another size is deleted
    /// together with the temporary file, and the result is false.
    bool renameTemporaryFile(FileData _data);
    /// Deletes the temporary file of the destination \a _filePath, or \a _filePath itself when it
    /// has the suffix of one. True when a file was deleted.
    bool removeTemporaryFile(QString _filePath);

    /// @}

private Q_SLOTS:
    void addRequest(const ReplyData &data);
    void forceAddRequest(const ReplyData &data);
    void processReplies();
    void removeReply(QNetworkReply *reply);
    void killReply(QNetworkReply *reply);
    void clearReplies();

    void replyReadyRead();
    void replyFinished();
    void handleReply(QNetworkReply *_reply);
    bool redirectReply(QNetworkReply *_reply);
    void replyError(QNetworkReply::NetworkError code);
    void replySslErrors(QList<QSslError> listErr);
    void replyEncrypted();
    void replyDownloadProgress(qlonglong _received, qlonglong _total);
    void replyUploadProgress(qlonglong _sent, qlonglong _total);
    void debugHeader(QNetworkReply *_reply);

    void saveBinary(QNetworkReply *_reply);
    void saveInstaller(QNetworkReply *_reply);
    void changeFileName();
    void pingTimeout();

private:
    friend struct TarvisNetPrivate;
    Q_DISABLE_COPY(TarvisNet)

    QScopedPointer<TarvisNetPrivate> d;
};

Q_DECLARE_METATYPE(TarvisNet::ContentType)

#endif // TARVISNET_TARVISNET_H
