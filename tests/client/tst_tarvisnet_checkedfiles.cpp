#include "checkedbench.h"
#include "testclass.h"

#include <QtCore/QJsonObject>

#include <functional>

Q_DECLARE_METATYPE(FileAnswer)

namespace tst_tarvisnet_checkedfiles {

using namespace clientaccess;

namespace {

const QByteArray content = "0123456789";
const QByteArray old = "old";
const QByteArray none;
const HttpHeader tag{"ETag", "\"v1\""};
const HttpHeader date{"Last-Modified", "Sun, 06 Nov 1994 08:49:37 GMT"};
const HttpHeader gzip{"Content-Encoding", "gzip"};
const FileAnswer whole{200, {tag}, content};
const QString fromThree = "bytes=3- \"v1\"";
const QString all = "whole";

HttpHeader rangeHeader(const QByteArray &range)
{
    return {"Content-Range", "bytes " + range};
}

FileAnswer rest(const HttpHeaders &headers = {rangeHeader("3-9/10"), tag},
                const QByteArray &body = content.mid(3))
{
    return {206, headers, body};
}

FileAnswer cut(const QByteArray &part, const HttpHeaders &headers = {tag})
{
    return {200, headers, part, content.size()};
}

/// What is fetched, what the server makes of it, and what comes of that.
struct Download {
    quint64 size = 10;
    QString hash;
    /// What an earlier download was answered, if there was one.
    QList<FileAnswer> before;
    QList<FileAnswer> answers;
    QStringList asked;
    /// 0 when the file is put in place.
    int code = 0;
    /// What lies in the temporary file afterwards; null when there is none.
    QByteArray kept = QByteArray();
};

using Row = std::function<void(const char *name, const Download &download)>;

} // namespace

} // namespace tst_tarvisnet_checkedfiles

Q_DECLARE_METATYPE(tst_tarvisnet_checkedfiles::Download)

namespace tst_tarvisnet_checkedfiles {

/// What a client with TransferPolicy::filesChecked() asks for, and what it makes of the answer. A
/// destination that was there before is the content, or what it was.
class tst_TarvisNetCheckedFiles : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void fetches_data();
    void fetches();
    void asksForItAsItIs();
    void storesTheEmptyFile();
    void refusesWhatIsNoHash_data();
    void refusesWhatIsNoHash();
    void acceptsHashes_data();
    void acceptsHashes();
    void goesOnAfterACut_data() { addModes(); }
    void goesOnAfterACut();
    void tellsAsTheTraditionalClient_data() { addModes(); }
    void tellsAsTheTraditionalClient();
    void progress_data();
    void progress();
    void explains_data();
    void explains();

private:
    static void addFresh(const Row &row);
    static void addResumed(const Row &row);
    static void addHashed(const Row &row);
};

void tst_TarvisNetCheckedFiles::addFresh(const Row &row)
{
    const auto fresh = [&row](const char *name, quint64 size, const FileAnswer &answer, int code) {
        row(name, {size, {}, {}, {answer}, {all}, code});
    };
    fresh("whole", 10, whole, 0);
    fresh("whole, unsized", 0, whole, 0);
    fresh("whole of no length", 10, {200, {}, content, HttpResponse::UntilClose}, 0);
    fresh("whole of no length, unsized", 0, {200, {}, content, HttpResponse::UntilClose}, 0);
    fresh("chunked", 10, {200, {}, content, HttpResponse::Chunked}, 0);
    fresh("chunked, unsized", 0, {200, {}, content, HttpResponse::Chunked}, 0);
    fresh("coded, but of the size", 10, {200, {gzip}, content}, 0);
    fresh("shorter", 11, whole, -226);
    fresh("shorter, of no length", 11, {200, {}, content, HttpResponse::UntilClose}, -226);
    fresh("longer", 9, whole, -226);
    fresh("surplus", 9, {200, {}, content, HttpResponse::Chunked}, -226);
    fresh("nothing of it", 10, {200, {}, ""}, -226);
    fresh("a part, unasked", 10, rest({rangeHeader("0-9/10")}, content), -226);
    for (const int status : {201, 202, 203, 204, 205, 226})
        fresh(QByteArray::number(status), 10, {status, {}, status < 204 ? content : none}, -226);
    fresh("302 without a target", 10, {302, {}, content}, -226);
    fresh("404", 10, {404, {}, content}, -217);
    fresh("416", 10, {416, {}, ""}, -203);
    fresh("503", 10, {503, {}, content}, -203);
    row("cut", {10, {}, {}, {cut("012")}, {all}, -203, "012"});
    row("cut before its first byte", {10, {}, {}, {cut("")}, {all}, -203});
}

