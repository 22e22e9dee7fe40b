#include "faultbench.h"

#include "files.h"

#include <QtCore/QDir>
#include <QtCore/QMetaEnum>

using namespace clientaccess;
using endings::signalText;

namespace {

struct ErrorRule {
    short code;
    bool aborts;
};

ErrorRule ruleOf(QNetworkReply::NetworkError error)
{
    static const QMap<int, ErrorRule> rules = {
        // Only ever after the application has aborted the request.
        {QNetworkReply::OperationCanceledError, {0, true}},
        {QNetworkReply::SslHandshakeFailedError, {-222, true}},
        {QNetworkReply::UnknownNetworkError, {-216, true}},
        {QNetworkReply::ContentNotFoundError, {-217, true}},
        {QNetworkReply::AuthenticationRequiredError, {-213, false}},
        {QNetworkReply::ProtocolInvalidOperationError, {-220, false}},
    };
    return rules.value(error, {-203, true});
}

QString enumerator(QNetworkReply::NetworkError error)
{
    return QLatin1String("QNetworkReply::")
        + QLatin1String(QMetaEnum::fromType<QNetworkReply::NetworkError>().valueToKey(error));
}

// What a download logs while bytes of this status arrive.
QStringList arrivalMessages(const RequestKind &kind, const Ending &ending)
{
    if (!kind.isFile() || ending.body.isEmpty())
        return {};
    const QString status = QString::number(ending.status);
    if (ending.status >= 500)
        return {line({"debug: <TarvisNet::replyReadyRead> Server error: ", status})};
    if (ending.status >= 400)
        return {line({"debug: <TarvisNet::replyReadyRead> Client or network error: ", status})};
    return kind.isInstaller() ? QStringList("warning: File path not defined!") : QStringList();
}

} // namespace

FaultBench::FaultBench(ScriptedServer::Mode mode)
    : ClientBench(mode)
    , m_destination(path("file"))
{
    QDir(directory.path()).mkdir("temporary");
    setTemporaryDirectory(path("temporary"));
}

void FaultBench::setTemporaryDirectory(const QString &path)
{
    m_temporaryDirectory = path;
    client->setTemporaryDirectory(path);
    recorder.clear();
}

void FaultBench::start(const RequestKind &kind, qulonglong size, const QUrl &url)
{
    const QUrl address = url.isEmpty() ? server.url("/fault") : url;
    m_url = address.toString();
    requestkinds::start(*client, kind, address, destination(), size);
    m_reply = repliesOf(*client).value(0);
    QObject::connect(m_reply, &QNetworkReply::errorOccurred, m_reply,
                     [this](QNetworkReply::NetworkError error) {
                         m_error = error;
                         m_errorText = m_reply->errorString();
                     });
    QObject::connect(m_reply, &QObject::destroyed, client, [this] { m_awaiter.changed(); });
}

bool FaultBench::waitUntilGone()
{
    return m_awaiter.wait([this] { return m_reply.isNull(); }, 20000);
}

QStringList FaultBench::said() const
{
    QStringList said;
    for (const QString &message : messages()) {
        const bool isProgress = message.startsWith("debug: <TarvisNet::UploadProgress>");
        if (!isProgress && (said.isEmpty() || said.last() != message))
            said.append(message);
    }
    return said;
}

QStringList FaultBench::saidAs(const QStringList &beginnings) const
{
    QStringList lines = said();
    for (int i = 0; i < qMin(lines.size(), beginnings.size()); ++i)
        lines[i].truncate(beginnings.at(i).size());
    return lines;
}

QStringList FaultBench::expectedSignals(const RequestKind &kind, const Ending &ending) const
{
    const QString changed = "s_repliesCountChanged";
    const bool isFailure = ending.error != QNetworkReply::NoError;
    QStringList expected;
    if (kind.isFile())
        expected << "s_startPing|-1";
    expected << changed;
    if (isFailure) {
        // Bytes of a download never are a document.
        const QByteArray body = kind.isFile() ? QByteArray() : ending.body;
        const QVariant document = QJsonDocument::fromJson(body);
        const short code = ruleOf(ending.error).code;
        if (code != 0)
            expected << signalText("s_errorChanged", {code, m_url, document});
    } else if (kind.isBinary() && ending.body.isEmpty()) {
        expected << signalText("s_errorChanged", {-218, m_url, QJsonDocument()});
    } else if (kind.result == Result::Document) {
        expected << signalText(kind.signal, {QJsonDocument::fromJson(ending.body), m_url});
    } else if (kind.result == Result::Address) {
        expected << signalText(kind.signal, {m_url});
    } else if (kind.result == Result::Bytes) {
        const bool hasHeaders = kind.name != replies::remote_installer_log;
        const QVariantList body = {ending.body, m_url};
        expected << signalText(kind.signal, hasHeaders ? body + QVariantList{QVariant()} : body);
    }
    expected << changed;
    if (kind.isFile())
        expected << "s_stopPing";
    if (isFailure && ruleOf(ending.error).aborts)
        expected << signalText("s_aborted", {m_url});
    return expected;
}

QStringList FaultBench::expectedMessages(const RequestKind &kind, const Ending &ending) const
{
    QStringList expected = arrivalMessages(kind, ending);
    if (ending.error != QNetworkReply::NoError)
        expected += failureMessages(ending, m_url, m_errorText);
    else if (kind.isBinary() && ending.body.isEmpty())
        expected += "warning: Temp file not exist";
    else if (kind.isInstaller())
        expected += "debug: <TarvisNet::handleReply> Installer finished";
    else if (kind.result == Result::Nothing)
        expected += "debug: <TarvisNet::handleReply> Installer check summ finished";
    return expected;
}

QStringList FaultBench::failureMessages(const Ending &ending, const QString &url,
                                        const QString &text)
{
    const QString name = enumerator(ending.error);
    QStringList messages = {
        line({"debug: <TarvisNet::replyError> Network error: \n", " code: ", name, "\n"}),
        line({"debug: Error on: ", quoted(url), " \n", " text: ", quoted(text), " \n",
              " http status: ", QString::number(ending.status)}),
        line({"warning: <TarvisNet::handleReply> Network error: \n", " code: ", name, "\n",
              " text: ", quoted(text), "\n"}),
    };
    // The failing reply is the only one, so that it is the one that is aborted.
    if (ruleOf(ending.error).aborts)
        messages.append("warning: Reply is removed erlier");
    return messages;
}

QStringList FaultBench::downloadSignals(const QList<int> &errors, bool isFinished) const
{
    QStringList expected = {"s_startPing|-1", "s_repliesCountChanged"};
    for (const int code : errors)
        expected << signalText("s_errorChanged", {code, m_url, QJsonDocument()});
    if (isFinished)
        expected << signalText("s_finished", {m_url});
    return expected << "s_repliesCountChanged"
                    << "s_stopPing";
}
