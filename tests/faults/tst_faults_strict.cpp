#include "connectionfaults.h"
#include "faultrows.h"
#include "handshakefaults.h"
#include "servedfaults.h"
#include "strictbench.h"

#include <QtTest/QTest>

using faultrows::Mode;

/// What a redirect leads to, and what comes of it.
struct StrictRedirect {
    QByteArray name;
    QByteArray location;
    Code code;
};

Q_DECLARE_METATYPE(StrictRedirect)

namespace {

const QByteArray body = R"({"answer":42})";
const QByteArray old = "old";
constexpr qulonglong size = 1000;

/// How a request ends whose answer is broken in a certain way: with the whole of something that is
/// no file of the size, or not at all.
struct AnswerEnding {
    const char *name;
    /// Of a request for anything but a file.
    Code code;
    Code fileCode;
};

constexpr AnswerEnding answerEndings[] = {
    {"closed without an answer", -203, -203},
    {"reset without an answer", -203, -203},
    {"closed in the status line", -203, -203},
    {"closed in the head", -203, -203},
    {"half a body, closed", -203, -203},
    {"half a body, reset", -203, -203},
    {"half a body at once, closed", -203, -203},
    {"half a body of no length, closed", 0, -226},
    {"half a body of no length, reset", 0, -226},
    {"half the chunks, closed", -203, -203},
    {"half the chunks, reset", -203, -203},
    {"half a chunk, closed", -203, -203},
    {"half a chunk, reset", -203, -203},
    {"chunk size that is no number", 0, -226},
    {"negative chunk size", 0, -226},
    {"absurd chunk size", -203, -203},
    {"chunk larger than its size", 0, -226},
    {"length too short", 0, -226},
    {"length too long", -203, -226},
    {"length too long, at once", -203, -226},
    {"length negative", 0, -226},
    {"length twice", 0, -226},
    {"two lengths", 0, -226},
    {"length in words", 0, -226},
    {"garbage in lines", -203, -203},
    {"garbage in bytes", -203, -203},
    {"another protocol", -203, -203},
    {"a thousand headers", 0, -226},
    {"a long header", 0, -226},
    {"headers without an end", -203, -203},
    {"gzip cut", -203, -226},
    {"gzip that is none", -203, -226},
    {"gzip bomb", 0, -226},
};

AnswerEnding endingOf(const ServedFault &fault)
{
    for (const AnswerEnding &ending : answerEndings) {
        if (fault.name == ending.name)
            return ending;
    }
    qFatal("no strict ending of %s", fault.name.constData());
}

Code codeOf(QNetworkReply::NetworkError error)
{
    static const QMap<int, Code> codes = {
        {QNetworkReply::NoError, 0},
        {QNetworkReply::SslHandshakeFailedError, -222},
        {QNetworkReply::UnknownNetworkError, -216},
        {QNetworkReply::ContentNotFoundError, -217},
        {QNetworkReply::AuthenticationRequiredError, -213},
        {QNetworkReply::ProtocolInvalidOperationError, -220},
    };
    return codes.value(error, -203);
}

/// All that there is an operation for.
QList<RequestKind> kinds()
{
    QList<RequestKind> kinds;
    for (const RequestKind &kind : requestkinds::all()) {
        if (kind.result != Result::Nothing)
            kinds.append(kind);
    }
    return kinds;
}

/// A file, a document, a request with a body, and one of the other kinds in turn.
QList<RequestKind> sampleFor(int row)
{
    const QList<RequestKind> all = kinds();
    QList<RequestKind> sample = {requestkinds::of(replies::remote_binary),
                                 requestkinds::of(replies::raw_get),
                                 requestkinds::of(replies::raw_post)};
    const RequestKind other = all.at(row % all.size());
    for (const RequestKind &kind : qAsConst(sample)) {
        if (qstrcmp(kind.name, other.name) == 0)
            return sample;
    }
    return sample << other;
}

/// A row for every one of \a faults with some kinds of request, in the columns "kind" and "fault".
template <typename Fault>
void addRows(const QList<Fault> &faults)
{
    QTest::addColumn<RequestKind>("kind");
    QTest::addColumn<Fault>("fault");
    int row = 0;
    for (const Fault &fault : faults) {
        for (const RequestKind &kind : sampleFor(row++))
            QTest::addRow("%s, %s", fault.name.constData(), kind.name) << kind << fault;
    }
}

/// The same over HTTP and over HTTPS, in the column "mode" before.
template <typename Fault>
void addRowsInBothModes(const QList<Fault> &faults)
{
    QTest::addColumn<Mode>("mode");
    QTest::addColumn<RequestKind>("kind");
    QTest::addColumn<Fault>("fault");
    int row = 0;
    for (const Fault &fault : faults) {
        for (const RequestKind &kind : sampleFor(row++)) {
            const char *const name = fault.name.constData();
            QTest::addRow("%s, %s, HTTP", name, kind.name) << Mode::Http << kind << fault;
            QTest::addRow("%s, %s, HTTPS", name, kind.name) << Mode::Https << kind << fault;
        }
    }
}

void addModesAndKinds()
{
    QTest::addColumn<Mode>("mode");
    QTest::addColumn<RequestKind>("kind");
    for (const RequestKind &kind : kinds()) {
        QTest::addRow("%s, HTTP", kind.name) << Mode::Http << kind;
        QTest::addRow("%s, HTTPS", kind.name) << Mode::Https << kind;
    }
}

QList<StrictRedirect> redirects()
{
    return {
        {"no Location", QByteArray(), -203},
        {"a path", "/last", 0},
        {"a relative path", "last?a=1", 0},
        {"nowhere", "/nowhere", -217},
        {"another scheme", "other://127.0.0.1/last", -224},
        {"a file", "file:///missing/file", -224},
        {"data", "data:application/json,{}", -224},
        {"no URL", "http://[", -224},
        {"itself, for ever", "/fault", -224},
    };
}

} // namespace