void tst_TarvisNetCheckedFiles::addResumed(const Row &row)
{
    const auto resumed = [&row](const char *name, const FileAnswer &answer) {
        row(name, {10, {}, {cut("012")}, {answer}, {fromThree}});
    };
    const auto again = [&row](const char *name, const FileAnswer &answer) {
        row(name, {10, {}, {cut("012")}, {answer, whole}, {fromThree, all}});
    };
    resumed("rest", rest());
    resumed("rest without its tag", rest({rangeHeader("3-9/10")}));
    resumed("range ignored", whole);
    resumed("range ignored, of another version", {200, {{"ETag", "\"v2\""}}, content});
    resumed("range ignored, and coded", {200, {gzip}, content});
    again("another range", rest({rangeHeader("0-6/10"), tag}, content.left(7)));
    again("less than the rest", rest({rangeHeader("3-8/10"), tag}, content.mid(3, 6)));
    again("another total", rest({rangeHeader("3-9/11"), tag}));
    again("no total", rest({rangeHeader("3-9/*"), tag}));
    again("no range", rest({tag}));
    again("several ranges", rest({{"Content-Type", "multipart/byteranges; boundary=x"}}));
    again("another version", rest({rangeHeader("3-9/10"), {"ETag", "\"v2\""}}));
    again("another coding", rest({rangeHeader("3-9/10"), tag, gzip}));
    again("416", {416, {rangeHeader("*/10")}, ""});
    again("whole, but longer", {200, {tag}, content + '+'});
    row("416 for ever", {10, {}, {cut("012")}, {{416, {}, ""}}, {fromThree, all}, -203});
    row("204", {10, {}, {cut("012")}, {{204, {}, ""}}, {fromThree}, -226});
    row("cut again",
        {10,
         {},
         {cut("012")},
         {{206, {rangeHeader("3-9/10"), tag}, "34", 7}},
         {fromThree},
         -203,
         "01234"});
    row("longer than the rest",
        {10,
         {},
         {cut("012")},
         {rest({rangeHeader("3-9/10"), tag}, "3456789+"), whole},
         {fromThree, all}});
    row("unsized", {0, {}, {cut("012")}, {rest()}, {fromThree}});
    row("by its date",
        {10,
         {},
         {cut("012", {date})},
         {rest({rangeHeader("3-9/10"), date})},
         {"bytes=3- " + date.second}});
    row("of another date",
        {10,
         {},
         {cut("012", {date})},
         {rest({rangeHeader("3-9/10"), {"Last-Modified", "another"}}), whole},
         {"bytes=3- " + date.second, all}});
    row("without a strong tag", {10, {}, {cut("012", {{"ETag", "W/\"v1\""}})}, {whole}, {all}});
    row("without anything to go by", {10, {}, {cut("012", {})}, {whole}, {all}});
}

void tst_TarvisNetCheckedFiles::addHashed(const Row &row)
{
    const QString hash = hashOf(content);
    const FileAnswer other{200, {tag}, "9876543210"};
    row("hash right", {10, hash, {}, {whole}, {all}});
    row("hash right, unsized", {0, hash, {}, {whole}, {all}});
    row("hash wrong", {10, hash, {}, {other}, {all}, -226});
    row("hash wrong, unsized", {0, hash, {}, {other}, {all}, -226});
    row("hash right, resumed", {10, hash, {cut("012")}, {rest()}, {fromThree}});
    row("hash alone", {10, hash, {cut("012", {})}, {rest({rangeHeader("3-9/10")})}, {"bytes=3-"}});
    row("hash of a wrong beginning", {10, hash, {cut("xyz")}, {rest(), whole}, {fromThree, all}});
    row("hash wrong twice", {10, hash, {cut("xyz")}, {rest(), other}, {fromThree, all}, -226});
    row("hash wrong for ever",
        {10, hash, {cut("xyz")}, {rest(), cut("012"), rest()}, {fromThree, all}, -203, "012"});
}

void tst_TarvisNetCheckedFiles::fetches_data()
{
    QTest::addColumn<Operation>("operation");
    QTest::addColumn<Download>("download");
    for (const Operation &operation : operations::all()) {
        const RequestKind kind = requestkinds::of(operation.kind);
        if (!kind.isFile())
            continue;
        const Row row = [&operation](const char *name, const Download &download) {
            QTest::addRow("%s, %s", name, operation.name) << operation << download;
        };
        addFresh(row);
        addResumed(row);
        if (kind.isBinary())
            addHashed(row);
    }
}

