#include "clientbench.h"
#include "testclass.h"

#include <QtCore/QDateTime>
#include <QtCore/QMetaType>
#include <QtCore/QPoint>
#include <QtNetwork/QNetworkCookie>
#include <QtTest/QTest>

Q_DECLARE_METATYPE(QList<QNetworkCookie>)
Q_DECLARE_METATYPE(QNetworkRequest::KnownHeaders)

namespace tst_tarvisnet_raw_headers {

using Known = QNetworkRequest::KnownHeaders;

/// An operation that takes headers.
struct Operation {
    const char *name;
    const char *defaultType;
    void (*call)(TarvisNet &client, const QUrl &url, const HeadersMap &headers,
                 const RawHeadersMap &rawHeaders);
};

} // namespace tst_tarvisnet_raw_headers

Q_DECLARE_METATYPE(tst_tarvisnet_raw_headers::Operation)

namespace tst_tarvisnet_raw_headers {

namespace {

const char *const form = "application/x-www-form-urlencoded";

const char *const json = "application/json";

using T = TarvisNet;
using H = HeadersMap;
using R = RawHeadersMap;

const Operation operations[] = {
    {"rawGet", json, [](T &t, const QUrl &url, const H &h, const R &r) { t.rawGet(url, h, r); }},
    {"rawPost", form,
     [](T &t, const QUrl &url, const H &h, const R &r) { t.rawPost(url, "body", h, r); }},
    {"rawPath", json,
     [](T &t, const QUrl &url, const H &h, const R &r) { t.rawPath(url, "body", h, r); }},
};

void addOperations()
{
    QTest::addColumn<Operation>("operation");
    for (const Operation &operation : operations)
        QTest::newRow(operation.name) << operation;
}

/// A client that sends one request after the other to a server that answers none.
struct HeadersBench : WaitingBench {
    void call(const Operation &operation, const H &headers, const R &rawHeaders = R())
    {
        operation.call(*client, server.url("/there"), headers, rawHeaders);
    }
    /// The request as the server got it; an empty one when none came.
    HttpRequest send(const Operation &operation, const H &headers, const R &rawHeaders = R())
    {
        server.clear();
        call(operation, headers, rawHeaders);
        return server.waitForRequests(1) ? server.requests().first() : HttpRequest();
    }
};

/// A value of the Content-Type header and what becomes of it.
struct TypeRow {
    const char *name;
    QVariant value;
    QByteArray contentType;
};

QList<TypeRow> typeRows()
{
    const auto type = [](TarvisNet::ContentType value) { return QVariant::fromValue(value); };
    return {
        {"WwwForm", type(TarvisNet::WwwForm), form},
        {"Json", type(TarvisNet::Json), "application/json"},
        {"Xml", type(TarvisNet::Xml), "application/xml"},
        {"Zip", type(TarvisNet::Zip), "application/zip"},
        {"Pdf", type(TarvisNet::Pdf), "application/pdf"},
        {"Plain", type(TarvisNet::Plain), "text/plain"},
        // Whatever can become a number.
        {"int", 3, "application/zip"},
        {"unsigned", 3U, "application/zip"},
        {"long", Q_INT64_C(3), "application/zip"},
        {"unsigned long", Q_UINT64_C(3), "application/zip"},
        {"double", 3.0, "application/zip"},
        {"float", 3.0F, "application/zip"},
        {"true", true, "application/json"},
        {"false", false, form},
        {"digits", "3", "application/zip"},
        {"digits as bytes", QByteArray("3"), "application/zip"},
        {"enumeration of another", QVariant::fromValue(Qt::DirectConnection), "application/json"},
        // What could, and does not.
        {"name of a type", "Zip", form},
        {"MIME text", "application/zip", form},
        {"empty text", "", form},
        {"MIME text as bytes", QByteArray("application/zip"), form},
        // A number that is no type has an empty text, which Qt takes for no header.
        {"beyond the last", type(TarvisNet::ContentType(6)), ""},
        {"far beyond", 99, ""},
        {"before the first", -1, ""},
        // What cannot become a number.
        {"invalid", QVariant(), ""},
        {"list", QVariantList({3}), ""},
        {"texts", QStringList({"3", "4"}), ""},
        {"map", QVariantMap({{"3", 3}}), ""},
        {"URL", QUrl("http://127.0.0.1/3"), ""},
        {"time", QDateTime::currentDateTime(), ""},
        {"point", QPoint(3, 3), ""},
        {"record", QVariant::fromValue(FileData()), ""},
    };
}

const QDateTime someTime(QDate(2024, 2, 29), QTime(12, 30), Qt::UTC);

} // namespace

/// The headers that an application sets.
class tst_TarvisNetRawHeaders : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void readsContentType_data();
    void readsContentType();
    void keepsTableOfTypes();
    void addsDefaults_data() { addOperations(); }
    void addsDefaults();
    void setsKnownHeaders_data();
    void setsKnownHeaders();
    void givenUserAgentKeepsTheClientsAway_data();
    void givenUserAgentKeepsTheClientsAway();
    void rawHeadersWin_data() { addOperations(); }
    void rawHeadersWin();
    void setsHeadersInOrder_data() { addOperations(); }
    void setsHeadersInOrder();
};

