#include <tarvisnet/networkprocessor.h>

#include <QtCore/QMetaMethod>
#include <QtTest/QTest>

#include <iterator>

class tst_NetworkProcessorMetaObject : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void methods_data();
    void methods();
    void hasNothingElse();
    void canBeCalledWithoutTheUrl();
};

namespace {

enum class Kind { Signal, ClonedSignal, PublicSlot, PrivateSlot };

struct Method {
    Kind kind;
    const char *returnType;
    const char *signature;
    const char *names;
};

// The order is part of the interface: applications may connect by index.
constexpr Method expectedMethods[] = {
    {Kind::Signal, "void", "s_errorChanged(short,QString)", "_errCode _url"},
    {Kind::ClonedSignal, "void", "s_errorChanged(short)", "_errCode"},
    {Kind::Signal, "void", "s_downloadFileProgress(double,QString)", "percentage _url"},
    {Kind::ClonedSignal, "void", "s_downloadFileProgress(double)", "percentage"},
    {Kind::Signal, "void", "s_uploadFileProgress(double,QString)", "percentage _url"},
    {Kind::ClonedSignal, "void", "s_uploadFileProgress(double)", "percentage"},
    {Kind::Signal, "void", "s_downloadFileBytesProgress(qlonglong,qlonglong,QString)",
     "_send _total _url"},
    {Kind::ClonedSignal, "void", "s_downloadFileBytesProgress(qlonglong,qlonglong)",
     "_send _total"},
    {Kind::Signal, "void", "s_finished(QString)", "_url"},
    {Kind::Signal, "void", "s_aborted(QString)", "_url"},
    {Kind::Signal, "void", "s_fetchDefinition(QJsonDocument,QString)", "_definition _url"},
    {Kind::Signal, "void", "s_fetchIndex(QJsonDocument,QString)", "_index _url"},
    {Kind::Signal, "void", "s_fetchInstallerChangeLog(QString,QString)", "_text _url"},
    {Kind::Signal, "void", "s_fetchInstallerChangeLogData(QByteArray,QString)", "_data _url"},
    {Kind::Signal, "void", "s_rawGet(QJsonDocument,QString)", "_data _url"},
    {Kind::Signal, "void", "s_rawPost(QJsonDocument,QString)", "_data _url"},
    {Kind::Signal, "void", "s_rawGetFileFinished(QString)", "_url"},
    {Kind::PublicSlot, "void", "startGet(ReplyData)", "_data"},
    {Kind::PublicSlot, "void", "startPost(ReplyData,QByteArray)", "_data _ba"},
    {Kind::PrivateSlot, "void", "createReplyConnections(QNetworkReply*)", "reply"},
    {Kind::PrivateSlot, "QNetworkReply*", "post(QNetworkRequest,QByteArray)", "request data"},
    {Kind::PrivateSlot, "QNetworkReply*", "get(QNetworkRequest)", "request"},
    {Kind::PrivateSlot, "void", "replyFinished()", ""},
    {Kind::PrivateSlot, "void", "replyReadyRead()", ""},
    {Kind::PrivateSlot, "void", "replyError(QNetworkReply::NetworkError)", "code"},
    {Kind::PrivateSlot, "void", "replySslErrors(QList<QSslError>)", "listErr"},
    {Kind::PrivateSlot, "void", "replyDownloadProgress(qlonglong,qlonglong)", "_received _total"},
    {Kind::PrivateSlot, "void", "replyUploadProgress(qlonglong,qlonglong)", "_sent _total"},
    {Kind::PrivateSlot, "void", "saveBinary(QNetworkReply*)", "_reply"},
    {Kind::PrivateSlot, "void", "debugHeader(QNetworkReply*)", "_reply"},
    {Kind::PrivateSlot, "bool", "redirectReply(QNetworkReply*)", "_reply"},
    {Kind::PrivateSlot, "void", "handleReply(QNetworkReply*)", "_reply"},
};

Kind kindOf(const QMetaMethod &method)
{
    if (method.methodType() == QMetaMethod::Signal)
        return method.attributes() & QMetaMethod::Cloned ? Kind::ClonedSignal : Kind::Signal;
    return method.access() == QMetaMethod::Private ? Kind::PrivateSlot : Kind::PublicSlot;
}

const QMetaObject &meta = NetworkProcessor::staticMetaObject;

} // namespace

void tst_NetworkProcessorMetaObject::methods_data()
{
    QTest::addColumn<int>("position");

    int position = 0;
    for (const Method &method : expectedMethods)
        QTest::newRow(method.signature) << position++;
}

void tst_NetworkProcessorMetaObject::methods()
{
    QFETCH(int, position);
    const Method &expected = expectedMethods[position];
    const QMetaMethod method = meta.method(meta.methodOffset() + position);

    QCOMPARE(method.methodSignature(), QByteArray(expected.signature));
    QCOMPARE(method.typeName(), expected.returnType);
    QCOMPARE(kindOf(method), expected.kind);
    QVERIFY(method.methodType() == QMetaMethod::Signal || method.methodType() == QMetaMethod::Slot);
    QCOMPARE(method.parameterNames().join(' '), QByteArray(expected.names));
}

void tst_NetworkProcessorMetaObject::hasNothingElse()
{
    QCOMPARE(meta.className(), "NetworkProcessor");
    QCOMPARE(meta.superClass(), &QObject::staticMetaObject);
    QCOMPARE(meta.methodCount() - meta.methodOffset(), int(std::size(expectedMethods)));
    QCOMPARE(meta.propertyCount(), meta.propertyOffset());
    QCOMPARE(meta.enumeratorCount(), meta.enumeratorOffset());
    QCOMPARE(meta.constructorCount(), 0);
}

void tst_NetworkProcessorMetaObject::canBeCalledWithoutTheUrl()
{
    NetworkProcessor processor;
    QStringList urls;
    const auto keep = [&urls](const QString &url) { urls.append(url); };
    const auto keepLast = [keep](auto, const QString &url) { keep(url); };
    connect(&processor, &NetworkProcessor::s_errorChanged, this, keepLast);
    connect(&processor, &NetworkProcessor::s_downloadFileProgress, this, keepLast);
    connect(&processor, &NetworkProcessor::s_uploadFileProgress, this, keepLast);
    connect(&processor, &NetworkProcessor::s_downloadFileBytesProgress, this,
            [keep](qlonglong, qlonglong, const QString &url) { keep(url); });

    Q_EMIT processor.s_errorChanged(-203);
    Q_EMIT processor.s_downloadFileProgress(1.0);
    Q_EMIT processor.s_uploadFileProgress(1.0);
    Q_EMIT processor.s_downloadFileBytesProgress(1, 2);

    QCOMPARE(urls, (QStringList{QString(), QString(), QString(), QString()}));
}

QTEST_GUILESS_MAIN(tst_NetworkProcessorMetaObject)
#include "tst_networkprocessor_metaobject.moc"
