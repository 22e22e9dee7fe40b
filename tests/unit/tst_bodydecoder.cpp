#include "bodydecoder_p.h"
#include "httpresponse.h"
#include "testclass.h"

#include <QtTest/QTest>

#include <zlib.h>

namespace tst_bodydecoder {

namespace {

using State = BodyDecoder::State;

constexpr int gzipForm = MAX_WBITS + 16;
constexpr int zlibForm = MAX_WBITS;
constexpr int rawForm = -MAX_WBITS;

constexpr int manyTimes = 1000;
constexpr int MiB = 1024 * 1024;

QByteArray packed(QByteArray bytes, int form)
{
    z_stream stream = {};
    if (deflateInit2(&stream, 9, Z_DEFLATED, form, 8, Z_DEFAULT_STRATEGY) != Z_OK)
        qFatal("cannot compress");
    QByteArray result(int(deflateBound(&stream, uLong(bytes.size()))) + 64, '\0');
    stream.next_in = reinterpret_cast<Bytef *>(bytes.data());
    stream.avail_in = uInt(bytes.size());
    stream.next_out = reinterpret_cast<Bytef *>(result.data());
    stream.avail_out = uInt(result.size());
    deflate(&stream, Z_FINISH);
    result.truncate(int(stream.total_out));
    deflateEnd(&stream);
    return result;
}

/// A decoder with the body that it makes.
struct Bench {
    explicit Bench(const QByteArray &coding, qint64 maximum = MiB)
        : decoder(coding, maximum)
    {
    }

    State take(const QByteArray &bytes)
    {
        decoder.take(bytes, body);
        return decoder.state();
    }

    BodyDecoder decoder;
    QByteArray body;
};

const QByteArray text = "{\"asked\":[1,2,3],\"asked again\":[1,2,3,4]}";

} // namespace

} // namespace tst_bodydecoder

Q_DECLARE_METATYPE(tst_bodydecoder::State)

namespace tst_bodydecoder {

class tst_BodyDecoder : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void knowsCodings_data();
    void knowsCodings();
    void decodes_data();
    void decodes();
    void stopsAtTheMaximum_data();
    void stopsAtTheMaximum();
    void countsWhatIsThere();
    void ignoresWhatFollowsAFailure();
    void tellsFaults_data();
    void tellsFaults();
    void missesTheEnd_data();
    void missesTheEnd();
    void isCompleteWithoutABody_data();
    void isCompleteWithoutABody();
    void unpacksLittleOfABomb();
};

void tst_BodyDecoder::knowsCodings_data()
{
    QTest::addColumn<bool>("isKnown");
    for (const char *name : {"gzip", "GZip", "x-gzip", "deflate", "DEFLATE"})
        QTest::newRow(name) << true;
    for (const char *name : {"", "identity", "br", "zstd", "compress", "gzip2", "gzip, gzip"})
        QTest::newRow(name) << false;
}

void tst_BodyDecoder::knowsCodings()
{
    QFETCH(const bool, isKnown);
    QCOMPARE(BodyDecoder::decodes(QTest::currentDataTag()), isKnown);
}

void tst_BodyDecoder::decodes_data()
{
    QTest::addColumn<QByteArray>("coding");
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QByteArray>("body");
    const auto row = [](const char *name, const char *coding, const QByteArray &bytes,
                        const QByteArray &body = text) {
        QTest::newRow(name) << QByteArray(coding) << bytes << body;
    };
    const QByteArray gzip = packed(text, gzipForm);
    const QByteArray large = HttpResponse::generated(0, 3000) + QByteArray(40000, 'x');
    row("none", "", text);
    row("identity", "identity", text);
    row("unknown", "br", gzip, gzip);
    row("gzip", "gzip", gzip);
    row("gzip, in capitals", "GZIP", gzip);
    row("x-gzip", "x-gzip", gzip);
    row("gzip, larger than a step", "gzip", packed(large, gzipForm), large);
    row("gzip of nothing", "gzip", packed("", gzipForm), "");
    row("gzip that is zlib", "gzip", packed(text, zlibForm));
    row("deflate", "deflate", packed(text, zlibForm));
    row("deflate without a header", "deflate", packed(text, rawForm));
    row("deflate without a header, larger than a step", "deflate", packed(large, rawForm), large);
    row("deflate that is gzip", "deflate", gzip);
    row("two files of gzip", "gzip", gzip + packed("more", gzipForm), text + "more");
    row("an empty one between", "gzip", gzip + packed("", gzipForm) + gzip, text + text);
    row("filled up with zeros", "gzip", gzip + QByteArray(9, '\0'));
    row("zeros, then what could be more", "gzip", gzip + '\0' + gzip);
    row("followed by something else", "deflate", packed(text, zlibForm) + "more");
}

void tst_BodyDecoder::decodes()
{
    QFETCH(const QByteArray, coding);
    QFETCH(const QByteArray, bytes);
    QFETCH(const QByteArray, body);
    for (int split = 0; split <= bytes.size(); ++split) {
        Bench bench(coding);
        QCOMPARE(bench.take(bytes.left(split)), State::Good);
        QCOMPARE(bench.take(bytes.mid(split)), State::Good);
        QCOMPARE(bench.body, body);
        QVERIFY(bench.decoder.isComplete());
    }
    Bench bench(coding);
    for (const char byte : bytes)
        bench.take(QByteArray(1, byte));
    QCOMPARE(bench.body, body);
    QVERIFY(bench.decoder.isComplete());
}