void tst_TarvisNetCheckedFiles::fetches()
{
    QFETCH(const Operation, operation);
    QFETCH(const Download, download);
    const bool isPath = operation.form == Operation::Path;
    CheckedBench bench(isPath ? ScriptedServer::Mode::Https : ScriptedServer::Mode::Http);
    files::write(bench.destination(), old);
    if (!download.before.isEmpty()) {
        bench.answer(download.before);
        bench.fetch(operation, download.size, download.hash);
        QVERIFY(bench.waitForEnds());
        bench.server.clear();
        bench.forget();
    }
    bench.answer(download.answers);
    bench.fetch(operation, download.size, download.hash);
    QVERIFY(bench.waitForEnds());

    const bool isSaved = download.code == 0;
    const QString end = isSaved ? "s_finished" : "s_errorChanged";
    QStringList told{"s_repliesCountChanged", end, "s_repliesCountChanged"};
    // The traditional reaction to a failure; only one that Qt reports is one.
    if (bench.told().contains("s_aborted"))
        told.append("s_aborted");
    QCOMPARE(bench.told(), told);
    QCOMPARE(bench.errors(), isSaved ? QList<int>() : QList<int>{download.code});
    QCOMPARE(bench.recorder.last(end).at(isSaved ? 0 : 1).toString(), bench.url("/tool"));
    QCOMPARE(bench.asked(), download.asked);
    QCOMPARE(files::read(bench.destination()), isSaved ? content : old);
    QCOMPARE(bench.namesIn("saved"), QStringList("tool"));
    QCOMPARE(files::read(bench.temporary()), download.kept);
    QCOMPARE(bench.namesIn("temporary").size(), download.kept.isNull() ? 0 : 2);
}

// A server that packs what it sends on the way breaks every range.
void tst_TarvisNetCheckedFiles::asksForItAsItIs()
{
    CheckedBench bench;
    bench.answer({cut("012"), {416, {}, ""}, whole});
    bench.fetch(10);
    QVERIFY(bench.waitForEnds());
    bench.fetch(10);
    QVERIFY(bench.waitForEnds(2));
    QCOMPARE(bench.asked(), QStringList({all, fromThree, all}));
    for (const HttpRequest &request : bench.server.requests()) {
        QCOMPARE(request.header("accept-encoding"), QByteArray("identity"));
        QCOMPARE(request.method, QByteArray("GET"));
    }
}

void tst_TarvisNetCheckedFiles::storesTheEmptyFile()
{
    for (const QString &hash : {QString(), hashOf("")}) {
        CheckedBench bench;
        bench.answer({{200, {}, ""}});
        bench.fetch(0, hash);
        QVERIFY(bench.waitForEnds());
        QCOMPARE(bench.errors(), QList<int>());
        QVERIFY(QFileInfo::exists(bench.destination()));
        QCOMPARE(files::read(bench.destination()), QByteArray(""));
        QCOMPARE(bench.namesIn("temporary"), QStringList());
    }
}

void tst_TarvisNetCheckedFiles::refusesWhatIsNoHash_data()
{
    QTest::addColumn<QString>("hash");
    const QString sha256 = hashOf(content);
    QTest::newRow("words") << QString("no hash");
    QTest::newRow("a blank") << QString(" ");
    QTest::newRow("a digit too few") << sha256.chopped(1);
    QTest::newRow("a digit too many") << sha256 + '0';
    QTest::newRow("another letter") << sha256.chopped(1) + 'g';
    QTest::newRow("another name") << "sha1:" + sha256;
    QTest::newRow("an unknown name") << "crc:" + sha256;
}

void tst_TarvisNetCheckedFiles::refusesWhatIsNoHash()
{
    QFETCH(const QString, hash);
    for (const char *form : {"fetchBinary(QUrl)", "fetchBinary(QString)"}) {
        CheckedBench bench(ScriptedServer::Mode::Https);
        bench.answer({whole});
        files::write(bench.destination(), old);
        bench.fetch(operations::of(form), 10, hash);
        // At once.
        QCOMPARE(bench.recorder.of("s_errorChanged"),
                 QList<QVariantList>{failure(-226, bench.url("/tool"))});
        QCOMPARE(bench.recorder.names(), QStringList("s_errorChanged"));
        QCOMPARE(bench.replies().size(), 0);
        QCOMPARE(files::read(bench.destination()), old);
        QCOMPARE(bench.namesIn("temporary"), QStringList());
    }
}

