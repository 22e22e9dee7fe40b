#include "fakereply.h"
#include "files.h"
#include "httprequest.h"
#include "resumepoint_p.h"
#include "testclass.h"

#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QTemporaryDir>
#include <QtTest/QTest>

#include <sys/stat.h>
#include <unistd.h>

Q_DECLARE_METATYPE(resumepoint::Judgement)
Q_DECLARE_METATYPE(resumepoint::Question)

namespace tst_resumepoint {

using namespace resumepoint;

namespace {

const char tag[] = "\"v1\"";
const char date[] = "Sun, 06 Nov 1994 08:49:37 GMT";
const char laterDate[] = "Sun, 06 Nov 1994 08:49:38 GMT";

Answer answerWith(int status, const HttpHeaders &headers)
{
    FakeReply reply;
    reply.setStatus(status);
    for (const HttpHeader &header : headers)
        reply.setRawHeader(header.first, header.second);
    return answerOf(&reply);
}

ResumePoint somePoint()
{
    return {"http://127.0.0.1/file?a=1", 10, "md5:00", tag, 10};
}

} // namespace

class tst_ResumePoint : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void contentRange_data();
    void contentRange();
    void lengthOfAnAnswer_data();
    void lengthOfAnAnswer();
    void validatorOfAnAnswer_data();
    void validatorOfAnAnswer();
    void judge_data();
    void judge();
    void comesBack_data();
    void comesBack();
    void isForItsOwnerOnly();
    void ignores_data();
    void ignores();
    void followsNoLink();
    void needsAPlace();
};

void tst_ResumePoint::contentRange_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<bool>("isRange");
    QTest::addColumn<qint64>("first");
    QTest::addColumn<qint64>("last");
    QTest::addColumn<qint64>("total");
    const auto good = [](const char *text, qint64 first, qint64 last, qint64 total) {
        QTest::newRow(text) << QByteArray(text) << true << first << last << total;
    };
    good("bytes 0-0/1", 0, 0, 1);
    good("bytes 3-9/10", 3, 9, 10);
    good("bytes 3-5/10", 3, 5, 10);
    good("Bytes 3-9/10", 3, 9, 10);
    good("bytes 3-9/*", 3, 9, unknown);
    good("bytes 0-9223372036854775806/9223372036854775807", 0, Q_INT64_C(9223372036854775806),
         Q_INT64_C(9223372036854775807));
    const char *const bad[] = {"",
                               "bytes",
                               "bytes 3-9",
                               "bytes */10",
                               "bytes 3-/10",
                               "bytes -9/10",
                               "bytes 9-3/10",
                               "bytes 3-10/10",
                               "bytes 3-9/",
                               "bytes 3-9/10 ",
                               " bytes 3-9/10",
                               "bytes  3-9/10",
                               "bytes=3-9/10",
                               "bytes: 3-9/10",
                               "bytes 3 - 9/10",
                               "bytes -3-9/10",
                               "bytes +3-9/10",
                               "bytes 0x3-9/10",
                               "bytes 3-9/10, bytes 3-9/10",
                               "bytes 3-9/10\n",
                               "items 3-9/10",
                               "bytes 3-9/9223372036854775808",
                               "bytes 3-9223372036854775808/*"};
    for (const char *const text : bad)
        QTest::addRow("\"%s\"", text) << QByteArray(text) << false << unknown << unknown << unknown;
}

void tst_ResumePoint::contentRange()
{
    QFETCH(const QByteArray, text);
    QFETCH(const bool, isRange);
    const std::optional<ContentRange> range = resumepoint::contentRange(text);
    QCOMPARE(range.has_value(), isRange);
    const ContentRange numbers = range.value_or(ContentRange{});
    QTEST(numbers.first, "first");
    QTEST(numbers.last, "last");
    QTEST(numbers.total, "total");
}

void tst_ResumePoint::lengthOfAnAnswer_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<qint64>("length");
    QTest::newRow("none") << QByteArray() << unknown;
    QTest::newRow("nothing") << QByteArray("0") << qint64(0);
    QTest::newRow("some") << QByteArray("123") << qint64(123);
    QTest::newRow("many") << QByteArray("12345678901") << Q_INT64_C(12345678901);
    QTest::newRow("too many") << QByteArray("9223372036854775808") << unknown;
    QTest::newRow("below nothing") << QByteArray("-1") << unknown;
    QTest::newRow("with a sign") << QByteArray("+1") << unknown;
    QTest::newRow("twice") << QByteArray("1, 1") << unknown;
    QTest::newRow("a word") << QByteArray("all") << unknown;
}

