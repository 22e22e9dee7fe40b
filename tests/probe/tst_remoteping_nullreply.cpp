#include "pingbench.h"

#include <QtTest/QTest>

// Qt's own function cannot give null, but one of another Qt might; this program links this one in
// its place.
QNetworkReply *QNetworkAccessManager::get(const QNetworkRequest &)
{
    return nullptr;
}

class tst_RemotePingNullReply : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void isLoggedAndCounted();
};

void tst_RemotePingNullReply::isLoggedAndCounted()
{
    PingBench bench;
    bench.ping->start(0);
    bench.log.clear();
    bench.tick();
    QCOMPARE(bench.log.texts(QtWarningMsg), QStringList("Null ping reply."));
    QCOMPARE(bench.log.entries().size(), 1);
    QCOMPARE(bench.log.entries().first().function,
             QByteArray("QNetworkReply* RemotePing::pingRequest()"));
    QCOMPARE(bench.log.originFault("../../source/appl/remoteping"), QString());
    QCOMPARE(bench.signals.names(), QStringList("s_started"));

    bench.tick();
    QCOMPARE(bench.signals.names(), QStringList({"s_started", "s_stopped"}));
}

QTEST_GUILESS_MAIN(tst_RemotePingNullReply)

#include "tst_remoteping_nullreply.moc"