void tst_TarvisNetCheckedFiles::acceptsHashes_data()
{
    QTest::addColumn<QString>("hash");
    const struct {
        const char *name;
        QCryptographicHash::Algorithm algorithm;
    } rows[] = {{"sha256", QCryptographicHash::Sha256},
                {"sha512", QCryptographicHash::Sha512},
                {"sha1", QCryptographicHash::Sha1},
                {"md5", QCryptographicHash::Md5}};
    for (const auto &row : rows) {
        const QString hash = hashOf(content, row.algorithm);
        QTest::addRow("%s", row.name) << hash;
        QTest::addRow("%s, in capitals", row.name) << hash.toUpper();
        QTest::addRow("%s, by its name", row.name) << QString(row.name) + ':' + hash;
    }
}

void tst_TarvisNetCheckedFiles::acceptsHashes()
{
    QFETCH(const QString, hash);
    for (const QByteArray &body : {content, QByteArray("9876543210")}) {
        CheckedBench bench;
        bench.answer({{200, {}, body}});
        bench.fetch(10, hash);
        QVERIFY(bench.waitForEnds());
        const bool isRight = body == content;
        QCOMPARE(bench.errors(), isRight ? QList<int>() : QList<int>{-226});
        QCOMPARE(files::read(bench.destination()), isRight ? content : none);
    }
}

// Within the same request, also where Qt takes what has come for the whole.
void tst_TarvisNetCheckedFiles::goesOnAfterACut()
{
    QFETCH(const ScriptedServer::Mode, mode);
    TransferPolicy policy = CheckedBench::checkingFiles();
    policy.setMaximumRetries(1);
    policy.setRetryDelay(1);
    constexpr int half = 5;
    for (const bool isCorked : {true, false}) {
        CheckedBench bench(mode, policy);
        files::write(bench.destination(), old);
        HttpResponse first;
        bench.server.on("/tool", [&](const HttpRequest &request, HttpResponse &response) {
            if (!request.header("range").isNull())
                return rest({rangeHeader("5-9/10"), tag}, content.mid(half)).send(response);
            if (isCorked)
                return cut(content.left(half)).send(response);
            response.sendHead(200, {tag}, content.size());
            response.write(content.left(half));
            first = response;
        });
        bench.fetch(10);
        if (!isCorked) {
            QTRY_COMPARE(files::read(bench.temporary()), content.left(half));
            first.cut();
        }
        QVERIFY(bench.recorder.waitFor("s_finished"));
        QCOMPARE(bench.errors(), QList<int>());
        QCOMPARE(bench.asked(), QStringList({all, "bytes=5- \"v1\""}));
        QCOMPARE(files::read(bench.destination()), content);
    }
}

// In the same order, with the same arguments.
void tst_TarvisNetCheckedFiles::tellsAsTheTraditionalClient()
{
    QFETCH(const ScriptedServer::Mode, mode);
    QList<QStringList> told;
    for (const TransferPolicy &policy : {TransferPolicy(), CheckedBench::checkingFiles()}) {
        CheckedBench bench(mode, policy);
        bench.answer({whole});
        bench.fetch(10);
        QVERIFY(bench.waitForEnds());
        QStringList calls;
        for (const SignalCall &call : bench.recorder.calls()) {
            QStringList items(call.name);
            for (const QVariant &argument : call.args)
                items.append(argument.toString().replace(bench.url("/tool"), "URL"));
            calls.append(items.join(' '));
        }
        told.append(calls);
    }
    QCOMPARE(told.first(),
             QStringList({"s_startPing -1", "s_repliesCountChanged",
                          "s_downloadFileBytesProgress 10 10 URL", "s_downloadFileProgress 100 URL",
                          "s_finished URL", "s_repliesCountChanged", "s_stopPing"}));
    QCOMPARE(told.last(), told.first());
}

