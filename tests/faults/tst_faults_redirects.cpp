#include "faultbench.h"
#include "faultrows.h"
#include "files.h"
#include "testclass.h"

#include <QtCore/QFileInfo>
#include <QtTest/QTest>

#include <functional>

namespace tst_faults_redirects {

using namespace clientaccess;

using faultrows::Mode;

namespace {

constexpr int hops = 50;
const QByteArray document = R"({"answer":42})";

/// Where a redirect leads to that leads nowhere.
struct DeadEnd {
    QByteArray name;
    QByteArray location;
    /// The target in the logs and the error.
    QString target;
    QNetworkReply::NetworkError error;
};

QList<DeadEnd> deadEnds()
{
    constexpr auto unknown = QNetworkReply::ProtocolUnknownError;
    return {
        {"no Location", QByteArray(), QString(), unknown},
        {"a path", "/last", "/last", unknown},
        {"a relative path", "last?a=1", "last?a=1", unknown},
        {"no scheme", "//127.0.0.1/last", "//127.0.0.1/last", unknown},
        {"another scheme", "other://127.0.0.1/last", "other://127.0.0.1/last", unknown},
        {"a file that is not there", "file:///missing/file", "file:///missing/file",
         QNetworkReply::ContentNotFoundError},
    };
}

/// How the last of many servers ends what the others have passed on.
struct ChainEnd {
    QByteArray name;
    ScriptedServer::Handler answer;
    Ending ending;
};

QList<ChainEnd> chainEnds()
{
    const auto cut = [](const HttpRequest &, HttpResponse &response) { response.cut(); };
    const auto refused = [](int status, QNetworkReply::NetworkError error) -> ChainEnd {
        return {QByteArray::number(status),
                answers::bytes(document, status),
                {error, status, document}};
    };
    return {
        refused(401, QNetworkReply::AuthenticationRequiredError),
        refused(404, QNetworkReply::ContentNotFoundError),
        refused(410, QNetworkReply::ContentGoneError),
        {"closed", cut, {QNetworkReply::RemoteHostClosedError}},
    };
}

/// What is said when a request is sent on to \a target.
QStringList sentOn(const QString &target)
{
    return {line({"debug: <TarvisNet::redirectReply> redirect reply:", quoted(target)}),
            "debug:  Find previos target, set to redirect attribute",
            "debug: <TarvisNet::redirectReply> redirect send."};
}

/// What is said when the answer of the last of \a hops goes back to the first request.
QStringList handedBack(int hops)
{
    QStringList messages;
    for (int i = 0; i < hops; ++i) {
        messages << "debug: <TarvisNet::handleReply> Redirect finished"
                 << "debug: <TarvisNet::handleReply> Found direct reply";
    }
    return messages;
}

/// The signals of a request of \a kind that was answered after \a hops.
QStringList answeredSignals(const FaultBench &bench, const RequestKind &kind, const Ending &ending,
                            int hops)
{
    QStringList expected = bench.expectedSignals(kind, ending);
    const int last = expected.lastIndexOf("s_repliesCountChanged");
    for (int i = 0; i < hops; ++i)
        expected.insert(last, "s_repliesCountChanged");
    return expected;
}

/// Qt's text for the failure that the client reports.
struct FailureText {
    explicit FailureText(TarvisNet *client)
    {
        QObject::connect(client, &TarvisNet::s_errorChanged, client,
                         [this, client](short, const QString &url) {
                             for (const QNetworkReply *reply : repliesOf(*client)) {
                                 if (reply->url().toString() == url)
                                     text = reply->errorString();
                             }
                         });
    }

    QString text;
};

} // namespace

} // namespace tst_faults_redirects

Q_DECLARE_METATYPE(tst_faults_redirects::ChainEnd)
Q_DECLARE_METATYPE(tst_faults_redirects::DeadEnd)

namespace tst_faults_redirects {

/// Redirects to where nothing is, and long ways, for every kind of request.
class tst_FaultsRedirects : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void leadsNowhere_data() { faultrows::addFaultsInBothModes(deadEnds()); }
    void leadsNowhere();
    void leadsToOtherSchemes_data();
    void leadsToOtherSchemes();
    void followsAChain_data() { faultrows::addKinds(); }
    void followsAChain();
    void chainEndsInAnError_data() { faultrows::addFaultsInBothModes(chainEnds()); }
    void chainEndsInAnError();

private:
    /// Has the paths from "/fault" on redirect to each other, \a hops times, and the last one to
    /// "/last". Returns what the client is to say on the way.
    static QStringList layChain(FaultBench &bench);
};

QStringList tst_FaultsRedirects::layChain(FaultBench &bench)
{
    QStringList messages;
    for (int i = 0; i < hops; ++i) {
        const QString from = i == 0 ? QString("/fault") : '/' + QString::number(i);
        const QString to = i == hops - 1 ? QString("/last") : '/' + QString::number(i + 1);
        bench.server.on(from.toLatin1(), answers::redirect(302, bench.server.url(to).toEncoded()));
        messages += sentOn(bench.url(to));
    }
    return messages;
}

