#include "metaobject.h"
#include "testclass.h"

#include <tarvisnet/networkprocessor.h>

#include <QtTest/QTest>

namespace tst_networkprocessor_metaobject {

class tst_NetworkProcessorMetaObject : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void declaresThisAndNothingElse();
    void canBeCalledWithoutTheUrl();
};

void tst_NetworkProcessorMetaObject::declaresThisAndNothingElse()
{
    QCOMPARE(
        metaobject::described(NetworkProcessor::staticMetaObject),
        QStringList({
            "NetworkProcessor : QObject",
            "signal s_errorChanged(short,QString) _errCode _url",
            "cloned signal s_errorChanged(short) _errCode",
            "signal s_downloadFileProgress(double,QString) percentage _url",
            "cloned signal s_downloadFileProgress(double) percentage",
            "signal s_uploadFileProgress(double,QString) percentage _url",
            "cloned signal s_uploadFileProgress(double) percentage",
            "signal s_downloadFileBytesProgress(qlonglong,qlonglong,QString) _send _total _url",
            "cloned signal s_downloadFileBytesProgress(qlonglong,qlonglong) _send _total",
            "signal s_finished(QString) _url",
            "signal s_aborted(QString) _url",
            "signal s_fetchDefinition(QJsonDocument,QString) _definition _url",
            "signal s_fetchIndex(QJsonDocument,QString) _index _url",
            "signal s_fetchInstallerChangeLog(QString,QString) _text _url",
            "signal s_fetchInstallerChangeLogData(QByteArray,QString) _data _url",
            "signal s_rawGet(QJsonDocument,QString) _data _url",
            "signal s_rawPost(QJsonDocument,QString) _data _url",
            "signal s_rawGetFileFinished(QString) _url",
            "slot startGet(ReplyData) _data",
            "slot startPost(ReplyData,QByteArray) _data _ba",
            "private slot createReplyConnections(QNetworkReply*) reply",
            "private slot QNetworkReply* post(QNetworkRequest,QByteArray) request data",
            "private slot QNetworkReply* get(QNetworkRequest) request",
            "private slot replyFinished()",
            "private slot replyReadyRead()",
            "private slot replyError(QNetworkReply::NetworkError) code",
            "private slot replySslErrors(QList<QSslError>) listErr",
            "private slot replyDownloadProgress(qlonglong,qlonglong) _received _total",
            "private slot replyUploadProgress(qlonglong,qlonglong) _sent _total",
            "private slot saveBinary(QNetworkReply*) _reply",
            "private slot debugHeader(QNetworkReply*) _reply",
            "private slot bool redirectReply(QNetworkReply*) _reply",
            "private slot handleReply(QNetworkReply*) _reply",
        }));
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

const TestClass<tst_NetworkProcessorMetaObject> testClass("tst_networkprocessor_metaobject");

} // namespace tst_networkprocessor_metaobject

#include "tst_networkprocessor_metaobject.moc"
