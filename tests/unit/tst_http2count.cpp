#include "managerpool_p.h"
#include "traditionalrules_p.h"

#include <QtTest/QTest>

namespace {

// As many as nginx serves on one connection.
constexpr int servedByConnection = 1000;

using Manager = const QNetworkAccessManager *;

} // namespace

/// After how many requests by HTTP/2 a manager is replaced.
class tst_Http2Count : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void endsBeforeTheServerDoes();
    void countsForEachManager();
};

void tst_Http2Count::endsBeforeTheServerDoes()
{
    const TraditionalRules rules;
    ManagerPool pool(rules);
    const Manager first = pool.primary().data();
    int count = 0;
    while (!pool.isPrimaryDistrusted() && count < servedByConnection) {
        pool.countHttp2(first);
        ++count;
    }
    // Rarely, because each costs a handshake; and those that run may be sent before it is replaced.
    QVERIFY(count > servedByConnection / 2);
    QVERIFY(count < servedByConnection - 10);

    pool.replacePrimary();
    pool.countHttp2(first);
    pool.countHttp2(pool.primary().data());
    QVERIFY(!pool.isPrimaryDistrusted());
}

void tst_Http2Count::countsForEachManager()
{
    const TraditionalRules rules;
    ManagerPool pool(rules);
    const Manager replaced = pool.primary().data();
    pool.replacePrimary();
    for (int i = 0; i < servedByConnection; ++i)
        pool.countHttp2(replaced);
    QVERIFY(!pool.isPrimaryDistrusted());
}

QTEST_GUILESS_MAIN(tst_Http2Count)
#include "tst_http2count.moc"
