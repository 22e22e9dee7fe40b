#include <tarvisnet/tarvisnet.h>

#include <QtCore/QDebug>
#include <QtTest/QTest>

#include <functional>

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

} // namespace

Q_DECLARE_METATYPE(Edit)

class tst_TransferPolicy : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void asksForNothingAtFirst();
    void strict();
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
    QVERIFY(!policy.errorsExplained());
    QCOMPARE(policy, TransferPolicy());
}

void tst_TransferPolicy::strict()
{
    const TransferPolicy policy = TransferPolicy::strict();
    QVERIFY(policy.peersVerified());
    QVERIFY(policy.caCertificates().isEmpty());
    QVERIFY(policy.pinnedKeys().isEmpty());
    QVERIFY(policy.errorsExplained());
    QVERIFY(policy != TransferPolicy());
}

void tst_TransferPolicy::properties_data()
{
    QTest::addColumn<Edit>("edit");
    QTest::addColumn<QString>("written");
    QTest::newRow("peersVerified")
        << Edit([](TransferPolicy &policy) { policy.setPeersVerified(true); })
        << "TransferPolicy(peersVerified true, caCertificates 0, pinnedKeys 0, errorsExplained "
           "false)";
    QTest::newRow("caCertificates")
        << Edit([](TransferPolicy &policy) { policy.setCaCertificates({serverCertificate()}); })
        << "TransferPolicy(peersVerified false, caCertificates 1, pinnedKeys 0, errorsExplained "
           "false)";
    QTest::newRow("pinnedKeys") << Edit([](TransferPolicy &policy) {
        policy.setPinnedKeys({QByteArray(32, 'x'), QByteArray(32, 'y')});
    })
                                << "TransferPolicy(peersVerified false, caCertificates 0, "
                                   "pinnedKeys 2, errorsExplained false)";
    QTest::newRow("errorsExplained")
        << Edit([](TransferPolicy &policy) { policy.setErrorsExplained(true); })
        << "TransferPolicy(peersVerified false, caCertificates 0, pinnedKeys 0, "
           "errorsExplained true)";
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
    QTEST(text(policy), "written");
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