void tst_ResumePoint::lengthOfAnAnswer()
{
    QFETCH(const QByteArray, text);
    QTEST(answerWith(200, {{"Content-Length", text}}).length, "length");
}

void tst_ResumePoint::validatorOfAnAnswer_data()
{
    QTest::addColumn<HttpHeaders>("headers");
    QTest::addColumn<QByteArray>("validator");
    const QByteArray none;
    QTest::newRow("none") << HttpHeaders{} << none;
    QTest::newRow("tag") << HttpHeaders{{"ETag", tag}} << QByteArray(tag);
    QTest::newRow("weak tag") << HttpHeaders{{"ETag", "W/\"v1\""}} << none;
    QTest::newRow("weak tag of another spelling") << HttpHeaders{{"ETag", "w/\"v1\""}} << none;
    QTest::newRow("tag without quotes") << HttpHeaders{{"ETag", "v1"}} << none;
    QTest::newRow("date") << HttpHeaders{{"Last-Modified", date}} << QByteArray(date);
    QTest::newRow("tag and date") << HttpHeaders{{"Last-Modified", date}, {"ETag", tag}}
                                  << QByteArray(tag);
    QTest::newRow("weak tag and date")
        << HttpHeaders{{"ETag", "W/\"v1\""}, {"Last-Modified", date}} << QByteArray(date);
    QTest::newRow("date before the answer")
        << HttpHeaders{{"Last-Modified", date}, {"Date", laterDate}} << QByteArray(date);
    QTest::newRow("date in the second of the answer")
        << HttpHeaders{{"Last-Modified", date}, {"Date", date}} << none;
    QTest::newRow("tag in the second of the answer")
        << HttpHeaders{{"ETag", tag}, {"Last-Modified", date}, {"Date", date}} << QByteArray(tag);
    QTest::newRow("of a coded body")
        << HttpHeaders{{"ETag", tag}, {"Last-Modified", date}, {"Content-Encoding", "gzip"}}
        << QByteArray();
    QTest::newRow("of a body that is coded as it is")
        << HttpHeaders{{"ETag", tag}, {"Content-Encoding", "identity"}} << QByteArray(tag);
}

void tst_ResumePoint::validatorOfAnAnswer()
{
    QFETCH(const HttpHeaders, headers);
    QTEST(validatorOf(answerWith(200, headers)), "validator");
}