void tst_BodyDecoder::stopsAtTheMaximum_data()
{
    QTest::addColumn<QByteArray>("coding");
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<int>("size");
    for (const int size : {1, 100, 16384, 16385, 100000}) {
        const QByteArray body(size, 'x');
        QTest::addRow("plain, %d", size) << QByteArray() << body << size;
        QTest::addRow("gzip, %d", size) << QByteArray("gzip") << packed(body, gzipForm) << size;
        QTest::addRow("deflate, %d", size)
            << QByteArray("deflate") << packed(body, rawForm) << size;
    }
}

void tst_BodyDecoder::stopsAtTheMaximum()
{
    QFETCH(const QByteArray, coding);
    QFETCH(const QByteArray, bytes);
    QFETCH(const int, size);
    Bench exact(coding, size);
    QCOMPARE(exact.take(bytes), State::Good);
    QCOMPARE(exact.body, QByteArray(size, 'x'));
    Bench less(coding, size - 1);
    QCOMPARE(less.take(bytes), State::TooLong);
    QVERIFY(less.body.size() < size);
}

void tst_BodyDecoder::countsWhatIsThere()
{
    Bench bench("gzip", 10);
    bench.body = "begun";
    QCOMPARE(bench.take(packed("12345", gzipForm)), State::Good);
    QCOMPARE(bench.body, QByteArray("begun12345"));
    QCOMPARE(bench.take(packed("6", gzipForm)), State::TooLong);
    QCOMPARE(bench.body, QByteArray("begun12345"));
}

void tst_BodyDecoder::ignoresWhatFollowsAFailure()
{
    Bench plain("", 4);
    QCOMPARE(plain.take("12345"), State::TooLong);
    QCOMPARE(plain.take("1"), State::TooLong);
    QCOMPARE(plain.body, QByteArray());
    Bench faulty("gzip");
    QCOMPARE(faulty.take("text"), State::Faulty);
    QCOMPARE(faulty.take(packed(text, gzipForm)), State::Faulty);
    QCOMPARE(faulty.body, QByteArray());
}

void tst_BodyDecoder::tellsFaults_data()
{
    QTest::addColumn<QByteArray>("coding");
    QTest::addColumn<QByteArray>("bytes");
    const auto row = [](const char *name, const char *coding, const QByteArray &bytes) {
        QTest::newRow(name) << QByteArray(coding) << bytes;
    };
    QByteArray wrongSum = packed(text, gzipForm);
    wrongSum[wrongSum.size() - 8] = char(wrongSum.at(wrongSum.size() - 8) ^ 1);
    QByteArray wrongContent = packed(text, gzipForm);
    wrongContent[12] = char(wrongContent.at(12) ^ 0x55);
    const QByteArray dictionary = QByteArray::fromHex("78bb0000000100");
    row("gzip, text", "gzip", "not packed");
    row("gzip, zeros", "gzip", QByteArray(100, '\0'));
    row("gzip, without a header", "gzip", packed(text, rawForm));
    row("gzip, another checksum", "gzip", wrongSum);
    row("gzip, another content", "gzip", wrongContent);
    row("gzip, more that is none", "gzip", packed(text, gzipForm) + "\x1fnot packed");
    row("deflate, bits that mean nothing", "deflate", QByteArray(100, '\xff'));
    row("deflate, with a dictionary", "deflate", dictionary);
}

void tst_BodyDecoder::tellsFaults()
{
    QFETCH(const QByteArray, coding);
    QFETCH(const QByteArray, bytes);
    Bench bench(coding);
    QCOMPARE(bench.take(bytes), State::Faulty);
}

void tst_BodyDecoder::missesTheEnd_data()
{
    QTest::addColumn<QByteArray>("coding");
    QTest::addColumn<QByteArray>("bytes");
    QTest::newRow("gzip") << QByteArray("gzip") << packed(text, gzipForm);
    QTest::newRow("deflate") << QByteArray("deflate") << packed(text, zlibForm);
    QTest::newRow("deflate without a header") << QByteArray("deflate") << packed(text, rawForm);
}

void tst_BodyDecoder::missesTheEnd()
{
    QFETCH(const QByteArray, coding);
    QFETCH(const QByteArray, bytes);
    for (int size = 1; size < bytes.size(); ++size) {
        Bench bench(coding);
        QCOMPARE(bench.take(bytes.left(size)), State::Good);
        QVERIFY(!bench.decoder.isComplete());
        QVERIFY(text.startsWith(bench.body));
    }
}

void tst_BodyDecoder::isCompleteWithoutABody_data()
{
    QTest::addColumn<QByteArray>("coding");
    for (const char *name : {"", "gzip", "deflate", "br"})
        QTest::newRow(name) << QByteArray(name);
}

void tst_BodyDecoder::isCompleteWithoutABody()
{
    QFETCH(const QByteArray, coding);
    Bench bench(coding);
    QVERIFY(bench.decoder.isComplete());
    QCOMPARE(bench.take(QByteArray()), State::Good);
    QVERIFY(bench.decoder.isComplete());
    QCOMPARE(bench.body, QByteArray());
}

void tst_BodyDecoder::unpacksLittleOfABomb()
{
    const QByteArray part = packed(QByteArray(MiB, 'x'), gzipForm);
    Bench bench("gzip");
    QCOMPARE(bench.take(part.repeated(manyTimes)), State::TooLong);
    QCOMPARE(bench.body.size(), MiB);
}

const TestClass<tst_BodyDecoder> testClass("tst_bodydecoder");

} // namespace tst_bodydecoder

#include "tst_bodydecoder.moc"
