#include "processorengine.h"

#include "commands.h"
#include "console.h"
#include "options.h"
#include "target.h"

#include <QtCore/QFileInfo>

namespace {

/// The processor sends what it is given, so all that a request needs is put together here.
ReplyData makeRecord(const Options &options, const Target &target)
{
    ReplyData record;
    record.replyType = options.command->replyType;
    record.request.setUrl(target.url);
    record.request.setHeader(QNetworkRequest::ContentTypeHeader, QString(mime::wwwForm));
    for (auto header = options.headers.cbegin(); header != options.headers.cend(); ++header)
        record.request.setRawHeader(header.key(), header.value());
    record.fileData.filePath = options.savePath();
    record.fileData.size = options.size;
    record.fileData.resumeOffset = options.keptBytes();
    if (record.fileData.resumeOffset > 0) {
        const QByteArray from = QByteArray::number(record.fileData.resumeOffset);
        record.request.setRawHeader("Range", "bytes=" + from + '-');
    }
    return record;
}

} // namespace

bool ProcessorEngine::prepareFile(const Options &options, Console &console)
{
    const QFileInfo destination(options.savePath());
    // A shorter file is the beginning of this one. A longer one would never be touched.
    if (options.size == 0 || !destination.exists()
        || destination.size() < static_cast<qint64>(options.size)) {
        return true;
    }
    console.error(QStringLiteral("%1 is in the way, remove it").arg(destination.filePath()));
    return false;
}

void ProcessorEngine::start(const Options &options, const Target &target)
{
    auto *processor = new NetworkProcessor(this);
    m_processors.insert(target.urlText(), processor);
    connectProcessor(processor, target.urlText());
    const ReplyData record = makeRecord(options, target);
    if (record.replyType == replies::raw_post)
        processor->startPost(record, options.body);
    else
        processor->startGet(record);
}

void ProcessorEngine::abort(const QString &url)
{
    delete m_processors.take(url);
}

void ProcessorEngine::abortAll(int /*count*/)
{
    qDeleteAll(m_processors);
    m_processors.clear();
}

void ProcessorEngine::connectProcessor(NetworkProcessor *processor, const QString &url)
{
    const auto forward = [this, processor](auto from, auto to) {
        connect(processor, from, this, to);
    };
    const auto document = [this, url](const QJsonDocument &answer) {
        Q_EMIT documentArrived(answer, url);
    };
    const auto end = [this, url] { Q_EMIT concluded(url); };
    forward(&NetworkProcessor::s_fetchDefinition, document);
    forward(&NetworkProcessor::s_fetchIndex, document);
    forward(&NetworkProcessor::s_rawGet, document);
    forward(&NetworkProcessor::s_rawPost, document);
    forward(&NetworkProcessor::s_fetchInstallerChangeLogData,
            [this, url](const QByteArray &bytes) { Q_EMIT bytesArrived(bytes, url); });
    forward(&NetworkProcessor::s_finished, end);
    forward(&NetworkProcessor::s_rawGetFileFinished, end);
    forward(&NetworkProcessor::s_errorChanged,
            [this, url](short code) { Q_EMIT failed(code, url, QJsonDocument()); });
    forward(&NetworkProcessor::s_downloadFileBytesProgress,
            [this, url](qint64 bytes, qint64 total) { Q_EMIT bytesProgressed(bytes, total, url); });
    forward(&NetworkProcessor::s_uploadFileProgress,
            [this, url](double percent) { Q_EMIT percentProgressed(percent, url); });
    // Of an answer whose size nobody knows the processor's percentage is infinite.
    forward(&NetworkProcessor::s_downloadFileProgress, [this, url](double percent) {
        Q_EMIT percentProgressed(percent <= 100 ? percent : 0, url);
    });
}
