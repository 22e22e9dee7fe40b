#include "checkedfile_p.h"

#include "replacement_p.h"
#include "temporaryfile_p.h"

#include <QtCore/QFile>

#include <utility>

namespace {

// Emptying a larger file would be felt.
constexpr qint64 quicklyEmptied = qint64(16) * 1024 * 1024;

} // namespace

void CheckedFile::finish(QNetworkReply *reply, Done done)
{
    m_done = std::move(done);
    Verdict verdict = take(reply);
    const qint64 total = m_question.total;
    if (verdict == Verdict::Good && total != resumepoint::unknown && total != m_received)
        // Over HTTP, Qt now and then takes what came before the connection broke for the whole.
        verdict = m_isAnnounced ? Verdict::BrokenOff : giveUp(Verdict::OtherSize);
    if (verdict != Verdict::Good)
        endLater(verdict);
    else if (m_hash)
        m_hash->finish(m_received, [this](const QByteArray &digest) { checkDigest(digest); });
    else
        putInPlace();
}

void CheckedFile::checkDigest(const QByteArray &digest)
{
    if (m_wanted && digest == m_wanted->digest) {
        putInPlace();
    } else if (m_isResumed && !m_isRefetched) {
        // The beginning may be what is wrong.
        m_isRefetched = true;
        end(askAfresh());
    } else {
        end(giveUp(Verdict::OtherContent));
    }
}

void CheckedFile::putInPlace()
{
    const auto isDone = QSharedPointer<bool>::create(false);
    const auto job = [isDone, file = m_file, size = m_received, destination = m_data.filePath,
                      copy = copyPath(m_data.filePath),
                      companion = companionPath(m_data.tempFilePath)](const auto &isCancelled) {
        *isDone = replacement::putInPlace(*file, size, destination, copy, isCancelled);
        if (*isDone)
            QFile::remove(companion);
    };
    m_ending =
        m_work->run(job, [this, isDone] { end(*isDone ? Verdict::Good : Verdict::WriteFailed); });
}

void CheckedFile::endLater(Verdict verdict)
{
    m_ending = m_work->run([](const auto &) {}, [this, verdict] { end(verdict); });
}

/// Whoever is called may destroy this object.
void CheckedFile::end(Verdict verdict)
{
    const Done done = std::exchange(m_done, nullptr);
    done(verdict);
}

CheckedFile::Verdict CheckedFile::askAfresh()
{
    return empty() ? Verdict::AskAfresh : Verdict::WriteFailed;
}

CheckedFile::Verdict CheckedFile::giveUp(Verdict fault)
{
    removeFile();
    return fault;
}

bool CheckedFile::empty()
{
    if (m_file->isInPlace() && m_file->size() <= quicklyEmptied) {
        removeCompanion();
        return truncate(0);
    }
    m_beingFreed += m_file->size();
    removeFile();
    m_received = 0;
    return openFile();
}

bool CheckedFile::truncate(qint64 size)
{
    m_received = size;
    if (m_file->size() == size)
        return true;
    if (m_hash)
        m_hash->restart();
    return m_file->truncate(size);
}

/// The companion first: it must not describe the next file of that name.
void CheckedFile::removeFile()
{
    removeCompanion();
    m_file->remove();
    release();
}

void CheckedFile::release()
{
    m_hash.reset();
    if (!m_file)
        return;
    m_file->unlock();
    closeInBackground(std::move(m_file));
    m_file.reset();
}

/// That may free it, which takes its time.
void CheckedFile::closeInBackground(QSharedPointer<TemporaryFile> file) const
{
    m_work->run([file = std::move(file)](const auto &) {}, nullptr);
}

void CheckedFile::removeCompanion() const
{
    QFile::remove(companionPath(m_data.tempFilePath));
}
