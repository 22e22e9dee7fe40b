#include "temporaryfile_p.h"

#include <QtCore/QFile>
#include <QtCore/QMutexLocker>

#include <cerrno>

#include <sys/file.h>
#include <unistd.h>

QSharedPointer<TemporaryFile> TemporaryFile::open(const QString &path)
{
    return locked(path, O_CREAT);
}

QSharedPointer<TemporaryFile> TemporaryFile::find(const QString &path)
{
    return locked(path, 0);
}

QSharedPointer<TemporaryFile> TemporaryFile::locked(const QString &path, int flags)
{
    // Whoever had it locked may have moved it away before letting go of it.
    constexpr int attempts = 3;
    for (int attempt = 0; attempt < attempts; ++attempt) {
        const QSharedPointer<TemporaryFile> file(new TemporaryFile(path, flags));
        if (!file->m_descriptor.isOpen() || !file->lock())
            break;
        if (file->isInPlace()) {
            const bool isOurs = file->isTrustworthy() && file->setPermissions(ownerOnly);
            return isOurs ? file : nullptr;
        }
    }
    return nullptr;
}

// Without O_NONBLOCK a named pipe might wait for its reader.
TemporaryFile::TemporaryFile(const QString &path, int flags)
    : m_path(path)
    , m_descriptor(path, flags | O_RDWR | O_NOFOLLOW | O_NONBLOCK, ownerOnly)
{
}

bool TemporaryFile::isInPlace() const
{
    struct stat named = {};
    const struct stat own = m_descriptor.about();
    return lstat(QFile::encodeName(m_path).constData(), &named) == 0 && named.st_dev == own.st_dev
        && named.st_ino == own.st_ino;
}

bool TemporaryFile::isTrustworthy() const
{
    const struct stat own = m_descriptor.about();
    return S_ISREG(own.st_mode) && own.st_nlink == 1 && own.st_uid == geteuid();
}

/// Some file systems know no locks; a download is better than none.
bool TemporaryFile::lock()
{
    return flock(m_descriptor.number(), LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK;
}

void TemporaryFile::unlock()
{
    flock(m_descriptor.number(), LOCK_UN);
}

bool TemporaryFile::truncate(qint64 size)
{
    return ftruncate(m_descriptor.number(), size) == 0;
}

bool TemporaryFile::setPermissions(mode_t mode)
{
    return fchmod(m_descriptor.number(), mode) == 0;
}

bool TemporaryFile::remove()
{
    return isInPlace() && unlink(QFile::encodeName(m_path).constData()) == 0;
}

bool TemporaryFile::commit(const std::function<bool()> &step)
{
    const QMutexLocker locker(&m_committing);
    return !m_isAbandoned && step();
}

void TemporaryFile::abandon()
{
    const QMutexLocker locker(&m_committing);
    m_isAbandoned = true;
}
