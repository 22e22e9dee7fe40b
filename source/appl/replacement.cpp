#include "replacement_p.h"

#include "records.h"
#include "temporaryfile_p.h"

#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QRandomGenerator>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <limits>
#include <optional>

#include <sys/statvfs.h>
#include <unistd.h>

namespace {

constexpr mode_t everyone = TemporaryFile::ownerOnly | S_IRGRP | S_IWGRP | S_IROTH | S_IWOTH;

QString nameBeside(const QString &destination)
{
    return QFileInfo(destination).path()
        + QStringLiteral("/.%1.").arg(QRandomGenerator::system()->generate64(), 16, 16,
                                      QLatin1Char('0'))
        + general::temp_file_suffix;
}

bool isMoved(const QString &from, const QString &to)
{
    return std::rename(QFile::encodeName(from).constData(), QFile::encodeName(to).constData()) == 0;
}

/// A new file beside the destination, removed unless it is moved there.
class NewFile {
public:
    NewFile(const QString &destination, mode_t mode)
        : m_path(nameBeside(destination))
        , m_descriptor(m_path, O_RDWR | O_CREAT | O_EXCL, mode)
    {
    }
    ~NewFile()
    {
        if (m_descriptor.isOpen() && !m_isMoved)
            unlink(QFile::encodeName(m_path).constData());
    }

    const Descriptor &descriptor() const { return m_descriptor; }
    bool moveTo(const QString &destination)
    {
        m_isMoved = isMoved(m_path, destination);
        return m_isMoved;
    }

private:
    Q_DISABLE_COPY(NewFile)

    const QString m_path;
    const Descriptor m_descriptor;
    bool m_isMoved = false;
};

mode_t permissionsOf(const Descriptor &file)
{
    return file.about().st_mode & everyone;
}

/// Those that any new file gets there; nothing where none can be made. Asking for the umask would
/// mean changing it, for every thread.
std::optional<mode_t> usualPermissions(const QString &destination)
{
    // A file without a name is not left behind when the program is killed. Not every file system
    // has such files, and Linux before 6.0 forgot the umask for some.
    const Descriptor nameless(QFileInfo(destination).path(), O_WRONLY | O_TMPFILE, everyone);
    const mode_t mode = permissionsOf(nameless);
    if (mode != 0 && mode != everyone)
        return mode;
    const NewFile example(destination, everyone);
    return example.descriptor().isOpen() ? std::optional(permissionsOf(example.descriptor()))
                                         : std::nullopt;
}

/// Nothing where no file can be put.
std::optional<mode_t> permissionsFor(const QString &destination, const Descriptor &replaced)
{
    const mode_t old = replaced.about().st_mode;
    if (S_ISDIR(old))
        return std::nullopt;
    if (S_ISREG(old))
        return old & (S_IRWXU | S_IRWXG | S_IRWXO);
    return usualPermissions(destination);
}

bool copy(const TemporaryFile &from, qint64 size, const Descriptor &to,
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

bool replaceByCopy(TemporaryFile &file, qint64 size, const QString &destination, mode_t mode,
                   const std::atomic_bool &isCancelled)
{
    NewFile beside(destination, TemporaryFile::ownerOnly);
    if (!beside.descriptor().isOpen() || !copy(file, size, beside.descriptor(), isCancelled)
        || fchmod(beside.descriptor().number(), mode) != 0) {
        return false;
    }
    if (!file.commit([&] { return beside.moveTo(destination); }))
        return false;
    file.remove();
    return true;
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
                             const std::atomic_bool &isCancelled)
{
    // While it is open its blocks are not freed, and replacing it takes no time.
    const Descriptor replaced(destination, O_PATH | O_NOFOLLOW);
    const std::optional<mode_t> mode = permissionsFor(destination, replaced);
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
    return error == EXDEV && replaceByCopy(file, size, destination, *mode, isCancelled);
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
    return here.about().st_dev == there.about().st_dev || total <= freeBytes(target);
}