// The request itself keeps its place until the client clears it.
void tst_FaultsRedirects::leadsNowhere()
{
    QFETCH(Mode, mode);
    QFETCH(RequestKind, kind);
    QFETCH(DeadEnd, fault);

    FaultBench bench(mode);
    const FailureText failure(bench.client);
    bench.server.on("/fault", answers::redirect(302, fault.location));
    bench.start(kind);
    QVERIFY(bench.recorder.waitFor("s_repliesCountChanged", 2));
    QTRY_COMPARE(repliesOf(*bench.client).size(), 1);

    const Ending ending = {fault.error};
    QStringList expected = bench.expectedSignals(kind, ending);
    QStringList messages =
        sentOn(fault.target) + FaultBench::failureMessages(ending, fault.target, failure.text);
    expected.replaceInStrings(bench.url("/fault"), fault.target);
    // What Qt reads from a file is never running, so that it cannot be aborted.
    if (fault.target.startsWith("file:")) {
        expected.removeLast();
        messages.removeLast();
    }
    QCOMPARE(bench.seen(), expected);
    QCOMPARE(bench.said(), messages);
    QCOMPARE(bench.server.requests().size(), 1);
    QVERIFY(!QFileInfo::exists(bench.destination()));
    QVERIFY(!QFileInfo::exists(bench.temporary()));
}

void tst_FaultsRedirects::leadsToOtherSchemes_data()
{
    QTest::addColumn<Mode>("mode");
    QTest::addColumn<RequestKind>("kind");
    QTest::addColumn<bool>("isFile");
    faultrows::forEachKind([](const char *scheme, Mode mode, const RequestKind &kind) {
        QTest::addRow("a file, %s, %s", kind.name, scheme) << mode << kind << true;
        QTest::addRow("data, %s, %s", kind.name, scheme) << mode << kind << false;
    });
}

// A server can have the application read what is not the server's.
void tst_FaultsRedirects::leadsToOtherSchemes()
{
    QFETCH(Mode, mode);
    QFETCH(RequestKind, kind);
    QFETCH(bool, isFile);

    FaultBench bench(mode);
    files::write(bench.path("local"), document);
    const QUrl target = isFile ? QUrl::fromLocalFile(bench.path("local"))
                               : QUrl("data:application/json;base64," + document.toBase64());
    bench.server.on("/fault", answers::redirect(302, target.toEncoded()));
    bench.start(kind);
    QVERIFY(bench.recorder.waitFor("s_repliesCountChanged", 3));
    QTRY_COMPARE(repliesOf(*bench.client).size(), 0);

    const Ending ending = {QNetworkReply::NoError, 0, kind.isBinary() ? "" : document};
    QCOMPARE(bench.seen(), answeredSignals(bench, kind, ending, 1));
    QCOMPARE(bench.said(),
             sentOn(target.toString()) + handedBack(1) + bench.expectedMessages(kind, {}));
    QCOMPARE(bench.server.requests().size(), 1);
    const bool isSaved = QByteArray(kind.signal).contains("File");
    QCOMPARE(files::read(bench.destination()), isSaved ? document : QByteArray());
    QVERIFY(!QFileInfo::exists(bench.temporary()));
}

// The result is that of the first request, whose place and those of the hops are free again.
void tst_FaultsRedirects::followsAChain()
{
    QFETCH(Mode, mode);
    QFETCH(RequestKind, kind);

    FaultBench bench(mode);
    const QStringList onTheWay = layChain(bench);
    bench.server.on("/last", answers::bytes(document));
    bench.start(kind);
    QVERIFY(bench.recorder.waitFor("s_repliesCountChanged", hops + 2));
    QTRY_COMPARE(repliesOf(*bench.client).size(), 0);

    // The bytes of a redirected download are not saved.
    const Ending ending = {QNetworkReply::NoError, 200, kind.isBinary() ? "" : document};
    QCOMPARE(bench.seen(), answeredSignals(bench, kind, ending, hops));
    QCOMPARE(bench.said(), onTheWay + handedBack(hops) + bench.expectedMessages(kind, {}));
    QCOMPARE(bench.server.requests().size(), hops + 1);
    QCOMPARE(bench.server.requests().first().method, QByteArray(kind.verb));
    QCOMPARE(bench.server.requests().last().method, QByteArray("GET"));
    const bool isSaved = QByteArray(kind.signal).contains("File");
    QCOMPARE(files::read(bench.destination()), isSaved ? document : QByteArray());
    QVERIFY(!QFileInfo::exists(bench.temporary()));
}

// Every hop keeps its place.
void tst_FaultsRedirects::chainEndsInAnError()
{
    QFETCH(Mode, mode);
    QFETCH(RequestKind, kind);
    QFETCH(ChainEnd, fault);

    FaultBench bench(mode);
    const FailureText failure(bench.client);
    const QStringList onTheWay = layChain(bench);
    bench.server.on("/last", fault.answer);
    bench.start(kind);
    QVERIFY(bench.recorder.waitFor("s_repliesCountChanged", 2));
    QTRY_COMPARE(repliesOf(*bench.client).size(), hops);

    // The last hop is no download, and reads what the server says.
    QStringList expected = bench.expectedSignals(requestkinds::of(replies::raw_get), fault.ending);
    if (kind.isFile()) {
        expected.prepend("s_startPing|-1");
        expected.insert(expected.lastIndexOf("s_repliesCountChanged") + 1, "s_stopPing");
    }
    expected.replaceInStrings(bench.url("/fault"), bench.url("/last"));
    QCOMPARE(bench.seen(), expected);
    QCOMPARE(bench.said(),
             onTheWay
                 + FaultBench::failureMessages(fault.ending, bench.url("/last"), failure.text));
    QCOMPARE(bench.server.requests("/fault").size(), 1);
    QVERIFY(!QFileInfo::exists(bench.destination()));
    QVERIFY(!QFileInfo::exists(bench.temporary()));
}

const TestClass<tst_FaultsRedirects> testClass("tst_faults_redirects");

} // namespace tst_faults_redirects

#include "tst_faults_redirects.moc"
