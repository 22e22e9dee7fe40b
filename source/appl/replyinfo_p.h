#ifndef TARVISNET_REPLYINFO_P_H
#define TARVISNET_REPLYINFO_P_H

#include <QtCore/QString>
#include <QtCore/QUrl>
#include <QtNetwork/QNetworkReply>

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <optional>

/// What both request engines, the client and the stand-alone processor, read off a reply and its
/// kind.
namespace replyinfo {

/// The HTTP status; 0 when there is none.
int httpStatus(const QNetworkReply *reply);

/// The URL as results and errors carry it; empty for a null reply.
QString urlText(const QNetworkReply *reply);

/// Scheme, host and port of \a url.
QUrl serverOf(const QUrl &url);

/// Whether both name one server, however they give the port and whoever asks. Such requests share
/// connections.
bool isSameServer(const QUrl &left, const QUrl &right);

/// Whether \a reply was sent with leave to use HTTP/2.
bool mayUseHttp2(const QNetworkReply &reply);

/// Where the server sends us instead, if it does. A redirect without a target gives an empty URL.
std::optional<QUrl> redirectTarget(const QNetworkReply *reply);

/// True for the kinds whose body goes to disk while it arrives.
bool isFileKind(const QString &replyType);

/// The row of a table for \a replyType; null when there is none.
template <typename Row, std::size_t size>
const Row *findRow(const Row (&rows)[size], const QString &replyType)
{
    const auto row = std::find_if(std::begin(rows), std::end(rows), [&](const Row &candidate) {
        return replyType == candidate.replyType;
    });
    return row == std::end(rows) ? nullptr : row;
}

/// \a part of \a whole in percent, in single precision as the progress signals have always had it.
template <typename Part, typename Whole>
double percentage(Part part, Whole whole)
{
    return double(float(part) / float(whole) * 100.0F);
}

} // namespace replyinfo

#endif // TARVISNET_REPLYINFO_P_H
