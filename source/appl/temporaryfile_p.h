#ifndef TARVISNET_TEMPORARYFILE_P_H
#define TARVISNET_TEMPORARYFILE_P_H

#include "descriptor_p.h"

#include <QtCore/QMutex>
#include <QtCore/QSharedPointer>
#include <QtCore/QString>

#include <functional>

/// The file that a checked download grows in: open, and nobody else's. Reading, and commit(), may
/// happen in another thread.
class TemporaryFile {
public:
    /// Of what is read and written at once, traditional downloads included: small enough to stay in
    /// the processor's cache meanwhile. Smaller pieces would wake the network thread more often.
    static constexpr qint64 pieceSize = qint64(1024) * 1024;
    /// What it, and whatever takes its content on the way, may be read and written by.
    static constexpr mode_t ownerOnly = S_IRUSR | S_IWUSR;

    /// Opens or makes the file \a path. Null if that fails, if another download has it, in this
    /// process or elsewhere, and if it cannot be trusted: a link, something that is no plain file,
    /// a file of several names or of somebody else.
    static QSharedPointer<TemporaryFile> open(const QString &path);
    /// The same, but makes none.
    static QSharedPointer<TemporaryFile> find(const QString &path);
    /// Frees a file that has no name any more, which for a large one takes its time.
    ~TemporaryFile() = default;

    QString path() const { return m_path; }
    qint64 size() const { return m_descriptor.about().st_size; }
    /// Whether path() still leads to it.
    bool isInPlace() const;

    QByteArray read(qint64 from, qint64 size) const { return m_descriptor.read(from, size); }
    qint64 write(qint64 at, const QByteArray &bytes) { return m_descriptor.write(at, bytes); }
    bool truncate(qint64 size);
    bool setPermissions(mode_t mode);
    /// Takes its name away.
    bool remove();

    /// Does \a step, which puts it in place, and tells whether that was done. Not once it was
    /// abandoned.
    bool commit(const std::function<bool()> &step);
    /// Whoever commits it now does so in vain; one who was about to has done it.
    void abandon();
    /// Lets another download have it.
    void unlock();

private:
    Q_DISABLE_COPY(TemporaryFile)

    /// \a flags are those for open() in which open() and find() differ.
    TemporaryFile(const QString &path, int flags);

    static QSharedPointer<TemporaryFile> locked(const QString &path, int flags);
    bool lock();
    bool isTrustworthy() const;

    const QString m_path;
    const Descriptor m_descriptor;
    QMutex m_committing;
    bool m_isAbandoned = false;
};

#endif // TARVISNET_TEMPORARYFILE_P_H
