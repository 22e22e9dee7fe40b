#include <tarvisnet/tarvisnet.h>

#include <QtCore/QDebug>
#include <QtTest/QTest>

#include <functional>
#include <limits>

namespace {

using Edit = std::function<void(TransferPolicy &)>;

QSslCertificate serverCertificate()
{
    return QSslCertificate::fromPath(TARVISNET_TEST_CERTIFICATES "/server.crt").value(0);
}

QString text(const TransferPolicy &policy)
{
    QString text;
    QDebug(&text).noquote() << policy;
    return text.trimmed();
}

/// The text of a policy that differs from the first one in \a difference, "property value".
QString writtenWith(const QString &difference)
{
    QStringList items = {"peersVerified false",    "caCertificates 0",      "pinnedKeys 0",
                         "redirectsChecked false", "maximumRedirects 10",   "filesChecked false",
                         "failuresIsolated false", "idleTimeout 0",         "totalTimeout 0",
                         "maximumRetries 0",       "retryDelay 500",        "maximumBodySize 0",
                         "errorsExplained false",  "connectionsKept false", "http2Allowed false",
                         "downloadThreads 1"};
    const QString name = difference.section(QLatin1Char(' '), 0, 0) + QLatin1Char(' ');
    for (QString &item : items) {
        if (item.startsWith(name))
            item = difference;
    }
    return QStringLiteral("TransferPolicy(%1)").arg(items.join(QStringLiteral(", ")));
}

} // namespace

Q_DECLARE_METATYPE(Edit)

class tst_TransferPolicy : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void asksForNothingAtFirst();
    void strict();
    void fast();
    void boundsDownloadThreads_data();
    void boundsDownloadThreads();
    void properties_data();
    void properties();
    void leavesTheStreamAsItWas();
    void copiesAreIndependent();
    void travelsInVariants();
};

void tst_TransferPolicy::asksForNothingAtFirst()
{
    const TransferPolicy policy;
    QVERIFY(!policy.peersVerified());
    QVERIFY(policy.caCertificates().isEmpty());
    QVERIFY(policy.pinnedKeys().isEmpty());
    QVERIFY(!policy.redirectsChecked());
    QCOMPARE(policy.maximumRedirects(), 10);
    QVERIFY(!policy.filesChecked());
    QVERIFY(!policy.failuresIsolated());
    QCOMPARE(policy.idleTimeout(), 0);
    QCOMPARE(policy.totalTimeout(), 0);
    QCOMPARE(policy.maximumRetries(), 0);
    QCOMPARE(policy.retryDelay(), 500);
    QCOMPARE(policy.maximumBodySize(), 0);
    QVERIFY(!policy.errorsExplained());
    QVERIFY(!policy.connectionsKept());
    QVERIFY(!policy.http2Allowed());
    QCOMPARE(policy.downloadThreads(), 1);
    QCOMPARE(policy, TransferPolicy());
}

void tst_TransferPolicy::strict()
{
    const TransferPolicy policy = TransferPolicy::strict();
    QVERIFY(policy.peersVerified());
    QVERIFY(policy.caCertificates().isEmpty());
    QVERIFY(policy.pinnedKeys().isEmpty());
    QVERIFY(policy.redirectsChecked());
    QCOMPARE(policy.maximumRedirects(), 10);
    QVERIFY(policy.filesChecked());
    QVERIFY(policy.failuresIsolated());
    QCOMPARE(policy.idleTimeout(), 30000);
    QCOMPARE(policy.totalTimeout(), 0);
    QCOMPARE(policy.maximumRetries(), 3);
    QCOMPARE(policy.retryDelay(), 500);
    QCOMPARE(policy.maximumBodySize(), 67108864);
    QVERIFY(policy.errorsExplained());
    QVERIFY(policy.connectionsKept());
    QVERIFY(!policy.http2Allowed());
    QCOMPARE(policy.downloadThreads(), 1);
    QVERIFY(policy != TransferPolicy());
}

// Nothing that makes a client safe is given up for speed.
void tst_TransferPolicy::fast()
{
    TransferPolicy policy = TransferPolicy::fast();
    QVERIFY(policy.http2Allowed());
    QCOMPARE(policy.downloadThreads(), 5);
    policy.setHttp2Allowed(false);
    policy.setDownloadThreads(1);
    QCOMPARE(policy, TransferPolicy::strict());
}

