#include "downloadfile_p.h"

#include "descriptor_p.h"

#include <QtCore/QFile>
#include <QtCore/QFileInfo>

#include <cstdio>

#ifdef RENAME_NOREPLACE

#include <sys/statvfs.h>
#include <unistd.h>

namespace {

/// Whether the file is what a copy of it would be: of the same owner and group, without bits that a
/// copy loses, and nothing that another name leads to.
bool isLikeCopy(const struct stat &file, const struct stat &directory)
{
    const bool givesItsGroup = (directory.st_mode & S_ISGID) != 0;
    const gid_t groupOfCopy = givesItsGroup ? directory.st_gid : getegid();
    constexpr mode_t lostBits = S_ISUID | S_ISGID | S_ISVTX;
    return S_ISREG(file.st_mode) && file.st_nlink == 1 && file.st_uid == geteuid()
        && file.st_gid == groupOfCopy && (file.st_mode & lostBits) == 0;
}

/// Where a copy would fail because the disk is full, a move must not succeed: a file that is
/// incomplete for that very reason would count as finished.
bool hasRoomForCopy(const struct stat &file, int directory)
{
    struct statvfs system = {};
    return fstatvfs(directory, &system) == 0
        && file.st_size <= off_t(system.f_bavail) * off_t(system.f_frsize);
}

} // namespace

bool savedfile::moveLikeCopy(const QString &source, const QString &destination)
{
    const QByteArray from = QFile::encodeName(source);
    const QByteArray to = QFile::encodeName(destination);
    // Without O_NONBLOCK a named pipe would wait for its writer.
    const Descriptor file(source, O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
    const Descriptor directory(QFileInfo(destination).path(), O_RDONLY | O_DIRECTORY);
    const struct stat aboutFile = file.about();
    const struct stat aboutDirectory = directory.about();
    if (!isLikeCopy(aboutFile, aboutDirectory) || !hasRoomForCopy(aboutFile, directory.number()))
        return false;
    if (renameat2(AT_FDCWD, from.constData(), AT_FDCWD, to.constData(), RENAME_NOREPLACE) != 0)
        return false;
    // A copy would have been made just now.
    futimens(file.number(), nullptr);
    return true;
}

#else

// Without a move that never replaces a file it is always a copy.
bool savedfile::moveLikeCopy(const QString & /*source*/, const QString & /*destination*/)
{
    return false;
}

#endif
