#include "answers.h"
#include "endings.h"
#include "files.h"
#include "processorbench.h"
#include "requestkinds.h"
#include "servedfaults.h"

#include <QtCore/QFileInfo>
#include <QtCore/QMetaEnum>
#include <QtNetwork/QSslError>
#include <QtTest/QTest>

using namespace processorbench;

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
    return error == QNetworkReply::ContentNotFoundError ? -217 : -203;
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

/// One request of a processor, from its start to the deletion of its reply.
struct ProcessorRun {
    explicit ProcessorRun(const RequestKind &requestKind, const QUrl &address, qulonglong size)
        : kind(requestKind)
        , url(address.toString())
    {
        log.clear();
        const ReplyData record = fileRecord(kind.name, address, path(), size);
        if (QByteArray(kind.verb) == "POST")
            processor.startPost(record, "asked");
        else
            processor.startGet(record);
    }

    QString path() const { return directory.filePath("file"); }

    /// What was logged besides progress, repetitions once.
    QStringList said() const
    {
        QStringList said;
        for (const LogEntry &entry : log.from(sourceFile)) {
            if (!entry.text.contains("Progress") && (said.isEmpty() || said.last() != entry.text))
                said.append(entry.text);
        }
        return said;
    }
    QStringList expectedSignals(const Ending &ending) const
    {
        if (ending.error == QNetworkReply::NoError)
            return resultSignals(kind, ending.body, url);
        return {endings::signalText("s_errorChanged", {codeOf(ending.error), url})};
    }
    QStringList expectedMessages(const Ending &ending) const
    {
        const QString finished = "<NetworkProcessor::replyFinished>";
        QStringList messages;
        // Unlike the client, it has Qt look at certificates, and then accepts them all.
        if (url.startsWith("https")) {
            const QString text = QSslError(QSslError::SelfSignedCertificate).errorString();
            messages << "<NetworkProcessor::replySslErrors> \n  text:  \"" + text + '"';
        }
        if (ending.error == QNetworkReply::NoError) {
            const QString text = finishedTexts.value(kind.name, "Uknown reply");
            return messages << finished << "<TarvisNet::handleReply> " + text;
        }
        if (kind.isFile() && !ending.body.isEmpty() && ending.status >= 400) {
            const QString text =
                ending.status >= 500 ? "Server error:  " : "Client or network error:  ";
            messages << "<NetworkProcessor::replyReadyRead> " + text
                    + QString::number(ending.status);
        }
        const auto errors = QMetaEnum::fromType<QNetworkReply::NetworkError>();
        return messages << "<NetworkProcessor::replyError> Network error: \n  code:  "
                           "QNetworkReply::"
            + QString(errors.valueToKey(ending.error))
            + " \n" << finished;
    }

    const RequestKind kind;
    const QString url;
    QTemporaryDir directory;
    LogCapture log;
    ReplyCatcher replies;
    NetworkProcessor processor;
    SignalRecorder recorder{&processor};
};

void addRows(
    const std::function<void(const char *, ScriptedServer::Mode, const RequestKind &)> &row)
{
    for (const RequestKind &kind : requestkinds::all())
        row("HTTP", ScriptedServer::Mode::Http, kind);
    for (const RequestKind &kind : requestkinds::few())
        row("HTTPS", ScriptedServer::Mode::Https, kind);
}

} // namespace

/// The stand-alone processor before servers that fail. It knows fewer codes and aborts nothing.
class tst_FaultsProcessor : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void failsInTheAnswer_data();
    void failsInTheAnswer();
    void refuses_data();
    void refuses();
};

void tst_FaultsProcessor::failsInTheAnswer_data()
{
    QTest::addColumn<ScriptedServer::Mode>("mode");
    QTest::addColumn<ServedFault>("fault");
    QTest::addColumn<RequestKind>("kind");

    addRows([](const char *scheme, ScriptedServer::Mode mode, const RequestKind &kind) {
        for (const ServedFault &fault : servedFaults()) {
            QTest::addRow("%s, %s, %s", fault.name.constData(), kind.name, scheme)
                << mode << fault << kind;
        }
    });
}

void tst_FaultsProcessor::failsInTheAnswer()
{
    QFETCH(ScriptedServer::Mode, mode);
    QFETCH(ServedFault, fault);
    QFETCH(RequestKind, kind);

    ScriptedServer server(mode);
    HttpResponse answer;
    server.on("/fault", [&](const HttpRequest &, HttpResponse &response) {
        answer = response;
        fault.begin(response);
        if (fault.body.isEmpty())
            fault.end(response);
    });
    ProcessorRun run(kind, server.url("/fault"), fault.size);
    QVERIFY(run.replies.waitFor());
    QNetworkReply::NetworkError error = QNetworkReply::NoError;
    connect(run.replies.at(), &QNetworkReply::errorOccurred, this,
            [&error](QNetworkReply::NetworkError code) { error = code; });
    if (!fault.body.isEmpty()) {
        connect(
            run.replies.at(), &QIODevice::readyRead, this, [&] { fault.end(answer); },
            Qt::QueuedConnection);
    }
    QVERIFY(run.replies.waitUntilGone());

    // Over HTTP, whether Qt takes what was cut for whole depends on how the bytes come in.
    const bool mayLookWhole = mode == ScriptedServer::Mode::Http && fault.isCut();
    if (!mayLookWhole || error != QNetworkReply::NoError)
        error = fault.error;
    const Ending ending = {error, fault.status, fault.body};
    QCOMPARE(endings::seen(run.recorder), run.expectedSignals(ending));
    QCOMPARE(run.said(), run.expectedMessages(ending));
    const bool isSaved = kind.name == replies::raw_get_file && error == QNetworkReply::NoError;
    QCOMPARE(files::read(run.path()), isSaved || kind.isFile() ? fault.body : QByteArray());
}

void tst_FaultsProcessor::refuses_data()
{
    QTest::addColumn<ScriptedServer::Mode>("mode");
    QTest::addColumn<RequestKind>("kind");
    QTest::addColumn<int>("status");
    QTest::addColumn<QNetworkReply::NetworkError>("error");
    QTest::addColumn<QByteArray>("body");

    addRows([](const char *scheme, ScriptedServer::Mode mode, const RequestKind &kind) {
        for (const Refusal &refusal : refusals()) {
            for (const QByteArray &body : refusalBodies()) {
                QTest::addRow("%d %s, %s, %s", refusal.status, body.constData(), kind.name, scheme)
                    << mode << kind << refusal.status << refusal.error << body;
            }
        }
    });
}

void tst_FaultsProcessor::refuses()
{
    QFETCH(ScriptedServer::Mode, mode);
    QFETCH(RequestKind, kind);
    QFETCH(int, status);
    QFETCH(QNetworkReply::NetworkError, error);
    QFETCH(QByteArray, body);

    ScriptedServer server(mode);
    server.on("/fault", answers::bytes(body, status));
    ProcessorRun run(kind, server.url("/fault"), 1000);
    QVERIFY(run.replies.waitUntilGone());

    const Ending ending = {error, status, body};
    QCOMPARE(endings::seen(run.recorder), run.expectedSignals(ending));
    QCOMPARE(run.said(), run.expectedMessages(ending));
    QVERIFY(!QFileInfo::exists(run.path()));
}

QTEST_GUILESS_MAIN(tst_FaultsProcessor)

#include "tst_faults_processor.moc"
