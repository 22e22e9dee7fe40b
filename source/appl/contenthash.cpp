#include "contenthash_p.h"

#include "temporaryfile_p.h"

#include <QtCore/QLatin1String>

#include <algorithm>
#include <cctype>
#include <utility>

namespace {

struct KnownHash {
    QLatin1String prefix;
    int hexDigits;
    QCryptographicHash::Algorithm algorithm;
};

const KnownHash knownHashes[] = {
    {QLatin1String("sha256:"), 64, QCryptographicHash::Sha256},
    {QLatin1String("sha512:"), 128, QCryptographicHash::Sha512},
    {QLatin1String("sha1:"), 40, QCryptographicHash::Sha1},
    {QLatin1String("md5:"), 32, QCryptographicHash::Md5},
};

bool isHex(const QByteArray &text)
{
    return std::all_of(text.begin(), text.end(),
                       [](char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; });
}

} // namespace

std::optional<ContentHash> ContentHash::parsed(const QString &text)
{
    // What is not Latin-1 becomes a question mark, which is no digit.
    const QByteArray given = text.trimmed().toLower().toLatin1();
    for (const KnownHash &known : knownHashes) {
        const bool isNamed = given.startsWith(known.prefix.data());
        const QByteArray digits = isNamed ? given.mid(known.prefix.size()) : given;
        if (digits.size() == known.hexDigits && isHex(digits))
            return ContentHash{known.algorithm, QByteArray::fromHex(digits)};
    }
    return std::nullopt;
}

struct FollowingHash::State {
    explicit State(QCryptographicHash::Algorithm algorithm)
        : hash(algorithm)
    {
    }

    void addPiece(const TemporaryFile &file, qint64 size)
    {
        const qint64 length = std::min(size - hashed, TemporaryFile::pieceSize);
        const QByteArray piece = file.read(hashed, length);
        isReadable = piece.size() == length;
        hash.addData(piece);
        hashed += length;
    }

    QCryptographicHash hash;
    qint64 hashed = 0;
    bool isReadable = true;
};

FollowingHash::FollowingHash(QCryptographicHash::Algorithm algorithm,
                             QSharedPointer<TemporaryFile> file,
                             QSharedPointer<BackgroundWork> work)
    : m_algorithm(algorithm)
    , m_file(std::move(file))
    , m_work(std::move(work))
{
    restart();
}

FollowingHash::~FollowingHash()
{
    if (m_job)
        m_job->store(true);
}

void FollowingHash::follow(qint64 size)
{
    m_size = size;
    pump();
}

void FollowingHash::finish(qint64 size, Done done)
{
    m_done = std::move(done);
    follow(size);
}

/// A job that still runs ends with its piece, and keeps its state to itself.
void FollowingHash::restart()
{
    if (m_job)
        m_job->store(true);
    m_job.reset();
    m_state = QSharedPointer<State>::create(m_algorithm);
    m_size = 0;
    m_done = nullptr;
}

bool FollowingHash::isBehind() const
{
    return m_state->isReadable && m_state->hashed < m_size;
}

void FollowingHash::pump()
{
    if (m_job || !(isBehind() || m_done))
        return;
    const auto job = [state = m_state, file = m_file, size = m_size](const auto &isCancelled) {
        while (!isCancelled && state->isReadable && state->hashed < size)
            state->addPiece(*file, size);
    };
    m_job = m_work->run(job, [this] { jobDone(); });
}

void FollowingHash::jobDone()
{
    m_job.reset();
    if (isBehind() || !m_done) {
        pump();
        return;
    }
    const Done done = std::exchange(m_done, nullptr);
    // The last that is done here: the one who is called may delete us.
    done(m_state->isReadable ? m_state->hash.result() : QByteArray());
}
