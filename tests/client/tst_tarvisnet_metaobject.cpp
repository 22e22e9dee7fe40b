#include "logcapture.h"
#include "metaobject.h"
#include "testclass.h"

#include <tarvisnet/tarvisnet.h>

#include <QtCore/QRegularExpression>
#include <QtTest/QTest>

Q_DECLARE_METATYPE(QMetaMethod::Access)

namespace tst_tarvisnet_metaobject {

namespace {

const QStringList signalsInOrder = {
    "signal s_serverHostChanged()",
    "signal s_serverPortChanged()",
    "signal s_userNameChanged()",
    "signal s_userPasswordChanged()",
    "signal s_urlChanged()",
    "signal s_installerFileNameChanged()",
    "signal s_installerFileSizeChanged()",
    "signal s_vtxIdChanged()",
    "signal s_vtxVersionChanged()",
    "signal s_vtxNameChanged()",
    "signal s_definitionPathChanged()",
    "signal s_indexPathChaged()",
    "signal s_installerPathChanged()",
    "signal s_installerChangeLogPathChanged()",
    "signal s_installerCheckSumPathChanged()",
    "signal s_errorChanged(short,QString,QJsonDocument) _errCode _url _data",
    "cloned signal s_errorChanged(short,QString) _errCode _url",
    "cloned signal s_errorChanged(short) _errCode",
    "signal s_downloadFileProgress(double,QString) percentage _url",
    "cloned signal s_downloadFileProgress(double) percentage",
    "signal s_uploadFileProgress(double,QString) percentage _url",
    "cloned signal s_uploadFileProgress(double) percentage",
    "signal s_downloadFileBytesProgress(qlonglong,qlonglong,QString) _send _total _url",
    "cloned signal s_downloadFileBytesProgress(qlonglong,qlonglong) _send _total",
    "signal s_finished(QString) _url",
    "signal s_aborted(QString) _url",
    "signal s_timeout()",
    "signal s_startPing(int) _count",
    "cloned signal s_startPing()",
    "signal s_stopPing()",
    "signal s_fetchDefinition(QJsonDocument,QString) _definition _url",
    "signal s_fetchIndex(QJsonDocument,QString) _index _url",
    "signal s_fetchInstallerChangeLogData(QByteArray,QString) _data _url",
    "signal s_rawGet(QJsonDocument,QString) _data _url",
    "signal s_rawPost(QJsonDocument,QString) _data _url",
    "signal s_rawPathFinished(QJsonDocument,QString) _data _url",
    "signal s_rawGetFileFinished(QByteArray,QString,QList<QNetworkReply::RawHeaderPair>) _data "
    "_url _headerPairs",
    "signal s_rawPostFileFinished(QByteArray,QString,QList<QNetworkReply::RawHeaderPair>) _data "
    "_url _headerPairs",
    "signal s_rawDeleteFinished(QString) _url",
    "signal s_repliesCountChanged()",
    "signal s_parallelRequestCountChanged()",
    "signal s_outputDirChanged()",
    "signal s_temporaryDirChange()",
    "signal s_pingAlwaysOnChanged()",
    "signal s_stopProcessChanged()",
};

} // namespace

/// What applications find that connect by text or by index.
class tst_TarvisNetMetaObject : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void answersToItsName();
    void declaresSignalsInOrder();
    void hasSlots_data();
    void hasSlots();
    void registersTypes_data();
    void registersTypes();
};

void tst_TarvisNetMetaObject::answersToItsName()
{
    const LogCapture log;
    TarvisNet client;
    QCOMPARE(client.metaObject()->className(), "TarvisNet");
    QCOMPARE(client.qt_metacast("TarvisNet"), static_cast<void *>(&client));
    QCOMPARE(client.qt_metacast("RemotePing"), static_cast<void *>(nullptr));
}

void tst_TarvisNetMetaObject::declaresSignalsInOrder()
{
    const QStringList lines = metaobject::described(TarvisNet::staticMetaObject);
    QCOMPARE(lines.filter(QRegularExpression("^(cloned )?signal ")), signalsInOrder);
}

void tst_TarvisNetMetaObject::hasSlots_data()
{
    QTest::addColumn<QByteArray>("signature");
    QTest::addColumn<QMetaMethod::Access>("access");
    const auto rows = [](QMetaMethod::Access access, const QByteArrayList &signatures) {
        for (const QByteArray &signature : signatures)
            QTest::newRow(signature) << signature << access;
    };
    rows(QMetaMethod::Public,
         {"generateVtxId()",
          "abortDownload()",
          "abortDownload(QString)",
          "abortDownload(QStringList)",
          "rawGet(QUrl)",
          "rawGet(QUrl,HeadersMap)",
          "rawGet(QUrl,HeadersMap,RawHeadersMap)",
          "rawGet(QString)",
          "rawPost(QUrl,QByteArray)",
          "rawPost(QUrl,QByteArray,HeadersMap)",
          "rawPost(QUrl,QByteArray,HeadersMap,RawHeadersMap)",
          "rawPost(QString,QString)",
          "rawPath(QUrl,QByteArray)",
          "rawPath(QUrl,QByteArray,HeadersMap)",
          "rawPath(QUrl,QByteArray,HeadersMap,RawHeadersMap)",
          "rawDelete(QUrl,QByteArray)",
          "rawGetFile(QUrl)",
          "rawGetFile(QUrl,QString)",
          "rawGetFile(QString)",
          "rawGetFile(QString,QString)",
          "rawPostFile(QUrl)",
          "rawPostFile(QUrl,QString)",
          "rawPostFile(QUrl,QString,QByteArray)",
          "rawPostFile(QString)",
          "rawPostFile(QString,QString)",
          "rawPostFile(QString,QString,QByteArray)",
          "forceRawGet(QUrl)",
          "forceRawGet(QString)"});
    rows(QMetaMethod::Private,
         {"addRequest(ReplyData)", "forceAddRequest(ReplyData)", "processReplies()",
          "removeReply(QNetworkReply*)", "killReply(QNetworkReply*)", "clearReplies()",
          "pingTimeout()", "changeFileName()"});
}

void tst_TarvisNetMetaObject::hasSlots()
{
    QFETCH(const QByteArray, signature);
    const QMetaObject &meta = TarvisNet::staticMetaObject;
    const QMetaMethod slot = meta.method(meta.indexOfSlot(signature));
    QCOMPARE(slot.methodSignature(), signature);
    QTEST(slot.access(), "access");
}

void tst_TarvisNetMetaObject::registersTypes_data()
{
    QTest::addColumn<QByteArray>("type");
    for (const char *type :
         {"TarvisNet::ContentType", "ReplyData", "FileData", "HeadersMap", "RawHeadersMap",
          "QNetworkReply::NetworkError", "QList<QSslError>", "QList<QNetworkReply::RawHeaderPair>"})
        QTest::newRow(type) << QByteArray(type);
}

// Known by name, as queued connections made by text need them.
void tst_TarvisNetMetaObject::registersTypes()
{
    QFETCH(const QByteArray, type);
    const LogCapture log;
    const TarvisNet client;
    QVERIFY(QMetaType::type(type) != QMetaType::UnknownType);
}

const TestClass<tst_TarvisNetMetaObject> testClass("tst_tarvisnet_metaobject");

} // namespace tst_tarvisnet_metaobject

#include "tst_tarvisnet_metaobject.moc"
