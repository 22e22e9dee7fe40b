#include "errorcodes.h"
#include "networkprocessor_p.h"
#include "replyinfo_p.h"

#include <QtCore/QPointer>

#include <functional>

namespace {

/// A reply that finished without an error.
struct ProcessorAnswer {
    const char *function;
    QString url;
    Transfer transfer;
};

using ProcessorDelivery = void (*)(NetworkProcessor &processor, const ProcessorAnswer &answer);

template <void (NetworkProcessor::*signal)(QJsonDocument, QString)>
void deliverJson(NetworkProcessor &processor, const ProcessorAnswer &answer)
{
    Q_EMIT std::invoke(signal, processor, QJsonDocument::fromJson(answer.transfer.answer),
                       answer.url);
}

void deliverDownload(NetworkProcessor &processor, const ProcessorAnswer &answer)
{
    Q_EMIT processor.s_finished(answer.url);
}

void deliverChangeLog(NetworkProcessor &processor, const ProcessorAnswer &answer)
{
    const QPointer<NetworkProcessor> guard(&processor);
    const QByteArray &body = answer.transfer.answer;
    // As a C string: a NUL byte ends the text.
    Q_EMIT processor.s_fetchInstallerChangeLog(QString::fromUtf8(body.constData()), answer.url);
    if (guard)
        Q_EMIT processor.s_fetchInstallerChangeLogData(body, answer.url);
}

void deliverFile(NetworkProcessor &processor, const ProcessorAnswer &answer)
{
    const QByteArray &body = answer.transfer.answer;
    const QString path = answer.transfer.record.fileData.filePath;
    if (!body.isEmpty() && !savedfile::overwriteStart(path, body)) {
        processorLog.debug(answer.function)
            << "<TarvisNet::handleReply> Error opening file to save.";
    }
    processorLog.debug(answer.function) << "<TarvisNet::handleReply> Raw file get finished";
    Q_EMIT processor.s_rawGetFileFinished(answer.url);
}

void reportUnknown(NetworkProcessor &processor, const ProcessorAnswer &answer)
{
    Q_EMIT processor.s_errorChanged(errorcodes::unknown_reply, answer.url);
}

void deliverNothing(NetworkProcessor & /*processor*/, const ProcessorAnswer & /*answer*/) {}

struct ProcessorResult {
    QLatin1String replyType;
    /// Logged first; null when the delivery has its own.
    const char *text;
    ProcessorDelivery deliver;
};

// The texts have always named the client, whose answers these once were.
constexpr ProcessorResult processorResults[] = {
    {replies::redirect_reply, "<TarvisNet::handleReply> Redirect finished", deliverNothing},
    {replies::remote_index, "<TarvisNet::handleReply> Index finished",
     deliverJson<&NetworkProcessor::s_fetchIndex>},
    {replies::remote_definition, "<TarvisNet::handleReply> Definition finished",
     deliverJson<&NetworkProcessor::s_fetchDefinition>},
    {replies::remote_binary, "<TarvisNet::handleReply> Binary finished", deliverDownload},
    {replies::remote_installer, "<TarvisNet::handleReply> Installer finished", deliverDownload},
    {replies::remote_installer_log, "<TarvisNet::handleReply> Installer change log finished",
     deliverChangeLog},
    {replies::remote_installer_sum, "<TarvisNet::handleReply> Installer check summ finished",
     deliverNothing},
    {replies::raw_get, "<TarvisNet::handleReply> Raw get finished",
     deliverJson<&NetworkProcessor::s_rawGet>},
    {replies::raw_post, "<TarvisNet::handleReply> Raw post finished",
     deliverJson<&NetworkProcessor::s_rawPost>},
    {replies::raw_get_file, nullptr, deliverFile},
};

constexpr ProcessorResult unknownProcessorResult = {
    QLatin1String(), "<TarvisNet::handleReply> Uknown reply", reportUnknown};

} // namespace

void NetworkProcessorPrivate::deliver(NetworkProcessor &processor, const char *function,
                                      const QString &url, const Transfer &transfer)
{
    const ProcessorResult *known = replyinfo::findRow(processorResults, transfer.record.replyType);
    const ProcessorResult &result = known ? *known : unknownProcessorResult;
    if (result.text)
        processorLog.debug(function) << result.text;
    result.deliver(processor, {function, url, transfer});
}
