#ifndef TARVISNET_DESCRIPTOR_P_H
#define TARVISNET_DESCRIPTOR_P_H

#include <QtCore/QByteArray>
#include <QtCore/QString>

#include <fcntl.h>
#include <sys/stat.h>

/// Keeps a file or directory open.
class Descriptor {
public:
    /// \a flags and \a mode as for open(); no program that is started inherits it.
    Descriptor(const QString &path, int flags, mode_t mode = 0);
    ~Descriptor();

    bool isOpen() const { return m_number >= 0; }
    int number() const { return m_number; }

    /// What fstat() tells; all zero, which is no kind of file, if it tells nothing.
    struct stat about() const;
    /// As many of the \a size bytes from position \a from as there are; fewer also on an error.
    QByteArray read(qint64 from, qint64 size) const;
    /// Writes \a bytes at position \a at, and tells how many of them are written.
    qint64 write(qint64 at, const QByteArray &bytes) const;

private:
    Q_DISABLE_COPY(Descriptor)

    const int m_number;
};

#endif // TARVISNET_DESCRIPTOR_P_H