void tst_TarvisNetRawHeaders::readsContentType_data()
{
    QTest::addColumn<Operation>("operation");
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QByteArray>("contentType");
    for (const Operation &operation : operations) {
        for (const TypeRow &row : typeRows())
            QTest::addRow("%s, %s", operation.name, row.name)
                << operation << row.value << row.contentType;
    }
}

void tst_TarvisNetRawHeaders::readsContentType()
{
    QFETCH(const Operation, operation);
    QFETCH(const QVariant, value);
    QFETCH(const QByteArray, contentType);
    HeadersBench bench;
    const HttpRequest sent = bench.send(operation, {{Known::ContentTypeHeader, value}});
    QVERIFY(!sent.method.isEmpty());
    QCOMPARE(bench.running().first()->request().rawHeader("Content-Type"), contentType);
    // Qt sends no POST without a type.
    const bool isQtsType = sent.method == "POST" && contentType.isEmpty();
    QCOMPARE(sent.header("content-type"), isQtsType ? QByteArray(form) : contentType);
    QCOMPARE(sent.header("user-agent"), bench.client->getUserAgent().toLocal8Bit());
}

void tst_TarvisNetRawHeaders::keepsTableOfTypes()
{
    HeadersBench bench;
    for (const QVariant &value : {QVariant(99), QVariant(99), QVariant("3")})
        bench.call(operations[0], {{Known::ContentTypeHeader, value}});
    QVERIFY(bench.server.waitForRequests(2));
    QByteArrayList types;
    for (const QNetworkReply *reply : bench.running())
        types.append(reply->request().rawHeader("Content-Type"));
    types.removeAll(QByteArray());
    QCOMPARE(types, QByteArrayList({"application/zip"}));
}

void tst_TarvisNetRawHeaders::addsDefaults()
{
    QFETCH(const Operation, operation);
    HeadersBench bench;
    const HttpRequest sent = bench.send(operation, {{Known::ServerHeader, "irrelevant"}});
    QCOMPARE(sent.header("content-type"), QByteArray(operation.defaultType));
    QCOMPARE(sent.header("user-agent"), bench.client->getUserAgent().toLocal8Bit());
}

void tst_TarvisNetRawHeaders::setsKnownHeaders_data()
{
    QTest::addColumn<Operation>("operation");
    QTest::addColumn<Known>("header");
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<QByteArray>("text");
    const QList<QNetworkCookie> cookies = {QNetworkCookie("a", "1"), QNetworkCookie("b", "2")};
    for (const Operation &operation : operations) {
        const auto row = [&operation](Known header, const QVariant &value, const char *name,
                                      const char *text) {
            QTest::addRow("%s, %s", operation.name, name)
                << operation << header << value << QByteArray(name) << QByteArray(text);
        };
        row(Known::UserAgentHeader, "somebody else", "user-agent", "somebody else");
        row(Known::LocationHeader, QUrl("http://127.0.0.1/a%20b"), "location",
            "http://127.0.0.1/a%20b");
        row(Known::LastModifiedHeader, someTime, "last-modified", "Thu, 29 Feb 2024 12:30:00 GMT");
        row(Known::CookieHeader, QVariant::fromValue(cookies), "cookie", "a=1; b=2");
        row(Known::ContentDispositionHeader, "attachment", "content-disposition", "attachment");
        row(Known::ServerHeader, "some server", "server", "some server");
        row(Known::IfModifiedSinceHeader, someTime, "if-modified-since",
            "Thu, 29 Feb 2024 12:30:00 GMT");
        row(Known::IfNoneMatchHeader, "\"tag\"", "if-none-match", "\"tag\"");
    }
}

