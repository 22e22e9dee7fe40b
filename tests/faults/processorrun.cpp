#include "processorrun.h"

#include <QtCore/QMetaEnum>

namespace {

const QMap<QByteArray, QString> finishedTexts = {
    {"remoteDefinition", "Definition finished"},
    {"remoteIndex", "Index finished"},
    {"remoteInstaller", "Installer finished"},
    {"remoteInstallerChangeLog", "Installer change log finished"},
    {"remoteInstallerCheckSum", "Installer check summ finished"},
    {"remoteBinary", "Binary finished"},
    {"rawGet", "Raw get finished"},
    {"rawPost", "Raw post finished"},
    {"rawGetFile", "Raw file get finished"},
};

short codeOf(QNetworkReply::NetworkError error)
{
    switch (error) {
    case QNetworkReply::UnknownNetworkError:
        return -216;
    case QNetworkReply::ContentNotFoundError:
        return -217;
    default:
        return -203;
    }
}

QStringList resultSignals(const RequestKind &kind, const QByteArray &body, const QString &url)
{
    QStringList results;
    for (const QString &signal : kind.processorSignals) {
        QVariantList arguments = {url};
        if (signal == "s_errorChanged")
            arguments.prepend(-215);
        else if (kind.result == Result::Document)
            arguments.prepend(QJsonDocument::fromJson(body));
        else if (kind.name == replies::remote_installer_log)
            arguments.prepend(body);
        results.append(endings::signalText(signal, arguments));
    }
    return results;
}

} // namespace

void ProcessorRun::ask(const QUrl &url, qulonglong size)
{
    m_url = url.toString();
    start(processorbench::fileRecord(m_kind.name, url, path(), size),
          QByteArray(m_kind.verb) == "POST", "asked");
}

QStringList ProcessorRun::said() const
{
    QStringList said;
    for (const LogEntry &entry : log.from(processorbench::sourceFile)) {
        if (!entry.text.contains("Progress") && (said.isEmpty() || said.last() != entry.text))
            said.append(entry.text);
    }
    return said;
}

QStringList ProcessorRun::expectedSignals(const Ending &ending) const
{
    if (ending.error == QNetworkReply::NoError)
        return resultSignals(m_kind, ending.body, m_url);
    return {endings::signalText("s_errorChanged", {codeOf(ending.error), m_url})};
}

QStringList ProcessorRun::expectedMessages(const Ending &ending,
                                           const QList<QSslError::SslError> &tlsErrors) const
{
    const QString finished = "<NetworkProcessor::replyFinished>";
    QStringList messages;
    // Unlike the client, it has Qt look at certificates, and then accepts them all.
    for (const QSslError::SslError error : tlsErrors) {
        messages << "<NetworkProcessor::replySslErrors> \n  text:  \""
                + QSslError(error).errorString() + '"';
    }
    if (ending.error == QNetworkReply::NoError) {
        const QString text = finishedTexts.value(m_kind.name, "Uknown reply");
        return messages << finished << "<TarvisNet::handleReply> " + text;
    }
    if (m_kind.isFile() && !ending.body.isEmpty() && ending.status >= 400) {
        const QString text =
            ending.status >= 500 ? "Server error:  " : "Client or network error:  ";
        messages << "<NetworkProcessor::replyReadyRead> " + text + QString::number(ending.status);
    }
    const auto errors = QMetaEnum::fromType<QNetworkReply::NetworkError>();
    return messages << "<NetworkProcessor::replyError> Network error: \n  code:  "
                       "QNetworkReply::"
        + QString(errors.valueToKey(ending.error))
        + " \n" << finished;
}
