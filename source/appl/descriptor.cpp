#include "descriptor_p.h"

#include <QtCore/QFile>

#include <cerrno>

#include <unistd.h>

namespace {

/// Calls \a transfer(position done so far) until it has moved \a size bytes, or no more can be.
template <typename Transfer>
qint64 transferAll(qint64 size, const Transfer &transfer)
{
    qint64 done = 0;
    while (done < size) {
        const ssize_t moved = transfer(done);
        if (moved == 0 || (moved < 0 && errno != EINTR))
            break;
        if (moved > 0)
            done += moved;
    }
    return done;
}

} // namespace

Descriptor::Descriptor(const QString &path, int flags, mode_t mode)
    : m_number(open(QFile::encodeName(path).constData(), flags | O_CLOEXEC, mode))
{
}

Descriptor::~Descriptor()
{
    if (isOpen())
        close(m_number);
}

struct stat Descriptor::about() const
{
    struct stat about = {};
    if (fstat(m_number, &about) != 0)
        about = {};
    return about;
}

QByteArray Descriptor::read(qint64 from, qint64 size) const
{
    QByteArray bytes(int(size), Qt::Uninitialized);
    const qint64 length = transferAll(size, [&](qint64 done) {
        return pread(m_number, bytes.data() + done, size_t(size - done), from + done);
    });
    bytes.truncate(int(length));
    return bytes;
}

qint64 Descriptor::write(qint64 at, const QByteArray &bytes) const
{
    return transferAll(bytes.size(), [&](qint64 done) {
        return pwrite(m_number, bytes.constData() + done, size_t(bytes.size() - done), at + done);
    });
}
