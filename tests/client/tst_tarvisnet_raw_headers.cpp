#include "answers.h"
#include "logcapture.h"
#include "queueaccess.h"
#include "scriptedserver.h"
#include "signalrecorder.h"

#include <tarvisnet/tarvisnet.h>

#include <QtCore/QDateTime>
#include <QtCore/QMetaType>
#include <QtCore/QPoint>
#include <QtNetwork/QNetworkCookie>
#include <QtTest/QTest>

using namespace queueaccess;

Q_DECLARE_METATYPE(QList<QNetworkCookie>)
Q_DECLARE_METATYPE(QNetworkRequest::KnownHeaders)

using Known = QNetworkRequest::KnownHeaders;

/// The three operations that take headers.
enum class Operation { Get, Post, Patch };
Q_DECLARE_METATYPE(Operation)

namespace {

const char *const form = "application/x-www-form-urlencoded";

struct NamedOperation {
    const char *name;
    Operation operation;
    const char *defaultType;
};

const NamedOperation operations[] = {
    {"rawGet", Operation::Get, "application/json"},
    {"rawPost", Operation::Post, form},
    {"rawPath", Operation::Patch, "application/json"},
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

class tst_TarvisNetRawHeaders : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void registersContentType();
    void readsContentType_data();
    void readsContentType();
    void keepsTableOfTypes();
    void addsDefaults_data();
    void addsDefaults();
    void setsKnownHeaders_data();
    void setsKnownHeaders();
    void givenUserAgentKeepsTheClientsAway_data();
    void givenUserAgentKeepsTheClientsAway();
    void rawHeadersWin_data();
    void rawHeadersWin();
    void setsHeadersInOrder_data();
    void setsHeadersInOrder();

private:
    void addOperations();
    void call(Operation operation, const HeadersMap &headers,
              const RawHeadersMap &rawHeaders = RawHeadersMap());
    HttpRequest send(Operation operation, const HeadersMap &headers,
                     const RawHeadersMap &rawHeaders = RawHeadersMap());

    QScopedPointer<LogCapture> m_log;
    QScopedPointer<ScriptedServer> m_server;
    QScopedPointer<TarvisNet> m_client;
};

void tst_TarvisNetRawHeaders::init()
{
    m_log.reset(new LogCapture);
    m_server.reset(new ScriptedServer);
    m_server->onRequest(answers::withhold());
    m_client.reset(new TarvisNet);
}

void tst_TarvisNetRawHeaders::cleanup()
{
    m_client.reset();
    m_server.reset();
    m_log.reset();
}

void tst_TarvisNetRawHeaders::addOperations()
{
    QTest::addColumn<Operation>("operation");
    for (const NamedOperation &named : operations)
        QTest::newRow(named.name) << named.operation;
}

void tst_TarvisNetRawHeaders::call(Operation operation, const HeadersMap &headers,
                                   const RawHeadersMap &rawHeaders)
{
    const QUrl url = m_server->url("/there");
    switch (operation) {
    case Operation::Get:
        return m_client->rawGet(url, headers, rawHeaders);
    case Operation::Post:
        return m_client->rawPost(url, "body", headers, rawHeaders);
    case Operation::Patch:
        return m_client->rawPath(url, "body", headers, rawHeaders);
    }
}

/// The request as the server got it; an empty one when none came.
HttpRequest tst_TarvisNetRawHeaders::send(Operation operation, const HeadersMap &headers,
                                          const RawHeadersMap &rawHeaders)
{
    call(operation, headers, rawHeaders);
    return m_server->waitForRequests(1) ? m_server->requests().first() : HttpRequest();
}

void tst_TarvisNetRawHeaders::registersContentType()
{
    QCOMPARE(QMetaType::type("TarvisNet::ContentType"), qMetaTypeId<TarvisNet::ContentType>());
}

void tst_TarvisNetRawHeaders::readsContentType_data()
{
    QTest::addColumn<Operation>("operation");
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QByteArray>("contentType");
    for (const NamedOperation &named : operations) {
        for (const TypeRow &row : typeRows())
            QTest::addRow("%s, %s", named.name, row.name)
                << named.operation << row.value << row.contentType;
    }
}

void tst_TarvisNetRawHeaders::readsContentType()
{
    QFETCH(const Operation, operation);
    QFETCH(const QVariant, value);
    QFETCH(const QByteArray, contentType);
    const HttpRequest sent = send(operation, {{Known::ContentTypeHeader, value}});
    QVERIFY(!sent.method.isEmpty());
    QCOMPARE(running(*m_client).first()->request().rawHeader("Content-Type"), contentType);
    // Qt sends no POST without a type.
    const bool isQtsType = operation == Operation::Post && contentType.isEmpty();
    QCOMPARE(sent.header("content-type"), isQtsType ? QByteArray(form) : contentType);
    QCOMPARE(sent.header("user-agent"), m_client->getUserAgent().toLocal8Bit());
}

void tst_TarvisNetRawHeaders::keepsTableOfTypes()
{
    for (const QVariant &value : {QVariant(99), QVariant(99), QVariant("3")})
        call(Operation::Get, {{Known::ContentTypeHeader, value}});
    QVERIFY(m_server->waitForRequests(2));
    QByteArrayList types;
    for (const QNetworkReply *reply : running(*m_client))
        types.append(reply->request().rawHeader("Content-Type"));
    types.removeAll(QByteArray());
    QCOMPARE(types, QByteArrayList({"application/zip"}));
}

void tst_TarvisNetRawHeaders::addsDefaults_data()
{
    QTest::addColumn<Operation>("operation");
    QTest::addColumn<QByteArray>("contentType");
    for (const NamedOperation &named : operations)
        QTest::newRow(named.name) << named.operation << QByteArray(named.defaultType);
}

void tst_TarvisNetRawHeaders::addsDefaults()
{
    QFETCH(const Operation, operation);
    const HttpRequest sent = send(operation, {{Known::ServerHeader, "irrelevant"}});
    QTEST(sent.header("content-type"), "contentType");
    QCOMPARE(sent.header("user-agent"), m_client->getUserAgent().toLocal8Bit());
}

void tst_TarvisNetRawHeaders::setsKnownHeaders_data()
{
    QTest::addColumn<Operation>("operation");
    QTest::addColumn<Known>("header");
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<QByteArray>("text");
    const QList<QNetworkCookie> cookies = {QNetworkCookie("a", "1"), QNetworkCookie("b", "2")};
    for (const NamedOperation &named : operations) {
        const auto row = [&named](Known header, const QVariant &value, const char *name,
                                  const char *text) {
            QTest::addRow("%s, %s", named.name, name)
                << named.operation << header << value << QByteArray(name) << QByteArray(text);
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
    QTEST(send(operation, {{header, value}}).header(name), "text");
}

void tst_TarvisNetRawHeaders::givenUserAgentKeepsTheClientsAway_data()
{
    QTest::addColumn<Operation>("operation");
    QTest::addColumn<QVariant>("value");
    for (const NamedOperation &named : operations) {
        QTest::addRow("%s, empty text", named.name) << named.operation << QVariant(QString());
        QTest::addRow("%s, empty bytes", named.name) << named.operation << QVariant(QByteArray());
        QTest::addRow("%s, no value", named.name) << named.operation << QVariant();
        QTest::addRow("%s, text", named.name) << named.operation << QVariant("agent");
    }
}

// The client's own names the installation, which somebody may not want to tell everybody.
void tst_TarvisNetRawHeaders::givenUserAgentKeepsTheClientsAway()
{
    QFETCH(const Operation, operation);
    QFETCH(const QVariant, value);
    m_client->setVtxIdByText("installation");
    const QByteArray sent = send(operation, {{Known::UserAgentHeader, value}}).header("user-agent");
    QVERIFY(!sent.contains("TarvisNet"));
    QVERIFY(!sent.contains("installation"));
    if (!value.toString().isEmpty())
        QCOMPARE(sent, value.toByteArray());
}

void tst_TarvisNetRawHeaders::rawHeadersWin_data()
{
    addOperations();
}

void tst_TarvisNetRawHeaders::rawHeadersWin()
{
    QFETCH(const Operation, operation);
    const RawHeadersMap rawHeaders = {
        {"Content-Type", "raw/type"}, {"user-agent", "raw agent"}, {"X-Own", "own"}};
    const HttpRequest overDefaults = send(operation, HeadersMap(), rawHeaders);
    QCOMPARE(overDefaults.header("content-type"), QByteArray("raw/type"));
    QCOMPARE(overDefaults.header("user-agent"), QByteArray("raw agent"));
    QCOMPARE(overDefaults.header("x-own"), QByteArray("own"));

    call(operation,
         {{Known::ContentTypeHeader, QVariant::fromValue(TarvisNet::Zip)},
          {Known::UserAgentHeader, "known agent"}},
         rawHeaders);
    QVERIFY(m_server->waitForRequests(2));
    const HttpRequest overKnown = m_server->requests().last();
    QCOMPARE(overKnown.header("content-type"), QByteArray("raw/type"));
    QCOMPARE(overKnown.header("user-agent"), QByteArray("raw agent"));
}

void tst_TarvisNetRawHeaders::setsHeadersInOrder_data()
{
    addOperations();
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
    call(operation, headers, rawHeaders);
    const QNetworkRequest request = running(*m_client).first()->request();
    QCOMPARE(request.rawHeader("X-B"), QByteArray("last"));
    const QByteArrayList expected = {
        "Content-Type", "User-Agent", "Location", "Content-Disposition", "If-None-Match", "Server",
        "X-C",          "a",          "x-b"};
    QByteArrayList names = request.rawHeaderList();
    // Qt adds the length of a body.
    names.removeAll("Content-Length");
    QCOMPARE(names, expected);
}

QTEST_GUILESS_MAIN(tst_TarvisNetRawHeaders)

#include "tst_tarvisnet_raw_headers.moc"
