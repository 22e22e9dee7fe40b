#ifndef TARVISNET_CONTENTHASH_P_H
#define TARVISNET_CONTENTHASH_P_H

#include "backgroundwork_p.h"

#include <QtCore/QByteArray>
#include <QtCore/QCryptographicHash>
#include <QtCore/QSharedPointer>
#include <QtCore/QString>

#include <functional>
#include <optional>

class TemporaryFile;

/// What the content of a file must hash to.
struct ContentHash {
    QCryptographicHash::Algorithm algorithm;
    QByteArray digest;

    /// Reads the hex digits of a SHA-256, SHA-512, SHA-1 or MD5, told apart by their number or by
    /// "sha256:" and so on before them. Nothing if \a text is none of these.
    static std::optional<ContentHash> parsed(const QString &text);
};

/// Hashes a file while it grows, off the caller's thread. It reads what is in the file, so that
/// nothing waits in memory, however far it falls behind.
class FollowingHash {
public:
    /// Gets the digest, which is empty if the file could not be read.
    using Done = std::function<void(const QByteArray &digest)>;

    FollowingHash(QCryptographicHash::Algorithm algorithm, QSharedPointer<TemporaryFile> file,
                  QSharedPointer<BackgroundWork> work);
    /// Whatever is being read or waited for is forgotten.
    ~FollowingHash();

    /// The first \a size bytes of the file are there, and stay.
    void follow(qint64 size);
    /// Begins again; the file has become shorter.
    void restart();
    /// Calls \a done, always later, with the digest of the first \a size bytes.
    void finish(qint64 size, Done done);

private:
    Q_DISABLE_COPY(FollowingHash)

    struct State;

    void pump();
    void jobDone();
    bool isBehind() const;

    const QCryptographicHash::Algorithm m_algorithm;
    const QSharedPointer<TemporaryFile> m_file;
    const QSharedPointer<BackgroundWork> m_work;
    /// Belongs to the job while one runs.
    QSharedPointer<State> m_state;
    BackgroundWork::Ticket m_job;
    qint64 m_size = 0;
    Done m_done;
};

#endif // TARVISNET_CONTENTHASH_P_H
