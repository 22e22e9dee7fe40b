#include "tarvisnet.h"

#include "errorcodes.h"
#include "tarvisnet_p.h"

#include <algorithm>
#include <iterator>

/// \file
/// Downloads whose files are checked before they are put in place.

namespace {

/// Whether the file has a say in it: other statuses are failures like anybody's.
bool isJudged(const QNetworkReply &reply, const CheckedFile &file)
{
    const int status = replyinfo::httpStatus(&reply);
    return (status >= 200 && status < 300) || (status == 416 && file.offset() > 0);
}

/// Has the record tell of the file what is known by now: progress and errors do so by it.
void describe(Transfer &transfer)
{
    FileData &file = transfer.record.fileData;
    file.size = transfer.checkedFile->expectedSize();
    file.resumeOffset = transfer.checkedFile->offset();
}

/// How a download ends that comes to nothing.
struct Ending {
    CheckedFile::Verdict verdict;
    short code;
    /// Null for that of the code.
    const char *reason;
};

constexpr Ending endings[] = {
    {CheckedFile::Verdict::WriteFailed, errorcodes::file_write_failed, nullptr},
    {CheckedFile::Verdict::OtherSize, errorcodes::file_corrupted, "The file has another size."},
    {CheckedFile::Verdict::OtherContent, errorcodes::file_corrupted,
     "The content does not match the hash."},
    {CheckedFile::Verdict::NoFile, errorcodes::file_corrupted, nullptr},
};

/// Null where it is no end.
const Ending *endingOf(CheckedFile::Verdict verdict)
{
    const auto ending =
        std::find_if(std::begin(endings), std::end(endings),
                     [verdict](const Ending &row) { return row.verdict == verdict; });
    return ending == std::end(endings) ? nullptr : ending;
}

} // namespace

void TarvisNetPrivate::queueChecked(const char *function, QLatin1String replyType,
                                    const QNetworkRequest &request, FileData file) const
{
    const QString url = request.url().toString();
    if (file.filePath.isEmpty()) {
        refuse(function, "No file to save to:", true, url);
        return;
    }
    if (!CheckedFile::isHash(file.hash)) {
        clientLog.warning(function) << "Not a hash:" << file.hash;
        Failure failure = {errorcodes::file_corrupted, url};
        failure.reason = QStringLiteral("The text of the hash is none.");
        report(failure);
        return;
    }
    // However it is spelt, and wherever the process goes meanwhile.
    file.filePath = CheckedFile::identity(file.filePath);
    file.tempFilePath = temporaryPath(file.filePath);
    add(newRecord(replyType, request, QByteArray(), file));
}

bool TarvisNetPrivate::isFileTaken(const QString &filePath) const
{
    return rules->checksFiles() && !filePath.isEmpty()
        && (growingFiles->contains(filePath) || pending.containsFile(filePath));
}

QSharedPointer<CheckedFile> TarvisNetPrivate::checkedFile(const ReplyData &record)
{
    const QString path = record.fileData.filePath;
    if (!rules->checksFiles() || !replyinfo::isFileKind(record.replyType)
        || record.fileData.tempFilePath.isEmpty()) {
        return nullptr;
    }
    if (!background)
        background.reset(new BackgroundWork);
    growingFiles->insert(path);
    const auto letGo = [growing = growingFiles, path](CheckedFile *file) {
        growing->remove(path);
        delete file;
    };
    auto *file = new CheckedFile(record.fileData, record.request.url(), background);
    return QSharedPointer<CheckedFile>(file, letGo);
}

bool TarvisNetPrivate::prepareFile(Transfer &transfer)
{
    if (!transfer.checkedFile)
        return true;
    if (transfer.checkedFile->prepare(transfer.request) != CheckedFile::Verdict::Good) {
        fail(transfer, errorcodes::file_write_failed);
        return false;
    }
    describe(transfer);
    return true;
}

void TarvisNetPrivate::takeFile(QNetworkReply *reply)
{
    const auto transfer = transfers.find(reply);
    if (transfer == transfers.end() || !transfer->checkedFile
        || !isJudged(*reply, *transfer->checkedFile)) {
        return;
    }
    const CheckedFile::Verdict verdict = transfer->checkedFile->take(reply);
    describe(*transfer);
    obey(verdict, reply);
}

void TarvisNetPrivate::finishFile(QNetworkReply *reply)
{
    Transfer &transfer = transfers[reply];
    transfer.idleEnd = QDeadlineTimer(QDeadlineTimer::Forever);
    transfer.checkedFile->finish(reply, [this, reply](CheckedFile::Verdict verdict) {
        // Until its own callback has returned.
        const QSharedPointer<CheckedFile> file = transfers.value(reply).checkedFile;
        if (verdict == CheckedFile::Verdict::Good)
            conclude(reply);
        else
            obey(verdict, reply);
    });
}

void TarvisNetPrivate::obey(CheckedFile::Verdict verdict, QNetworkReply *reply)
{
    if (verdict == CheckedFile::Verdict::AskAfresh)
        sendAgain(reply);
    else if (verdict == CheckedFile::Verdict::BrokenOff)
        perform(rules->stepAfterBreak(transfers.value(reply)), reply);
    else if (const Ending *ending = endingOf(verdict))
        fail(reply, ending->code, ending->reason);
}

bool TarvisNetPrivate::isBeingChecked(QNetworkReply *reply) const
{
    const auto transfer = transfers.constFind(reply);
    return reply->isFinished() && transfer != transfers.cend() && transfer->checkedFile
        && !transfer->isAnswered;
}
