#ifndef TARVISNET_READBUFFER_P_H
#define TARVISNET_READBUFFER_P_H

#include <QtCore/QtGlobal>

QT_BEGIN_NAMESPACE
class QNetworkReply;
QT_END_NAMESPACE

/// How much Qt holds of a download that is on its way to the disk.
namespace readbuffer {

/// Whether a download of \a size bytes, 0 for an unknown number, may be one that is to be bounded.
bool mayNeedBound(quint64 size);

/// Bounds what Qt buffers of a download of \a expectedSize bytes.
void limit(QNetworkReply *reply, quint64 expectedSize);

/// Lifts that bound when bytes were left unread: with it the reply would wait for ever for somebody
/// to read them.
void releaseUnread(QNetworkReply *reply);

} // namespace readbuffer

#endif // TARVISNET_READBUFFER_P_H
