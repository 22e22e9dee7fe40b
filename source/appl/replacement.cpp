#include "replacement_p.h"

#include "temporaryfile_p.h"

#include <QtCore/QFile>
#include <QtCore/QFileInfo>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <limits>
#include <optional>

#include <sys/statvfs.h>
#include <unistd.h>

namespace {

constexpr mode_t everyone = TemporaryFile::ownerOnly | S_IRGRP | S_IWGRP | S_IROTH | S_IWOTH;

bool isMoved(const QString &from, const QString &to)
{
    return std::rename(QFile::encodeName(from).constData(), QFile::encodeName(to).constData()) == 0;
}

mode_t permissionsOf(const Descriptor &file)
{
    return file.about().st_mode & everyone;
}

/// Those that any new file gets there; nothing where none can be made. Asking for the umask would
/// mean changing it, for every thread.
std::optional<mode_t> usualPermissions(const QString &destination, const QString &copyPath)
{
    // Not every file system has files without a name, and Linux before 6.0 forgot the umask for
    // some.
    const Descriptor nameless(QFileInfo(destination).path(), O_WRONLY | O_TMPFILE, everyone);
    const mode_t mode = permissionsOf(nameless);
    if (mode != 0 && mode != everyone)
        return mode;
    const Descriptor example(copyPath, O_RDWR | O_CREAT | O_EXCL, everyone);
    if (!example.isOpen())
        return std::nullopt;
    unlink(QFile::encodeName(copyPath).constData());
    return permissionsOf(example);
}

/// Nothing where no file can be put.
std::optional<mode_t> permissionsFor(const QString &destination, const QString &copyPath,
                                     const Descriptor &replaced)
{
    const mode_t old = replaced.about().st_mode;
    if (S_ISDIR(old))
        return std::nullopt;
    if (S_ISREG(old))
        return old & (S_IRWXU | S_IRWXG | S_IRWXO);
    return usualPermissions(destination, copyPath);
}

bool copy(const TemporaryFile &from, qint64 size, TemporaryFile &to,
          const std::atomic_bool &isCancelled)
{
    for (qint64 at = 0; at < size; at += TemporaryFile::pieceSize) {
        const qint64 length = std::min(size - at, TemporaryFile::pieceSize);
        const QByteArray piece = from.read(at, length);
        if (isCancelled || piece.size() != length || to.write(at, piece) != length)
            return false;
    }
    return true;
}

/// The copy is locked like the file: nobody else writes to it, or moves it.
bool replaceByCopy(TemporaryFile &file, qint64 size, const QString &destination,
                   const QString &copyPath, mode_t mode, const std::atomic_bool &isCancelled)
{
    const QSharedPointer<TemporaryFile> beside = TemporaryFile::open(copyPath);
    if (!beside)
        return false;
    const bool isDone = beside->truncate(0) && copy(file, size, *beside, isCancelled)
        && beside->setPermissions(mode)
        && file.commit([&] { return beside->isInPlace() && isMoved(copyPath, destination); });
    if (isDone)
        file.remove();
    else
        beside->remove();
    return isDone;
}

/// Nothing is known of a path that leads nowhere; it counts as endless.
qint64 freeBytes(const QString &path)
{
    struct statvfs system = {};
    if (statvfs(QFile::encodeName(path).constData(), &system) != 0)
        return std::numeric_limits<qint64>::max();
    return qint64(system.f_bavail) * qint64(system.f_frsize);
}

} // namespace

bool replacement::putInPlace(TemporaryFile &file, qint64 size, const QString &destination,
                             const QString &copyPath, const std::atomic_bool &isCancelled)
{
    // While it is open its blocks are not freed, and replacing it takes no time.
    const Descriptor replaced(destination, O_PATH | O_NOFOLLOW);
    const std::optional<mode_t> mode = permissionsFor(destination, copyPath, replaced);
    if (!mode || isCancelled || !file.isInPlace() || file.size() != size
        || !file.setPermissions(*mode)) {
        return false;
    }
    int error = 0;
    const bool isDone = file.commit([&] {
        const bool done = isMoved(file.path(), destination);
        error = errno;
        return done;
    });
    if (isDone)
        return true;
    file.setPermissions(TemporaryFile::ownerOnly);
    return error == EXDEV && replaceByCopy(file, size, destination, copyPath, *mode, isCancelled);
}

bool replacement::hasRoom(const TemporaryFile &file, qint64 total, const QString &destination,
                          qint64 beingFreed)
{
    const QString directory = QFileInfo(file.path()).path();
    const QString target = QFileInfo(destination).path();
    if (total - file.size() > freeBytes(directory) + beingFreed)
        return false;
    const Descriptor here(directory, O_PATH);
    const Descriptor there(target, O_PATH);
    return here.about().st_dev == there.about().st_dev || total <= freeBytes(target) + beingFreed;
}
