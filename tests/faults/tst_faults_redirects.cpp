#include "faultbench.h"
#include "files.h"

#include <QtCore/QFileInfo>
#include <QtTest/QTest>

#include <functional>

using namespace clientaccess;

using Mode = ScriptedServer::Mode;
using endings::signalText;

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

void addRows(const std::function<void(const char *, Mode, const RequestKind &)> &row)
{
    for (const RequestKind &kind : requestkinds::all()) {
        row("HTTP", Mode::Http, kind);
        row("HTTPS", Mode::Https, kind);
    }
}

} // namespace

Q_DECLARE_METATYPE(DeadEnd)

/// Redirects to where nothing is, and long ways, for every kind of request.
class tst_FaultsRedirects : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void leadsNowhere_data();
    void leadsNowhere();
    void followsAChain_data();
    void followsAChain();
    void chainEndsInAnError_data() { followsAChain_data(); }
    void chainEndsInAnError();

private:
    /// Has the paths from "/fault" on redirect to each other, \a hops times, and the last one to
    /// "/last".
    static void layChain(FaultBench &bench);
};

void tst_FaultsRedirects::layChain(FaultBench &bench)
{
    for (int i = 0; i < hops; ++i) {
        const QString from = i == 0 ? QString("/fault") : '/' + QString::number(i);
        const QString to = i == hops - 1 ? QString("/last") : '/' + QString::number(i + 1);
        bench.server.on(from.toLatin1(), answers::redirect(302, bench.server.url(to).toEncoded()));
    }
}

void tst_FaultsRedirects::leadsNowhere_data()
{
    QTest::addColumn<Mode>("mode");
    QTest::addColumn<RequestKind>("kind");
    QTest::addColumn<DeadEnd>("end");
    addRows([](const char *scheme, Mode mode, const RequestKind &kind) {
        for (const DeadEnd &end : deadEnds()) {
            QTest::addRow("%s, %s, %s", end.name.constData(), kind.name, scheme)
                << mode << kind << end;
        }
    });
}

// The request itself keeps its place until the client clears it.
void tst_FaultsRedirects::leadsNowhere()
{
    QFETCH(Mode, mode);
    QFETCH(RequestKind, kind);
    QFETCH(DeadEnd, end);

    FaultBench bench(mode);
    bench.server.on("/fault", answers::redirect(302, end.location));
    bench.start(kind);
    QVERIFY(bench.recorder.waitFor("s_repliesCountChanged", 2));
    QTRY_COMPARE(repliesOf(*bench.client).size(), 1);

    QStringList expected = bench.expectedSignals(kind, {end.error});
    expected.replaceInStrings(bench.url("/fault"), end.target);
    // What Qt reads from a file is never running, so that it cannot be aborted.
    if (end.target.startsWith("file:"))
        expected.removeLast();
    QCOMPARE(bench.seen(), expected);
    QCOMPARE(bench.said().mid(0, 3),
             QStringList(
                 {line({"debug: <TarvisNet::redirectReply> redirect reply:", quoted(end.target)}),
                  "debug:  Find previos target, set to redirect attribute",
                  "debug: <TarvisNet::redirectReply> redirect send."}));
    QCOMPARE(bench.server.requests().size(), 1);
    QVERIFY(!QFileInfo::exists(bench.destination()));
    QVERIFY(!QFileInfo::exists(bench.temporary()));
}

void tst_FaultsRedirects::followsAChain_data()
{
    QTest::addColumn<Mode>("mode");
    QTest::addColumn<RequestKind>("kind");
    addRows([](const char *scheme, Mode mode, const RequestKind &kind) {
        QTest::addRow("%s, %s", kind.name, scheme) << mode << kind;
    });
}

// The result is that of the first request, whose place and those of the hops are free again.
void tst_FaultsRedirects::followsAChain()
{
    QFETCH(Mode, mode);
    QFETCH(RequestKind, kind);

    FaultBench bench(mode);
    layChain(bench);
    bench.server.on("/last", answers::bytes(document));
    bench.start(kind);
    QVERIFY(bench.recorder.waitFor("s_repliesCountChanged", hops + 2));
    QTRY_COMPARE(repliesOf(*bench.client).size(), 0);

    // The bytes of a redirected download are not saved.
    const Ending ending = {QNetworkReply::NoError, 200, kind.isBinary() ? "" : document};
    QStringList expected = bench.expectedSignals(kind, ending);
    const int last = expected.lastIndexOf("s_repliesCountChanged");
    for (int i = 0; i < hops; ++i)
        expected.insert(last, "s_repliesCountChanged");
    QCOMPARE(bench.seen(), expected);
    QCOMPARE(bench.server.requests().size(), hops + 1);
    QCOMPARE(bench.log.texts(QtDebugMsg).count("<TarvisNet::handleReply> Found direct reply"),
             hops);
    QCOMPARE(bench.server.requests().first().method, QByteArray(kind.verb));
    QCOMPARE(bench.server.requests().last().method, QByteArray("GET"));
}

// Every hop keeps its place.
void tst_FaultsRedirects::chainEndsInAnError()
{
    QFETCH(Mode, mode);
    QFETCH(RequestKind, kind);

    FaultBench bench(mode);
    layChain(bench);
    bench.server.on("/last", answers::bytes(document, 410));
    bench.start(kind);
    QVERIFY(bench.recorder.waitFor("s_aborted"));
    QTRY_COMPARE(repliesOf(*bench.client).size(), hops);

    // The last hop is no download, and reads what the server says.
    QStringList expected = bench.expectedSignals(requestkinds::of(replies::raw_get),
                                                 {QNetworkReply::ContentGoneError, 410, document});
    if (kind.isFile()) {
        expected.prepend("s_startPing|-1");
        expected.insert(expected.size() - 1, "s_stopPing");
    }
    expected.replaceInStrings(bench.url("/fault"), bench.url("/last"));
    QCOMPARE(bench.seen(), expected);
    QCOMPARE(bench.server.requests().size(), hops + 1);
}

QTEST_GUILESS_MAIN(tst_FaultsRedirects)

#include "tst_faults_redirects.moc"
