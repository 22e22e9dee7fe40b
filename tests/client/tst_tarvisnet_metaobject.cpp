#include "logcapture.h"

#include <tarvisnet/tarvisnet.h>

#include <QtCore/QMetaMethod>
#include <QtTest/QTest>

Q_DECLARE_METATYPE(QMetaMethod::Access)

namespace {

QStringList signatures(const QMetaObject &meta, QMetaMethod::MethodType type)
{
    QStringList found;
    for (int index = meta.methodOffset(); index < meta.methodCount(); ++index) {
        const QMetaMethod method = meta.method(index);
        if (method.methodType() == type && !(method.attributes() & QMetaMethod::Cloned))
            found.append(QString::fromLatin1(method.methodSignature()));
    }
    return found;
}

const QStringList signalsInOrder = {
    "s_serverHostChanged()",
    "s_serverPortChanged()",
    "s_userNameChanged()",
    "s_userPasswordChanged()",
    "s_urlChanged()",
    "s_installerFileNameChanged()",
    "s_installerFileSizeChanged()",
    "s_vtxIdChanged()",
    "s_vtxVersionChanged()",
    "s_vtxNameChanged()",
    "s_definitionPathChanged()",
    "s_indexPathChaged()",
    "s_installerPathChanged()",
    "s_installerChangeLogPathChanged()",
    "s_installerCheckSumPathChanged()",
    "s_errorChanged(short,QString,QJsonDocument)",
    "s_downloadFileProgress(double,QString)",
    "s_uploadFileProgress(double,QString)",
    "s_downloadFileBytesProgress(qlonglong,qlonglong,QString)",
    "s_finished(QString)",
    "s_aborted(QString)",
    "s_timeout()",
    "s_startPing(int)",
    "s_stopPing()",
    "s_fetchDefinition(QJsonDocument,QString)",
    "s_fetchIndex(QJsonDocument,QString)",
    "s_fetchInstallerChangeLogData(QByteArray,QString)",
    "s_rawGet(QJsonDocument,QString)",
    "s_rawPost(QJsonDocument,QString)",
    "s_rawPathFinished(QJsonDocument,QString)",
    "s_rawGetFileFinished(QByteArray,QString,QList<QNetworkReply::RawHeaderPair>)",
    "s_rawPostFileFinished(QByteArray,QString,QList<QNetworkReply::RawHeaderPair>)",
    "s_rawDeleteFinished(QString)",
    "s_repliesCountChanged()",
    "s_parallelRequestCountChanged()",
    "s_outputDirChanged()",
    "s_temporaryDirChange()",
    "s_pingAlwaysOnChanged()",
    "s_stopProcessChanged()",
};

} // namespace

class tst_TarvisNetMetaObject : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void answersToItsName();
    void declaresSignalsInOrder();
    void hasShortSignals_data();
    void hasShortSignals();
    void hasSlots_data();
    void hasSlots();
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
    QCOMPARE(signatures(TarvisNet::staticMetaObject, QMetaMethod::Signal), signalsInOrder);
}

void tst_TarvisNetMetaObject::hasShortSignals_data()
{
    QTest::addColumn<QByteArray>("signature");
    for (const char *signature :
         {"s_errorChanged(short)", "s_errorChanged(short,QString)", "s_startPing()"})
        QTest::newRow(signature) << QByteArray(signature);
}

void tst_TarvisNetMetaObject::hasShortSignals()
{
    QFETCH(const QByteArray, signature);
    const QMetaObject &meta = TarvisNet::staticMetaObject;
    const int index = meta.indexOfSignal(signature);
    QVERIFY(index >= 0);
    QVERIFY(meta.method(index).attributes() & QMetaMethod::Cloned);
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

QTEST_GUILESS_MAIN(tst_TarvisNetMetaObject)

#include "tst_tarvisnet_metaobject.moc"
