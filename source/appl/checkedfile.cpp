#include "checkedfile_p.h"

#include "downloadfile_p.h"
#include "replacement_p.h"
#include "temporaryfile_p.h"

#include <QtNetwork/QNetworkReply>
#include <QtNetwork/QNetworkRequest>

#include <algorithm>
#include <utility>

namespace {

qint64 knownSize(quint64 size)
{
    return size == 0 ? resumepoint::unknown : qint64(size);
}

} // namespace

CheckedFile::CheckedFile(const FileData &file, const QUrl &url, QSharedPointer<BackgroundWork> work)
    : m_data(file)
    , m_url(QString::fromLatin1(url.toEncoded(QUrl::RemovePassword | QUrl::RemoveFragment)))
    , m_wanted(ContentHash::parsed(file.hash))
    , m_work(std::move(work))
{
    m_question.size = m_question.total = knownSize(file.size);
}

CheckedFile::~CheckedFile()
{
    if (m_ending)
        m_ending->store(true);
    if (!m_file)
        return;
    m_file->abandon();
    // Nothing is to be resumed from it.
    if (m_file->isInPlace() && m_file->size() == 0)
        removeFile();
    else
        release();
}

quint64 CheckedFile::expectedSize() const
{
    return quint64(std::max(m_question.total, qint64(0)));
}

CheckedFile::Verdict CheckedFile::prepare(QNetworkRequest &request)
{
    m_verdict.reset();
    if (!openFile())
        return Verdict::WriteFailed;
    lookAtBeginning();
    const qint64 total = m_question.total;
    if (total != resumepoint::unknown
        && !replacement::hasRoom(*m_file, total, m_data.filePath, m_beingFreed)) {
        return Verdict::WriteFailed;
    }
    setHeaders(request);
    return Verdict::Good;
}

/// Somebody may have removed it between two requests.
bool CheckedFile::openFile()
{
    if (m_file && m_file->isInPlace())
        return true;
    release();
    removeLeftCopy();
    m_file = TemporaryFile::open(m_data.tempFilePath);
    if (m_file && m_wanted)
        m_hash.reset(new FollowingHash(m_wanted->algorithm, m_file, m_work));
    return !m_file.isNull();
}

/// Of a program that was killed while it put the file in place.
void CheckedFile::removeLeftCopy()
{
    QSharedPointer<TemporaryFile> copy = TemporaryFile::find(copyPath(m_data.filePath));
    if (!copy)
        return;
    m_beingFreed += copy->size();
    copy->remove();
    closeInBackground(std::move(copy));
}

std::optional<ResumePoint> CheckedFile::usableBeginning() const
{
    const qint64 onDisk = m_file->size();
    const std::optional<ResumePoint> kept = resumepoint::read(companionPath(m_data.tempFilePath));
    if (!kept || onDisk == 0 || kept->url != m_url || kept->size != m_data.size
        || kept->hash != m_data.hash || (kept->validator.isEmpty() && !m_wanted)) {
        return std::nullopt;
    }
    const bool isTooLong = kept->total != resumepoint::unknown && onDisk > kept->total;
    return isTooLong ? std::nullopt : kept;
}

/// Asks for the last byte again when all are there: the server shall say that they are still right.
void CheckedFile::lookAtBeginning()
{
    const std::optional<ResumePoint> kept = usableBeginning();
    const qint64 size = knownSize(m_data.size);
    m_question = {0, size, size, QByteArray()};
    if (kept) {
        const qint64 onDisk = m_file->size();
        m_question = {onDisk == kept->total ? onDisk - 1 : onDisk, size, kept->total,
                      kept->validator};
    }
    m_received = m_question.offset;
}

void CheckedFile::setHeaders(QNetworkRequest &request) const
{
    const bool isRange = m_question.offset > 0;
    const QByteArray range = savedfile::openRange(m_question.offset);
    request.setRawHeader("Accept-Encoding", "identity");
    // A null value takes the header away.
    request.setRawHeader("Range", isRange ? range : QByteArray());
    const bool isConditional = isRange && !m_question.validator.isEmpty();
    request.setRawHeader("If-Range", isConditional ? m_question.validator : QByteArray());
}

CheckedFile::Verdict CheckedFile::take(QNetworkReply *reply)
{
    if (!m_verdict)
        m_verdict = judge(resumepoint::answerOf(reply));
    if (*m_verdict == Verdict::Good)
        m_verdict = save(reply);
    return *m_verdict;
}

CheckedFile::Verdict CheckedFile::judge(const resumepoint::Answer &answer)
{
    using resumepoint::Judgement;
    switch (resumepoint::judge(answer, m_question)) {
    case Judgement::Whole:
        return beginWith(answer);
    case Judgement::Rest:
        m_question.total = answer.range.total;
        return goOn();
    case Judgement::AskAfresh:
        return askAfresh();
    case Judgement::OtherSize:
        return giveUp(Verdict::OtherSize);
    case Judgement::NoFile:
        break;
    }
    return giveUp(Verdict::NoFile);
}

/// A program that is killed from here on leaves a beginning that is known, or none.
CheckedFile::Verdict CheckedFile::beginWith(const resumepoint::Answer &answer)
{
    const qint64 size = m_question.size;
    const qint64 total = size == resumepoint::unknown ? answer.length : size;
    m_question = {0, size, total, resumepoint::validatorOf(answer)};
    m_isAnnounced = answer.length != resumepoint::unknown;
    m_isResumed = false;
    const ResumePoint point{m_url, m_data.size, m_data.hash, m_question.validator, total};
    if (!empty() || !resumepoint::write(companionPath(m_data.tempFilePath), point))
        return Verdict::WriteFailed;
    return Verdict::Good;
}

CheckedFile::Verdict CheckedFile::goOn()
{
    if (!m_file->isInPlace() || m_file->size() < m_question.offset)
        return askAfresh();
    m_isAnnounced = true;
    m_isResumed = true;
    if (!truncate(m_question.offset))
        return Verdict::WriteFailed;
    if (m_hash)
        m_hash->follow(m_received);
    return Verdict::Good;
}

CheckedFile::Verdict CheckedFile::save(QNetworkReply *reply)
{
    for (qint64 left = reply->bytesAvailable(); left > 0; left -= TemporaryFile::pieceSize) {
        // Read first, which lets the network thread go on while this one writes.
        const QByteArray bytes = reply->read(std::min(left, TemporaryFile::pieceSize));
        const qint64 total = m_question.total;
        if (total != resumepoint::unknown && m_received + bytes.size() > total)
            return giveUp(Verdict::OtherSize);
        const qint64 written = m_file->write(m_received, bytes);
        m_received += written;
        if (written != bytes.size()) {
            m_file->truncate(m_received);
            return Verdict::WriteFailed;
        }
        if (m_hash)
            m_hash->follow(m_received);
    }
    return Verdict::Good;
}
