#include "records.h"
#include "testclass.h"
#include "traditionalrules_p.h"

#include <QtCore/QMetaEnum>
#include <QtNetwork/QSslConfiguration>
#include <QtTest/QTest>

Q_DECLARE_METATYPE(AddressForm)
Q_DECLARE_METATYPE(Arrival)

namespace tst_traditionalrules {

using NetworkError = QNetworkReply::NetworkError;

class tst_TraditionalRules : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void redirectRequest_data();
    void redirectRequest();
    void errorRule_data();
    void errorRule();
    void arrival_data();
    void arrival();
    void preparesFileRequests_data();
    void preparesFileRequests();
    void sizeIsSigned_data();
    void sizeIsSigned();
    void putsBinariesInPlace();
    void missingCertificateIsAFault();
};

void tst_TraditionalRules::redirectRequest_data()
{
    QTest::addColumn<QUrl>("target");
    QTest::newRow("absolute") << QUrl("https://127.0.0.1/b?c");
    QTest::newRow("relative") << QUrl("b/c");
    QTest::newRow("empty") << QUrl();
}

void tst_TraditionalRules::redirectRequest()
{
    QFETCH(QUrl, target);
    QSslConfiguration configuration;
    configuration.setPeerVerifyDepth(7);
    const QNetworkRequest request = TraditionalRules().redirectRequest(target, configuration);
    QCOMPARE(request.url(), target);
    QCOMPARE(request.rawHeaderList(), QList<QByteArray>{"Content-Type"});
    QCOMPARE(request.rawHeader("Content-Type"), QByteArray("application/x-www-form-urlencoded"));
    QCOMPARE(request.sslConfiguration(), configuration);
}

void tst_TraditionalRules::errorRule_data()
{
    QTest::addColumn<NetworkError>("error");
    QTest::addColumn<int>("clientCode");
    QTest::addColumn<int>("processorCode");
    QTest::addColumn<bool>("aborts");
    const QMap<int, std::tuple<int, int, bool>> special = {
        {5, {0, 0, false}},        {6, {-222, -203, true}},    {99, {-216, -216, true}},
        {203, {-217, -217, true}}, {204, {-213, -203, false}}, {302, {-220, -203, false}},
    };
    const QMetaEnum errors = QMetaEnum::fromType<NetworkError>();
    for (int i = 0; i < errors.keyCount(); ++i) {
        const int error = errors.value(i);
        const auto [client, processor, aborts] = special.value(error, {-203, -203, true});
        QTest::newRow(errors.key(i)) << NetworkError(error) << client << processor << aborts;
    }
}

void tst_TraditionalRules::errorRule()
{
    QFETCH(NetworkError, error);
    QFETCH(int, clientCode);
    QFETCH(int, processorCode);
    QFETCH(bool, aborts);
    const ErrorRule rule = TraditionalRules().errorRule(error);
    QCOMPARE(rule.error, error);
    QCOMPARE(int(rule.clientCode), clientCode);
    QCOMPARE(int(rule.processorCode), processorCode);
    QCOMPARE(rule.abortsFirstRunning, aborts);
}

void tst_TraditionalRules::arrival_data()
{
    QTest::addColumn<QString>("replyType");
    QTest::addColumn<int>("status");
    QTest::addColumn<Arrival>("becomes");
    for (const int status : {0, 199, 200, 299, 300, 404, 500})
        QTest::addRow("rawGet, %d", status) << "rawGet" << status << Arrival::Kept;
    for (const char *kind : {"remoteBinary", "remoteInstaller"}) {
        for (const int status : {0, 199, 300, 404, 500})
            QTest::addRow("%s, %d", kind, status) << kind << status << Arrival::Unread;
        for (const int status : {200, 206, 299})
            QTest::addRow("%s, %d", kind, status) << kind << status << Arrival::Saved;
    }
    QTest::newRow("redirectReply, 200") << "redirectReply" << 200 << Arrival::Kept;
}

void tst_TraditionalRules::arrival()
{
    QFETCH(QString, replyType);
    QFETCH(int, status);
    QFETCH(Arrival, becomes);
    QCOMPARE(TraditionalRules().arrival(replyType, status), becomes);
}

void tst_TraditionalRules::preparesFileRequests_data()
{
    QTest::addColumn<QString>("replyType");
    QTest::addColumn<AddressForm>("form");
    QTest::addColumn<bool>("isPipelined");
    QTest::newRow("binary by path") << "remoteBinary" << AddressForm::Path << true;
    QTest::newRow("binary by URL") << "remoteBinary" << AddressForm::Url << false;
    QTest::newRow("installer by path") << "remoteInstaller" << AddressForm::Path << false;
    QTest::newRow("installer by URL") << "remoteInstaller" << AddressForm::Url << false;
}

void tst_TraditionalRules::preparesFileRequests()
{
    QFETCH(QString, replyType);
    QFETCH(AddressForm, form);
    QFETCH(bool, isPipelined);
    QNetworkRequest request;
    TraditionalRules().prepareFileRequest(request, replyType, form, "agent");
    QCOMPARE(request.rawHeaderList(), QList<QByteArray>({"User-Agent", "Connection"}));
    QCOMPARE(request.rawHeader("User-Agent"), QByteArray("agent"));
    QCOMPARE(request.rawHeader("Connection"), QByteArray("close"));
    QCOMPARE(request.attribute(QNetworkRequest::HttpPipeliningAllowedAttribute).toBool(),
             isPipelined);
}

void tst_TraditionalRules::sizeIsSigned_data()
{
    QTest::addColumn<quint64>("size");
    QTest::addColumn<quint64>("appended");
    constexpr quint64 greatest = ~quint64(0) >> 1;
    QTest::newRow("unknown") << quint64(0) << quint64(0);
    QTest::newRow("greatest") << greatest << greatest;
    QTest::newRow("beyond") << greatest + 1 << quint64(0);
    QTest::newRow("largest") << ~quint64(0) << quint64(0);
}

void tst_TraditionalRules::sizeIsSigned()
{
    QFETCH(quint64, size);
    FileData file;
    file.size = size;
    QTEST(TraditionalRules().sizeToAppendTo(file), "appended");
}

void tst_TraditionalRules::putsBinariesInPlace()
{
    QVERIFY(TraditionalRules().putsInPlace("remoteBinary"));
    QVERIFY(!TraditionalRules().putsInPlace("remoteInstaller"));
}

void tst_TraditionalRules::missingCertificateIsAFault()
{
    QCOMPARE(TraditionalRules().faultOfPeer(QSslCertificate()), "Null cert");
}

const TestClass<tst_TraditionalRules> testClass("tst_traditionalrules");

} // namespace tst_traditionalrules

#include "tst_traditionalrules.moc"