void tst_TarvisNetCheckedFiles::progress_data()
{
    QTest::addColumn<quint64>("size");
    QTest::addColumn<QList<FileAnswer>>("answers");
    QTest::addColumn<QStringList>("told");
    const auto row = [](const char *name, quint64 size, const QList<FileAnswer> &answers,
                        const QStringList &told) {
        QTest::newRow(name) << size << answers << told;
    };
    const FileAnswer half = cut(content.left(5));
    const FileAnswer other = rest({rangeHeader("0-4/10"), tag}, content.left(5));
    const FileAnswer right = rest({rangeHeader("5-9/10"), tag}, content.mid(5));
    for (const quint64 size : {10, 0}) {
        const auto sized = [size](const char *name) {
            return QByteArray(name) + (size == 0 ? ", unsized" : "");
        };
        row(sized("fresh"), size, {whole}, {"10 10 100"});
        row(sized("resumed"), size, {half, right}, {"5 10 50", "10 10 100"});
        row(sized("ignored"), size, {half, whole}, {"5 10 50", "10 10 100"});
        row(sized("afresh"), size, {half, other, whole}, {"5 10 50", "10 10 100"});
    }
    row("nobody knows the size", 0, {{200, {}, content, HttpResponse::Chunked}}, {"10 0 100"});
}

// Of the whole file, in whichever pieces it comes.
void tst_TarvisNetCheckedFiles::progress()
{
    QFETCH(const quint64, size);
    QFETCH(const QList<FileAnswer>, answers);
    QFETCH(const QStringList, told);
    TransferPolicy policy = CheckedBench::checkingFiles();
    policy.setMaximumRetries(1);
    policy.setRetryDelay(1);
    CheckedBench bench(ScriptedServer::Mode::Http, policy);
    bench.answer(answers);
    bench.fetch(size);
    QVERIFY(bench.recorder.waitFor("s_finished"));

    QStringList seen;
    const QList<QVariantList> bytes = bench.recorder.of("s_downloadFileBytesProgress");
    const QList<QVariantList> percents = bench.recorder.of("s_downloadFileProgress");
    QCOMPARE(bytes.size(), percents.size());
    for (int i = 0; i < bytes.size(); ++i) {
        QCOMPARE(bytes.at(i).at(2).toString(), bench.url("/tool"));
        QCOMPARE(percents.at(i).at(1).toString(), bench.url("/tool"));
        seen.append(bytes.at(i).at(0).toString() + ' ' + bytes.at(i).at(1).toString() + ' '
                    + percents.at(i).at(0).toString());
    }
    seen.removeDuplicates();
    QCOMPARE(seen, told);
}

void tst_TarvisNetCheckedFiles::explains_data()
{
    QTest::addColumn<FileAnswer>("answer");
    QTest::addColumn<int>("received");
    QTest::addColumn<QString>("reason");
    const QString otherSize = "The file has another size.";
    const QString otherContent = "The content does not match the hash.";
    const QString noFile = "The server's answer is no file.";
    const auto row = [](const char *name, const FileAnswer &answer, int received,
                        const QString &reason) {
        QTest::newRow(name) << answer << received << reason;
    };
    row("shorter", {200, {}, content.left(4), HttpResponse::Chunked}, 4, otherSize);
    row("of a shorter length", {200, {}, content.left(4)}, 0, otherSize);
    row("surplus", {200, {}, content + content, HttpResponse::Chunked}, 0, otherSize);
    row("another content", {200, {}, "9876543210"}, 10, otherContent);
    row("a part, unasked", rest({rangeHeader("0-9/10")}, content), 0, noFile);
    row("203", {203, {}, content}, 0, noFile);
    row("204", {204, {}, none}, 0, noFile);
    row("300", {300, {}, content}, 0, noFile);
}

void tst_TarvisNetCheckedFiles::explains()
{
    QFETCH(const FileAnswer, answer);
    QFETCH(const int, received);
    QFETCH(const QString, reason);
    TransferPolicy policy = CheckedBench::checkingFiles();
    policy.setErrorsExplained(true);
    CheckedBench bench(ScriptedServer::Mode::Http, policy);
    bench.answer({answer});
    bench.fetch(10, "84d89877f0d4041efb6bf91a16f0248f2fd573e6af05c19f96bedb9f882f7882");
    QVERIFY(bench.waitForEnds());
    const QJsonObject expected{{"reason", reason},
                               {"httpStatus", answer.status},
                               {"expected", 10},
                               {"received", received}};
    QCOMPARE(QJsonDocument(bench.error().at(2).toJsonDocument().object()), QJsonDocument(expected));
}

const TestClass<tst_TarvisNetCheckedFiles> testClass("tst_tarvisnet_checkedfiles");

} // namespace tst_tarvisnet_checkedfiles

#include "tst_tarvisnet_checkedfiles.moc"
