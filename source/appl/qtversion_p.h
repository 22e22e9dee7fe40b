#ifndef TARVISNET_QTVERSION_P_H
#define TARVISNET_QTVERSION_P_H

#include <QtCore/QObject>
#include <QtNetwork/QNetworkRequest>

/// What depends on the version of Qt. Nothing else in the library asks for it.
namespace qtversion {

/// Whether a request by HTTP/2 is sent only after its peer's key could be looked at.
inline constexpr bool http2WaitsForPeer = QT_VERSION < QT_VERSION_CHECK(6, 0, 0);

/// A reply's first word of a failure.
inline const char *errorSignal()
{
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
    return SIGNAL(errorOccurred(QNetworkReply::NetworkError));
#else
    return SIGNAL(error(QNetworkReply::NetworkError));
#endif
}

/// The request, so that each version does the same with it: sends it by HTTP/1.1 unless it allows
/// more, leaves redirects to the library, and decodes a body however well it was compressed. What a
/// version does by itself is left unsaid, because requests are compared with what they say.
inline QNetworkRequest settled(QNetworkRequest request)
{
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
    if (!request.attribute(QNetworkRequest::Http2AllowedAttribute).isValid())
        request.setAttribute(QNetworkRequest::Http2AllowedAttribute, false);
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::ManualRedirectPolicy);
    request.setDecompressedSafetyCheckThreshold(-1);
#endif
    return request;
}

} // namespace qtversion

#endif // TARVISNET_QTVERSION_P_H
