#include "faultbench.h"
#include "servedfaults.h"

#include <QtCore/QFileInfo>
#include <QtTest/QTest>

/// Every refusal of a server, in JSON and not, to every kind of request.
class tst_FaultsStatuses : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void refuses_data();
    void refuses();
};

void tst_FaultsStatuses::refuses_data()
{
    QTest::addColumn<ScriptedServer::Mode>("mode");
    QTest::addColumn<RequestKind>("kind");
    QTest::addColumn<int>("status");
    QTest::addColumn<QNetworkReply::NetworkError>("error");
    QTest::addColumn<QByteArray>("body");

    const auto addRows = [](const char *scheme, ScriptedServer::Mode mode,
                            const QList<RequestKind> &kinds) {
        for (const Refusal &refusal : refusals()) {
            for (const RequestKind &kind : kinds) {
                for (const QByteArray &body : refusalBodies()) {
                    QTest::addRow("%d %s, %s, %s", refusal.status, body.constData(), kind.name,
                                  scheme)
                        << mode << kind << refusal.status << refusal.error << body;
                }
            }
        }
    };
    addRows("HTTP", ScriptedServer::Mode::Http, requestkinds::all());
    addRows("HTTPS", ScriptedServer::Mode::Https, requestkinds::few());
}

void tst_FaultsStatuses::refuses()
{
    QFETCH(ScriptedServer::Mode, mode);
    QFETCH(RequestKind, kind);
    QFETCH(int, status);
    QFETCH(QNetworkReply::NetworkError, error);
    QFETCH(QByteArray, body);

    FaultBench bench(mode);
    bench.server.on("/fault", answers::bytes(body, status));
    bench.start(kind);
    QVERIFY(bench.waitUntilGone());

    const Ending ending = {error, status, body};
    QCOMPARE(bench.seen(), bench.expectedSignals(kind, ending));
    QCOMPARE(bench.said(), bench.expectedMessages(kind, ending));
    QCOMPARE(bench.server.requests().size(), 1);
    QCOMPARE(bench.server.requests().constFirst().method, QByteArray(kind.verb));
    QVERIFY(!QFileInfo::exists(bench.temporary()));
    QVERIFY(!QFileInfo::exists(bench.destination()));
}

QTEST_GUILESS_MAIN(tst_FaultsStatuses)

#include "tst_faults_statuses.moc"
