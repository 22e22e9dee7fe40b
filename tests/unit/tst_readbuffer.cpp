#include "fakereply.h"
#include "readbuffer_p.h"

#include <QtTest/QTest>

namespace {

const qint64 MiB = 1024 * 1024;

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
    QTest::addColumn<bool>("isLimited");
    for (const char *text : {"http://127.0.0.1/a", "https://127.0.0.1/a"}) {
        const QUrl url(text);
        const QByteArray scheme = url.scheme().toLatin1();
        QTest::addRow("%s, unknown", scheme.constData()) << url << quint64(0) << false;
        QTest::addRow("%s, small", scheme.constData()) << url << quint64(1000) << false;
        QTest::addRow("%s, 256 MiB", scheme.constData()) << url << quint64(256 * MiB) << true;
        QTest::addRow("%s, largest", scheme.constData()) << url << ~quint64(0) << true;
    }
}

void tst_ReadBuffer::limitReadBuffer()
{
    QFETCH(QUrl, url);
    QFETCH(quint64, size);
    QFETCH(bool, isLimited);
    FakeReply reply(url);
    readbuffer::limit(&reply, size);
    QCOMPARE(reply.readBufferSize() > 0, isLimited);
    QVERIFY(reply.readBufferSize() <= 8 * MiB);
}

void tst_ReadBuffer::releaseUnreadBytes_data()
{
    QTest::addColumn<qint64>("limit");
    QTest::addColumn<int>("unread");
    QTest::addColumn<qint64>("limitAfterwards");
    QTest::newRow("unread bytes lift it") << qint64(65536) << 1 << qint64(0);
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

QTEST_GUILESS_MAIN(tst_ReadBuffer)

#include "tst_readbuffer.moc"
