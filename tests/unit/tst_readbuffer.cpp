#include "fakereply.h"
#include "readbuffer_p.h"
#include "testclass.h"

#include <QtTest/QTest>

namespace tst_readbuffer {

namespace {

const qint64 KiB = 1024;
const qint64 MiB = 1024 * KiB;

} // namespace

class tst_ReadBuffer : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void limitReadBuffer_data();
    void limitReadBuffer();
    void releaseUnreadBytes_data();
    void releaseUnreadBytes();
};

void tst_ReadBuffer::limitReadBuffer_data()
{
    QTest::addColumn<QUrl>("url");
    QTest::addColumn<quint64>("size");
    QTest::addColumn<qint64>("limit");
    const auto rows = [](const char *scheme, qint64 limit) {
        const QUrl url(QString("%1://127.0.0.1/a").arg(scheme));
        QTest::addRow("%s, unknown", scheme) << url << quint64(0) << qint64(0);
        QTest::addRow("%s, small", scheme) << url << quint64(1000) << qint64(0);
        QTest::addRow("%s, 256 MiB", scheme) << url << quint64(256 * MiB) << limit;
        QTest::addRow("%s, largest", scheme) << url << ~quint64(0) << limit;
    };
    // Found by measurement; another limit is to be measured first.
    rows("http", 4 * MiB);
    rows("https", 64 * KiB);
}

void tst_ReadBuffer::limitReadBuffer()
{
    QFETCH(QUrl, url);
    QFETCH(quint64, size);
    QFETCH(qint64, limit);
    FakeReply reply(url);
    readbuffer::limit(&reply, size);
    QCOMPARE(reply.readBufferSize(), limit);
}

void tst_ReadBuffer::releaseUnreadBytes_data()
{
    QTest::addColumn<qint64>("limit");
    QTest::addColumn<int>("unread");
    QTest::addColumn<qint64>("limitAfterwards");
    QTest::newRow("unread bytes lift it") << qint64(65536) << 1 << qint64(0);
    QTest::newRow("the smallest limit") << qint64(1) << 1 << qint64(0);
    QTest::newRow("no unread bytes") << qint64(65536) << 0 << qint64(65536);
    QTest::newRow("no limit") << qint64(0) << 10 << qint64(0);
}

void tst_ReadBuffer::releaseUnreadBytes()
{
    QFETCH(qint64, limit);
    QFETCH(int, unread);
    QFETCH(qint64, limitAfterwards);
    FakeReply reply;
    reply.setReadBufferSize(limit);
    reply.appendBody(QByteArray(unread, 'x'));
    readbuffer::releaseUnread(&reply);
    QCOMPARE(reply.readBufferSize(), limitAfterwards);
    QCOMPARE(reply.bytesAvailable(), qint64(unread));
}

const TestClass<tst_ReadBuffer> testClass("tst_readbuffer");

} // namespace tst_readbuffer

#include "tst_readbuffer.moc"