void tst_TransferPolicy::boundsDownloadThreads_data()
{
    QTest::addColumn<int>("set");
    QTest::addColumn<int>("taken");
    const auto row = [](int set, int taken) { QTest::addRow("%d", set) << set << taken; };
    row(std::numeric_limits<int>::min(), 1);
    row(0, 1);
    row(1, 1);
    row(5, 5);
    row(6, 5);
    row(std::numeric_limits<int>::max(), 5);
}

void tst_TransferPolicy::boundsDownloadThreads()
{
    QFETCH(const int, set);
    QFETCH(const int, taken);
    TransferPolicy policy;
    policy.setDownloadThreads(set);
    QCOMPARE(policy.downloadThreads(), taken);
}

void tst_TransferPolicy::properties_data()
{
    QTest::addColumn<Edit>("edit");
    QTest::addColumn<QString>("difference");
    const auto row = [](const char *difference, const Edit &edit) {
        QTest::newRow(difference) << edit << QString::fromLatin1(difference);
    };
    row("peersVerified true", [](TransferPolicy &policy) { policy.setPeersVerified(true); });
    row("caCertificates 1",
        [](TransferPolicy &policy) { policy.setCaCertificates({serverCertificate()}); });
    row("pinnedKeys 2", [](TransferPolicy &policy) {
        policy.setPinnedKeys({QByteArray(32, 'x'), QByteArray(32, 'y')});
    });
    row("redirectsChecked true", [](TransferPolicy &policy) { policy.setRedirectsChecked(true); });
    row("maximumRedirects 7", [](TransferPolicy &policy) { policy.setMaximumRedirects(7); });
    row("filesChecked true", [](TransferPolicy &policy) { policy.setFilesChecked(true); });
    row("failuresIsolated true", [](TransferPolicy &policy) { policy.setFailuresIsolated(true); });
    row("idleTimeout 7", [](TransferPolicy &policy) { policy.setIdleTimeout(7); });
    row("totalTimeout 7", [](TransferPolicy &policy) { policy.setTotalTimeout(7); });
    row("maximumRetries 7", [](TransferPolicy &policy) { policy.setMaximumRetries(7); });
    row("retryDelay 7", [](TransferPolicy &policy) { policy.setRetryDelay(7); });
    row("maximumBodySize 8589934592",
        [](TransferPolicy &policy) { policy.setMaximumBodySize(Q_INT64_C(8589934592)); });
    row("errorsExplained true", [](TransferPolicy &policy) { policy.setErrorsExplained(true); });
    row("connectionsKept true", [](TransferPolicy &policy) { policy.setConnectionsKept(true); });
    row("http2Allowed true", [](TransferPolicy &policy) { policy.setHttp2Allowed(true); });
    row("downloadThreads 3", [](TransferPolicy &policy) { policy.setDownloadThreads(3); });
}

void tst_TransferPolicy::properties()
{
    QFETCH(const Edit, edit);
    TransferPolicy policy;
    edit(policy);
    QVERIFY(policy != TransferPolicy());
    TransferPolicy same;
    edit(same);
    QCOMPARE(policy, same);
    QFETCH(const QString, difference);
    QCOMPARE(text(policy), writtenWith(difference));
    QCOMPARE(TarvisNet(policy).transferPolicy(), policy);
}

// The stream puts blanks between its items again, or none where it did not before.
void tst_TransferPolicy::leavesTheStreamAsItWas()
{
    QString spaced;
    QDebug(&spaced) << TransferPolicy() << 1 << 2;
    QCOMPARE(spaced.trimmed(), text(TransferPolicy()) + " 1 2");
    QString dense;
    QDebug(&dense).nospace() << TransferPolicy() << 1 << 2;
    QCOMPARE(dense, text(TransferPolicy()) + "12");
}

void tst_TransferPolicy::copiesAreIndependent()
{
    TransferPolicy first = TransferPolicy::strict();
    const TransferPolicy copy = first;
    first.setPeersVerified(false);
    QVERIFY(copy.peersVerified());
    TransferPolicy moved = std::move(first);
    QVERIFY(!moved.peersVerified());
    first = copy;
    QVERIFY(first.peersVerified());
    moved = std::move(first);
    QVERIFY(moved.peersVerified());
}

void tst_TransferPolicy::travelsInVariants()
{
    const QVariant variant = QVariant::fromValue(TransferPolicy::strict());
    QCOMPARE(variant.value<TransferPolicy>(), TransferPolicy::strict());
}

QTEST_GUILESS_MAIN(tst_TransferPolicy)

#include "tst_transferpolicy.moc"