void tst_TarvisNetRawHeaders::setsKnownHeaders()
{
    QFETCH(const Operation, operation);
    QFETCH(const Known, header);
    QFETCH(const QVariant, value);
    QFETCH(const QByteArray, name);
    HeadersBench bench;
    QTEST(bench.send(operation, {{header, value}}).header(name), "text");
}

void tst_TarvisNetRawHeaders::givenUserAgentKeepsTheClientsAway_data()
{
    QTest::addColumn<Operation>("operation");
    QTest::addColumn<QVariant>("value");
    for (const Operation &operation : operations) {
        QTest::addRow("%s, empty text", operation.name) << operation << QVariant(QString());
        QTest::addRow("%s, empty bytes", operation.name) << operation << QVariant(QByteArray());
        QTest::addRow("%s, no value", operation.name) << operation << QVariant();
        QTest::addRow("%s, text", operation.name) << operation << QVariant("agent");
    }
}

// The client's own names the installation, which somebody may not want to tell everybody.
void tst_TarvisNetRawHeaders::givenUserAgentKeepsTheClientsAway()
{
    QFETCH(const Operation, operation);
    QFETCH(const QVariant, value);
    HeadersBench bench;
    bench.client->setVtxIdByText("installation");
    const QByteArray sent =
        bench.send(operation, {{Known::UserAgentHeader, value}}).header("user-agent");
    QVERIFY(!sent.contains("TarvisNet"));
    QVERIFY(!sent.contains("installation"));
    if (!value.toString().isEmpty())
        QCOMPARE(sent, value.toByteArray());
}

void tst_TarvisNetRawHeaders::rawHeadersWin()
{
    QFETCH(const Operation, operation);
    const RawHeadersMap rawHeaders = {
        {"Content-Type", "raw/type"}, {"user-agent", "raw agent"}, {"X-Own", "own"}};
    HeadersBench bench;
    const HttpRequest overDefaults = bench.send(operation, HeadersMap(), rawHeaders);
    QCOMPARE(overDefaults.header("content-type"), QByteArray("raw/type"));
    QCOMPARE(overDefaults.header("user-agent"), QByteArray("raw agent"));
    QCOMPARE(overDefaults.header("x-own"), QByteArray("own"));

    const HttpRequest overKnown =
        bench.send(operation,
                   {{Known::ContentTypeHeader, QVariant::fromValue(TarvisNet::Zip)},
                    {Known::UserAgentHeader, "known agent"}},
                   rawHeaders);
    QCOMPARE(overKnown.header("content-type"), QByteArray("raw/type"));
    QCOMPARE(overKnown.header("user-agent"), QByteArray("raw agent"));
}

// A header that is set again moves to the end. Case tells names apart in the map only.
void tst_TarvisNetRawHeaders::setsHeadersInOrder()
{
    QFETCH(const Operation, operation);
    const HeadersMap headers = {{Known::IfNoneMatchHeader, "x"},
                                {Known::ServerHeader, "x"},
                                {Known::ContentDispositionHeader, "x"},
                                {Known::LocationHeader, QUrl("x")}};
    const RawHeadersMap rawHeaders = {
        {"x-b", "last"}, {"X-b", "first"}, {"a", "x"}, {"X-C", "x"}, {"Server", "again"}};
    HeadersBench bench;
    bench.call(operation, headers, rawHeaders);
    const QNetworkRequest request = bench.running().first()->request();
    QCOMPARE(request.rawHeader("X-B"), QByteArray("last"));
    const QByteArrayList expected = {
        "Content-Type", "User-Agent", "Location", "Content-Disposition", "If-None-Match", "Server",
        "X-C",          "a",          "x-b"};
    QByteArrayList names = request.rawHeaderList();
    // Qt adds the length of a body.
    names.removeAll("Content-Length");
    QCOMPARE(names, expected);
}

const TestClass<tst_TarvisNetRawHeaders> testClass("tst_tarvisnet_raw_headers");

} // namespace tst_tarvisnet_raw_headers

#include "tst_tarvisnet_raw_headers.moc"