/// The faults that the traditional client meets, and how the requests of a strict one end: each
/// once, and a file that was there is replaced by nothing but a right one.
class tst_FaultsStrict : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void failsInTheAnswer_data() { addRowsInBothModes(servedFaults()); }
    void failsInTheAnswer();
    void refuses_data() { addRowsInBothModes(refusals()); }
    void refuses();
    void meets_data() { addRows(connectionFaults()); }
    void meets();
    void shakesHands_data() { addRows(handshakeFaults()); }
    void shakesHands();
    void fallsSilent_data();
    void fallsSilent();
    void neverEnds_data() { addModesAndKinds(); }
    void neverEnds();
    void leads_data() { addRowsInBothModes(redirects()); }
    void leads();
    void followsAChain_data() { addModesAndKinds(); }
    void followsAChain();

private:
    ForeignServers m_foreign;
};

void tst_FaultsStrict::failsInTheAnswer()
{
    QFETCH(Mode, mode);
    QFETCH(RequestKind, kind);
    QFETCH(ServedFault, fault);

    StrictBench bench(mode);
    files::write(bench.destination, old);
    HttpResponse answer;
    fault.serve(bench.server, answer, *bench.client);
    QVERIFY(bench.run(kind, fault.size, bench.server.url("/fault")));

    const AnswerEnding ending = endingOf(fault);
    const Code expected = kind.isFile() ? ending.fileCode : ending.code;
    // There Qt takes a body that breaks off for cut or for whole, as its thread happens to run. Of
    // a file whose length was announced the client knows better.
    const bool isKnown = kind.isFile() && fault.name.startsWith("half a body");
    const bool isOpen =
        !isKnown && fault.outcome(mode, QNetworkReply::NoError).error != fault.error;
    const Code whole = kind.isFile() ? -226 : 0;
    if (!isOpen || bench.code() != whole)
        QCOMPARE(bench.code(), expected);
    QVERIFY(bench.isPlaced(old));
    // A broken connection leaves the beginning, a wrong file leaves nothing.
    if (kind.isFile() && bench.code() == -203 && fault.status == 200)
        QVERIFY(bench.kept() == fault.body);
    else
        QVERIFY(bench.kept().isNull());
}

void tst_FaultsStrict::refuses()
{
    QFETCH(Mode, mode);
    QFETCH(RequestKind, kind);
    QFETCH(Refusal, fault);

    StrictBench bench(mode);
    files::write(bench.destination, old);
    bench.server.on("/fault", answers::bytes(fault.ending.body, fault.ending.status));
    QVERIFY(bench.run(kind, size, bench.server.url("/fault")));

    QCOMPARE(bench.code(), codeOf(fault.ending.error));
    QVERIFY(!bench.reason().isEmpty());
    QCOMPARE(bench.urlOfError(), bench.server.url("/fault"));
    const bool mayPass = QList<int>{429, 500, 503}.contains(fault.ending.status);
    const bool isRepeated = mayPass && QByteArray(kind.verb) == "GET";
    QCOMPARE(bench.server.requests("/fault").size(), isRepeated ? 4 : 1);
    QVERIFY(bench.isPlaced(old));
    QVERIFY(bench.kept().isNull());
}

