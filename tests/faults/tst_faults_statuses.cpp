#include "faultbench.h"
#include "faultrows.h"
#include "servedfaults.h"

#include <QtCore/QFileInfo>
#include <QtTest/QTest>

using faultrows::Mode;

/// Every refusal of a server, in JSON and not, to every kind of request.
class tst_FaultsStatuses : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void refuses_data();
    void refuses();
};

void tst_FaultsStatuses::refuses_data()
{
    QTest::addColumn<Mode>("mode");
    QTest::addColumn<RequestKind>("kind");
    QTest::addColumn<int>("status");
    QTest::addColumn<QNetworkReply::NetworkError>("error");
    QTest::addColumn<QByteArray>("body");

    faultrows::forEachKind([](const char *scheme, Mode mode, const RequestKind &kind) {
        for (const Refusal &refusal : refusals()) {
            for (const QByteArray &body : refusalBodies()) {
                QTest::addRow("%d %s, %s, %s", refusal.status, body.constData(), kind.name, scheme)
                    << mode << kind << refusal.status << refusal.error << body;
            }
        }
    });
}

void tst_FaultsStatuses::refuses()
{
    QFETCH(Mode, mode);
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
