#ifndef TARVISNET_REPLACEMENT_P_H
#define TARVISNET_REPLACEMENT_P_H

#include <QtCore/QString>

#include <atomic>

class TemporaryFile;

namespace replacement {

/// Makes \a file, of \a size bytes, the file \a destination in one step: whoever looks finds the
/// old one or all of the new one. From another file system it is copied first, to the file
/// \a copyPath beside the destination; a program that is killed meanwhile leaves that. The new file
/// has the permissions of the one that it replaces, or those that any new file gets there; a link
/// is replaced, and not what it leads to. False if that failed or was cancelled; then the
/// destination is as before, and so is \a file.
///
/// Takes long. To be called in the background.
bool putInPlace(TemporaryFile &file, qint64 size, const QString &destination,
                const QString &copyPath, const std::atomic_bool &isCancelled);

/// Whether the disks have room for what is missing of \a file until it is \a total bytes long, and
/// for the copy where one will be needed. \a beingFreed bytes will be free soon, on either.
bool hasRoom(const TemporaryFile &file, qint64 total, const QString &destination,
             qint64 beingFreed);

} // namespace replacement

#endif // TARVISNET_REPLACEMENT_P_H