void tst_FaultsStrict::meets()
{
    QFETCH(RequestKind, kind);
    QFETCH(ConnectionFault, fault);

    // Nobody else has signed it.
    TransferPolicy policy = StrictBench::impatient();
    if (fault.name == "self-signed certificate")
        policy.setCaCertificates({});
    StrictBench bench(fault.mode, policy);
    files::write(bench.destination, old);
    bench.server.on("/fault", answers::bytes(body));
    QVERIFY(bench.run(kind, qulonglong(body.size()), fault.prepare(bench.server)));

    QCOMPARE(bench.code(), fault.isAnswered() ? -222 : codeOf(fault.error));
    QCOMPARE(bench.server.requests("/fault").size(), 0);
    QVERIFY(bench.isPlaced(old));
    QVERIFY(bench.kept().isNull());
}

void tst_FaultsStrict::shakesHands()
{
    QFETCH(RequestKind, kind);
    QFETCH(HandshakeFault, fault);

    StrictBench bench;
    files::write(bench.destination, old);
    QVERIFY(bench.run(kind, size, m_foreign.urlOf(fault)));

    QCOMPARE(bench.code(), codeOf(fault.ending.error));
    QVERIFY(bench.isPlaced(old));
    QVERIFY(bench.kept().isNull());
}

void tst_FaultsStrict::fallsSilent_data()
{
    addModesAndKinds();
    for (const RequestKind &kind : kinds())
        QTest::addRow("%s, before the handshake", kind.name) << Mode::MuteTls << kind;
}

// Nobody needs to abort it.
void tst_FaultsStrict::fallsSilent()
{
    QFETCH(Mode, mode);
    QFETCH(RequestKind, kind);

    TransferPolicy policy = StrictBench::waitingFor(50);
    policy.setMaximumRetries(1);
    StrictBench bench(mode, policy);
    files::write(bench.destination, old);
    bench.server.on("/fault", answers::withhold());
    QVERIFY(bench.run(kind, size, bench.server.url("/fault")));
    QCOMPARE(bench.code(), -223);
    QVERIFY(bench.isPlaced(old));
}

// Nor here. It is more than a file of the size, and than a body may be.
void tst_FaultsStrict::neverEnds()
{
    QFETCH(Mode, mode);
    QFETCH(RequestKind, kind);

    TransferPolicy policy = StrictBench::impatient();
    policy.setMaximumBodySize(100'000);
    StrictBench bench(mode, policy);
    files::write(bench.destination, old);
    bench.server.on("/fault", [](const HttpRequest &, HttpResponse &response) {
        response.sendHead(200, {}, HttpResponse::Chunked);
        response.writeGenerated(Q_INT64_C(1) << 24);
    });
    QVERIFY(bench.run(kind, size, bench.server.url("/fault")));
    QCOMPARE(bench.code(), kind.isFile() ? -226 : -227);
    QVERIFY(bench.isPlaced(old));
    QVERIFY(bench.kept().isNull());
}

void tst_FaultsStrict::leads()
{
    QFETCH(Mode, mode);
    QFETCH(RequestKind, kind);
    QFETCH(StrictRedirect, fault);

    StrictBench bench(mode);
    files::write(bench.destination, old);
    bench.server.on("/fault", answers::redirect(307, fault.location));
    bench.server.on("/last", answers::bytes(body));
    QVERIFY(bench.run(kind, qulonglong(body.size()), bench.server.url("/fault")));

    QCOMPARE(bench.code(), fault.code);
    if (bench.hasFailed())
        QCOMPARE(bench.urlOfError(), bench.server.url("/fault"));
    for (const HttpRequest &request : bench.server.requests()) {
        if (request.path() != "/")
            QCOMPARE(request.method, QByteArray(kind.verb));
    }
    QVERIFY(bench.isPlaced(old, body));
}

void tst_FaultsStrict::followsAChain()
{
    QFETCH(Mode, mode);
    QFETCH(RequestKind, kind);

    for (const int hops : {10, 11}) {
        StrictBench bench(mode);
        bench.server.onRequest([hops](const HttpRequest &request, HttpResponse &response) {
            const int hop = request.path().mid(1).toInt();
            if (hop == hops)
                return answers::bytes(body)(request, response);
            answers::redirect(308, QByteArray::number(hop + 1))(request, response);
        });
        QVERIFY(bench.run(kind, qulonglong(body.size()), bench.server.url("/0")));
        QCOMPARE(bench.code(), hops > 10 ? -224 : 0);
        QCOMPARE(bench.replies().size(), 0);
    }
}

QTEST_GUILESS_MAIN(tst_FaultsStrict)

#include "tst_faults_strict.moc"