void tst_ResumePoint::judge_data()
{
    QTest::addColumn<Question>("question");
    QTest::addColumn<int>("status");
    QTest::addColumn<HttpHeaders>("headers");
    QTest::addColumn<Judgement>("judgement");
    const auto row = [](const char *name, const Question &question, int status,
                        const HttpHeaders &headers, Judgement judgement) {
        QTest::newRow(name) << question << status << headers << judgement;
    };
    const HttpHeader range{"Content-Range", "bytes 3-9/10"};

    const Question whole{0, 10, 10, QByteArray()};
    const Question any{0, unknown, unknown, QByteArray()};
    row("whole: 200", whole, 200, {}, Judgement::Whole);
    row("whole: its length", whole, 200, {{"Content-Length", "10"}}, Judgement::Whole);
    row("whole: another length", whole, 200, {{"Content-Length", "9"}}, Judgement::OtherSize);
    row("whole: coded", whole, 200, {{"Content-Encoding", "gzip"}}, Judgement::Whole);
    row("whole: any length", any, 200, {{"Content-Length", "9"}}, Judgement::Whole);
    row("whole: empty", any, 200, {{"Content-Length", "0"}}, Judgement::Whole);
    row("whole: 206", whole, 206, {{"Content-Range", "bytes 0-9/10"}}, Judgement::NoFile);
    row("whole: 206 of the rest", whole, 206, {range}, Judgement::NoFile);
    row("whole: 416", whole, 416, {}, Judgement::NoFile);

    const Question rest{3, 10, 10, tag};
    row("rest: 206", rest, 206, {range}, Judgement::Rest);
    row("rest: 206 without a range", rest, 206, {}, Judgement::AskAfresh);
    row("rest: its length", rest, 206, {range, {"Content-Length", "7"}}, Judgement::Rest);
    row("rest: another length", rest, 206, {range, {"Content-Length", "10"}}, Judgement::AskAfresh);
    row("rest: the same tag", rest, 206, {range, {"ETag", tag}}, Judgement::Rest);
    row("rest: another tag", rest, 206, {range, {"ETag", "\"v2\""}}, Judgement::AskAfresh);
    row("rest: a weak tag", rest, 206, {range, {"ETag", "W/\"v1\""}}, Judgement::AskAfresh);
    row("rest: a date", rest, 206, {range, {"Last-Modified", date}}, Judgement::Rest);
    row("rest: plain", rest, 206, {range, {"Content-Encoding", "Identity"}}, Judgement::Rest);
    row("rest: coded", rest, 206, {range, {"Content-Encoding", "gzip"}}, Judgement::AskAfresh);
    row("rest: 200", rest, 200, {{"Content-Length", "10"}}, Judgement::Whole);
    row("rest: 200 of another length", rest, 200, {{"Content-Length", "9"}}, Judgement::AskAfresh);
    row("rest: 416", rest, 416, {}, Judgement::AskAfresh);
    const char *const otherRanges[] = {"bytes 2-9/10", "bytes 4-9/10",  "bytes 0-9/10",
                                       "bytes 3-8/10", "bytes 3-10/11", "bytes 3-8/9",
                                       "bytes 3-9/*",  "bytes */10",    "nonsense"};
    for (const char *const text : otherRanges) {
        QTest::addRow("rest: %s", text)
            << rest << 206 << HttpHeaders{{"Content-Range", text}} << Judgement::AskAfresh;
    }

    const Question dated{3, 10, 10, date};
    row("dated: the same", dated, 206, {range, {"Last-Modified", date}}, Judgement::Rest);
    row("dated: later", dated, 206, {range, {"Last-Modified", laterDate}}, Judgement::AskAfresh);
    row("dated: a tag", dated, 206, {range, {"ETag", tag}}, Judgement::Rest);

    const Question unsized{3, unknown, 10, tag};
    row("unsized: 206", unsized, 206, {range}, Judgement::Rest);
    row("unsized: another total", unsized, 206, {{"Content-Range", "bytes 3-8/9"}},
        Judgement::AskAfresh);
    row("unsized: 200 of another length", unsized, 200, {{"Content-Length", "9"}},
        Judgement::Whole);
    const Question endless{3, unknown, unknown, tag};
    row("endless: 206", endless, 206, {range}, Judgement::Rest);
    row("endless: an open total", endless, 206, {{"Content-Range", "bytes 3-9/*"}},
        Judgement::AskAfresh);
    const Question hashed{3, 10, 10, QByteArray()};
    row("hashed: any tag", hashed, 206, {range, {"ETag", tag}}, Judgement::Rest);

    for (const int status : {0, 201, 203, 204, 205, 207, 226}) {
        QTest::addRow("whole: %d", status) << whole << status << HttpHeaders{} << Judgement::NoFile;
        QTest::addRow("rest: %d", status)
            << rest << status << HttpHeaders{range} << Judgement::NoFile;
    }
}

void tst_ResumePoint::judge()
{
    QFETCH(const Question, question);
    QFETCH(const int, status);
    QFETCH(const HttpHeaders, headers);
    QTEST(resumepoint::judge(answerWith(status, headers), question), "judgement");
}

void tst_ResumePoint::comesBack_data()
{
    QTest::addColumn<QByteArray>("validator");
    QTest::addColumn<quint64>("size");
    QTest::addColumn<qint64>("total");
    QTest::newRow("tag") << QByteArray(tag) << quint64(10) << qint64(10);
    QTest::newRow("odd tag") << QByteArray("\"\xe4\\\"") << quint64(10) << qint64(10);
    QTest::newRow("nothing known") << QByteArray() << quint64(0) << unknown;
    QTest::newRow("empty file") << QByteArray(date) << quint64(0) << qint64(0);
    QTest::newRow("large") << QByteArray(date) << quint64(Q_UINT64_C(9007199254740993))
                           << Q_INT64_C(9007199254740993);
}

