#ifndef TARVISNET_RECORDS_H
#define TARVISNET_RECORDS_H

#include "tarvisnet_global.h"

#include <QtCore/QByteArray>
#include <QtCore/QLatin1String>
#include <QtCore/QMap>
#include <QtCore/QMetaType>
#include <QtCore/QString>
#include <QtCore/QVariant>
#include <QtNetwork/QNetworkRequest>

#include <cstddef>

QT_BEGIN_NAMESPACE
class QNetworkReply;
QT_END_NAMESPACE

/// \file
/// The value types and constants that the whole library shares.

namespace general {

/// A text whose length is known when it is compiled. QLatin1String by itself counts at run time
/// with some compilers.
template <std::size_t size>
constexpr QLatin1String literal(const char (&text)[size])
{
    return QLatin1String(text, int(size) - 1);
}

} // namespace general

/// Reply kinds: what a request is for, kept in ReplyData::replyType. The kind decides the HTTP verb
/// a request is sent with and what is done with its answer.
namespace replies {

/// TarvisNet::fetchDefinition: a JSON document.
inline constexpr QLatin1String remote_definition = general::literal("remoteDefinition");
/// TarvisNet::fetchIndex: a JSON document.
inline constexpr QLatin1String remote_index = general::literal("remoteIndex");
/// TarvisNet::fetchInstaller: a file.
inline constexpr QLatin1String remote_installer = general::literal("remoteInstaller");
/// TarvisNet::fetchInstallerChangeLog: bytes.
inline constexpr QLatin1String remote_installer_log = general::literal("remoteInstallerChangeLog");
/// The installer's check sum: recognised when it finishes, but no operation asks for it.
inline constexpr QLatin1String remote_installer_sum = general::literal("remoteInstallerCheckSum");
/// TarvisNet::fetchBinary: a file.
inline constexpr QLatin1String remote_binary = general::literal("remoteBinary");
/// TarvisNet::rawGet and TarvisNet::forceRawGet: a JSON document.
inline constexpr QLatin1String raw_get = general::literal("rawGet");
/// TarvisNet::rawPost: a JSON document.
inline constexpr QLatin1String raw_post = general::literal("rawPost");
/// TarvisNet::rawPath, the PATCH request: a JSON document.
inline constexpr QLatin1String raw_patch = general::literal("rawPatch");
/// TarvisNet::rawDelete: no content.
inline constexpr QLatin1String raw_delete = general::literal("rawDelete");
/// TarvisNet::rawGetFile: bytes.
inline constexpr QLatin1String raw_get_file = general::literal("rawGetFile");
/// TarvisNet::rawPostFile: bytes.
inline constexpr QLatin1String raw_post_file = general::literal("rawPostFile");
/// The request that follows a redirect.
inline constexpr QLatin1String redirect_reply = general::literal("redirectReply");

} // namespace replies

/// MIME texts of the Content-Type header.
namespace mime {

/// Plain text, TarvisNet::Plain.
inline constexpr QLatin1String plain = general::literal("text/plain");
/// A PDF document, TarvisNet::Pdf.
inline constexpr QLatin1String pdf = general::literal("application/pdf");
/// A ZIP archive, TarvisNet::Zip.
inline constexpr QLatin1String zip = general::literal("application/zip");
/// An XML document, TarvisNet::Xml.
inline constexpr QLatin1String xml = general::literal("application/xml");
/// A JSON document, TarvisNet::Json.
inline constexpr QLatin1String json = general::literal("application/json");
/// The fields of a form, TarvisNet::WwwForm.
inline constexpr QLatin1String wwwForm = general::literal("application/x-www-form-urlencoded");

} // namespace mime

/// Texts that fit nowhere else.
namespace general {

/// Suffix, without its dot, of the file that a download grows in.
inline constexpr QLatin1String temp_file_suffix = general::literal("vtxdownload");
/// Name of the token that carries the installation id in the User-Agent.
inline constexpr QLatin1String default_id_type = general::literal("vtxid");
/// Version in the User-Agent of an application that gave none.
inline constexpr QLatin1String default_app_version = general::literal("0.0.0");
/// Name in the User-Agent of an application that gave none.
inline constexpr QLatin1String default_app_name = general::literal("Vextor-Tarvis");

} // namespace general

/// Known headers of a raw request. A QNetworkRequest::ContentTypeHeader entry holds a
/// TarvisNet::ContentType; every other entry is passed to QNetworkRequest::setHeader as it is.
using HeadersMap = QMap<QNetworkRequest::KnownHeaders, QVariant>;