void tst_ResumePoint::comesBack()
{
    QFETCH(const QByteArray, validator);
    QFETCH(const quint64, size);
    QFETCH(const qint64, total);
    const QTemporaryDir directory;
    const QString path = directory.filePath("point");
    const ResumePoint point{QStringLiteral("http://127.0.0.1/\u00e4?\"%22"), size, "md5:00",
                            validator, total};
    QVERIFY(write(path, somePoint()));
    QVERIFY(write(path, point));
    const std::optional<ResumePoint> back = read(path);
    QVERIFY(back.has_value());
    QCOMPARE(back->url, point.url);
    QCOMPARE(back->size, size);
    QCOMPARE(back->hash, point.hash);
    QCOMPARE(back->validator, validator);
    QCOMPARE(back->total, total);
}

void tst_ResumePoint::isForItsOwnerOnly()
{
    const QTemporaryDir directory;
    const QString path = directory.filePath("point");
    QVERIFY(write(path, somePoint()));
    struct stat about = {};
    QCOMPARE(stat(QFile::encodeName(path).constData(), &about), 0);
    QCOMPARE(about.st_mode & ~mode_t(S_IFMT), mode_t(S_IRUSR | S_IWUSR));
}

void tst_ResumePoint::ignores_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::newRow("nothing") << QByteArray();
    QTest::newRow("emptiness") << QByteArray("");
    QTest::newRow("garbage") << QByteArray("\xff\x00garbage", 9);
    QTest::newRow("an array") << QByteArray("[1, 2]");
    QTest::newRow("an empty object") << QByteArray("{}");
    QTest::newRow("no total") << QByteArray(R"({"url": "a", "size": "1", "hash": ""})");
    QTest::newRow("no size") << QByteArray(R"({"url": "a", "total": "1", "hash": ""})");
    QTest::newRow("a total below nothing")
        << QByteArray(R"({"url": "a", "size": "1", "total": "-2"})");
    QTest::newRow("a part of it") << QByteArray(R"({"url": "a", "size": "1", "total": "1")");
    QTest::newRow("too much") << QByteArray(R"({"url": "a", "size": "1", "total": "1"})")
            + QByteArray(70000, ' ');
}

void tst_ResumePoint::ignores()
{
    QFETCH(const QByteArray, content);
    const QTemporaryDir directory;
    const QString path = directory.filePath("point");
    if (!content.isNull())
        files::write(path, content);
    QVERIFY(!read(path).has_value());
}

void tst_ResumePoint::followsNoLink()
{
    const QTemporaryDir directory;
    const QString path = directory.filePath("point");
    const QString target = directory.filePath("target");
    QVERIFY(write(target, somePoint()));
    const QByteArray before = files::read(target);
    QVERIFY(QFile::link(target, path));
    QVERIFY(!read(path).has_value());
    QVERIFY(write(path, {"another", 0, QString(), QByteArray(), unknown}));
    QVERIFY(!QFileInfo(path).isSymLink());
    QCOMPARE(files::read(target), before);

    // Nor a second name.
    QVERIFY(QFile::remove(path));
    QCOMPARE(link(QFile::encodeName(target).constData(), QFile::encodeName(path).constData()), 0);
    QVERIFY(write(path, {"another", 0, QString(), QByteArray(), unknown}));
    QCOMPARE(files::read(target), before);

    // Nor somebody else's word.
    if (chown(QFile::encodeName(target).constData(), geteuid() + 1, getegid()) != 0)
        QSKIP("may not give a file away");
    QVERIFY(!read(target).has_value());
}

void tst_ResumePoint::needsAPlace()
{
    const QTemporaryDir directory;
    QVERIFY(!write(directory.filePath("no/point"), somePoint()));
    QVERIFY(!write(directory.path(), somePoint()));
    QVERIFY(!read(directory.path()).has_value());
}

const TestClass<tst_ResumePoint> testClass("tst_resumepoint");

} // namespace tst_resumepoint

#include "tst_resumepoint.moc"