/// Raw headers of a raw request, name to value. They are set after the known ones and win over
/// them.
using RawHeadersMap = QMap<QByteArray, QByteArray>;

/// The file that a download writes. An aggregate, made with every field empty or zero.
struct TARVISNET_EXPORT FileData {
    ~FileData();

    /// Path of the finished file.
    QString filePath;
    /// Path that the download writes to until it is complete, see general::temp_file_suffix.
    QString tempFilePath;
    /// Hash text that the caller expects; empty when there is none. The library only carries it,
    /// unless TransferPolicy::filesChecked() has it checked.
    QString hash;
    /// Size of the complete file in bytes; 0 means unknown.
    quint64 size = 0;
    /// Bytes that were already on disk when the request was made; 0 for a fresh download.
    qint64 resumeOffset = 0;
};

/// One request, from the moment an operation builds it until its reply has been handled.
struct TARVISNET_EXPORT ReplyData {
    /// A record with every field empty, zero or null.
    ReplyData();
    /// Copies every field.
    ReplyData(const ReplyData &);
    /// Takes every field over; what is left may only be assigned to, cleared or destroyed.
    ReplyData(ReplyData &&) noexcept;
    /// Copies every field.
    ReplyData &operator=(const ReplyData &);
    /// Takes every field over; what is left may only be assigned to, cleared or destroyed.
    ReplyData &operator=(ReplyData &&) noexcept;
    ~ReplyData();

    /// Gives every field the value that it has after default construction.
    void clear();

    /// The caller's own number. Copied and compared with the record; the library reads no meaning
    /// into it.
    qint32 tag = 0;
    /// What the request is for: one of the texts in replies.
    QString replyType;
    /// Before sending, the request's body; afterwards, the bytes of the answer.
    QByteArray data;
    /// The file that a download writes.
    FileData fileData;
    /// The request as it is sent: URL, headers, SSL configuration, attributes.
    QNetworkRequest request;
    /// In a record of kind replies::redirect_reply the reply that was redirected, null in every
    /// other. Not owned, and never to be dereferenced: that reply may be gone.
    QNetworkReply *directReply = nullptr;
};

/// True when every field of the two records is equal. Requests compare as QNetworkRequest does,
/// which does not look at the SSL configuration; replies compare by address.
TARVISNET_EXPORT bool operator==(const ReplyData &left, const ReplyData &right);
/// True when a field of the two records differs; see operator==().
inline bool operator!=(const ReplyData &left, const ReplyData &right)
{
    return !(left == right);
}

/// Who uses the library: named in the User-Agent.
struct ApplicationData {
    /// Installation id, a UUID in braces (QUuid::toString()).
    QString id;
    /// Version; while it is empty general::default_app_version stands for it.
    QString version;
    /// Name; while it is empty general::default_app_name stands for it.
    QString name;
};

/// The machine that the library runs on: named in the User-Agent.
struct SystemInfoData {
    /// QSysInfo::currentCpuArchitecture()
    QString architecture;
    /// QSysInfo::prettyProductName()
    QString system;
    /// QSysInfo::kernelVersion()
    QString version;
};

/// The server, and the account on it.
struct User {
    /// Host of every URL that is built from a path.
    QString serverHost;
    /// Port of every URL that is built from a path, in decimal. A text that is not a number counts
    /// as 0.
    QString serverPort;
    /// Carried for the application; no operation reads it.
    QString userName;
    /// Carried for the application; no operation reads it.
    QString userPassword;
    /// Carried for the application; no operation reads it.
    QString url;
};

/// Where the content lies on the server: absolute paths, "/content/index.json" for example.
struct RemotePath {
    /// What TarvisNet::fetchDefinition asks for.
    QString definitionPath;
    /// What TarvisNet::fetchIndex asks for.
    QString indexPath;
    /// What TarvisNet::fetchInstaller asks for.
    QString installerPath;
    /// Carried for the application; no operation reads it.
    QString installerCheckSumPath;
    /// What TarvisNet::fetchInstallerChangeLog asks for.
    QString installerChangeLogPath;
};

Q_DECLARE_METATYPE(ReplyData)
Q_DECLARE_METATYPE(FileData)
Q_DECLARE_METATYPE(HeadersMap)
Q_DECLARE_METATYPE(RawHeadersMap)

#endif // TARVISNET_RECORDS_H
