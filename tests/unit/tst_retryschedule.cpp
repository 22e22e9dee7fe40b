#include "retryschedule_p.h"
#include "testclass.h"

#include <QtCore/QMetaEnum>
#include <QtTest/QTest>

#include <algorithm>
#include <iterator>
#include <limits>

Q_DECLARE_METATYPE(std::optional<qint64>)

namespace tst_retryschedule {

namespace {

const int passingStatuses[] = {408, 425, 429, 500, 502, 503, 504};

const QNetworkReply::NetworkError passingErrors[] = {
    QNetworkReply::ConnectionRefusedError,
    QNetworkReply::RemoteHostClosedError,
    QNetworkReply::HostNotFoundError,
    QNetworkReply::TimeoutError,
    QNetworkReply::TemporaryNetworkFailureError,
    QNetworkReply::NetworkSessionFailedError,
    QNetworkReply::ProxyConnectionRefusedError,
    QNetworkReply::ProxyConnectionClosedError,
    QNetworkReply::ProxyTimeoutError,
    QNetworkReply::UnknownNetworkError,
};

const QNetworkReply::NetworkError streamErrors[] = {
    QNetworkReply::ContentReSendError,
    QNetworkReply::ProtocolFailure,
    QNetworkReply::InternalServerError,
    QNetworkReply::UnknownServerError,
};

template <typename Values, typename Value>
bool contains(const Values &values, Value value)
{
    return std::find(std::begin(values), std::end(values), value) != std::end(values);
}

constexpr int thirtySeconds = 30 * 1000;
constexpr int greatestInt = std::numeric_limits<int>::max();

} // namespace

class tst_RetrySchedule : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void errorPasses_data();
    void errorPasses();
    void statusPasses_data();
    void statusPasses();
    void waits_data();
    void waits();
    void retryAfter_data();
    void retryAfter();
};

void tst_RetrySchedule::errorPasses_data()
{
    QTest::addColumn<QNetworkReply::NetworkError>("error");
    const auto errors = QMetaEnum::fromType<QNetworkReply::NetworkError>();
    for (int i = 0; i < errors.keyCount(); ++i)
        QTest::newRow(errors.key(i)) << QNetworkReply::NetworkError(errors.value(i));
}

void tst_RetrySchedule::errorPasses()
{
    QFETCH(const QNetworkReply::NetworkError, error);
    const bool isOfStream = contains(streamErrors, error);
    QCOMPARE(retryschedule::mayPass(error, 0), isOfStream || contains(passingErrors, error));
    QCOMPARE(retryschedule::mayPass(error, 200), isOfStream || contains(passingErrors, error));
    QCOMPARE(retryschedule::mayPass(error, 404), contains(passingErrors, error));
    QVERIFY(retryschedule::mayPass(error, 503));
}

void tst_RetrySchedule::statusPasses_data()
{
    QTest::addColumn<int>("status");
    for (int status = 100; status < 600; ++status)
        QTest::addRow("%d", status) << status;
}

void tst_RetrySchedule::statusPasses()
{
    QFETCH(const int, status);
    QCOMPARE(retryschedule::mayPass(QNetworkReply::NoError, status),
             contains(passingStatuses, status));
    QVERIFY(retryschedule::mayPass(QNetworkReply::RemoteHostClosedError, status));
}

void tst_RetrySchedule::waits_data()
{
    QTest::addColumn<int>("firstMsec");
    QTest::addColumn<int>("retries");
    QTest::addColumn<double>("chance");
    QTest::addColumn<int>("msec");
    const auto row = [](const char *name, int firstMsec, int retries, double chance, int msec) {
        QTest::newRow(name) << firstMsec << retries << chance << msec;
    };
    row("first", 500, 0, 0, 500);
    row("second", 500, 1, 0, 1000);
    row("third", 500, 2, 0, 2000);
    row("before the longest", 500, 5, 0, 16000);
    row("longest", 500, 6, 0, thirtySeconds);
    row("after the longest", 500, 7, 0, thirtySeconds);
    row("retries without end", 500, greatestInt, 0, thirtySeconds);
    row("chance takes some", 500, 0, 0.5, 375);
    row("chance takes half", 500, 0, 0.999, 251);
    row("chance takes half of the longest", 500, 6, 0.999, 15015);
    row("at once", 0, 0, 0, 0);
    row("always at once", 0, greatestInt, 0.999, 0);
    row("negative", -500, 0, 0, 0);
    row("negative, later", -500, 3, 0.999, 0);
    row("first is the longest", thirtySeconds, 0, 0, thirtySeconds);
    row("first is too long", greatestInt, 0, 0, thirtySeconds);
    row("first is too long, later", greatestInt, 3, 0, thirtySeconds);
}

void tst_RetrySchedule::waits()
{
    QFETCH(const int, firstMsec);
    QFETCH(const int, retries);
    QFETCH(const double, chance);
    QTEST(retryschedule::waitMsec(firstMsec, retries, chance), "msec");
}

void tst_RetrySchedule::retryAfter_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<std::optional<qint64>>("seconds");
    const auto number = [](const char *text, qint64 seconds) {
        QTest::newRow(text) << QByteArray(text) << std::optional<qint64>(seconds);
    };
    const auto garbage = [](const char *text) {
        QTest::newRow(text) << QByteArray(text) << std::optional<qint64>();
    };
    number("0", 0);
    number("7", 7);
    number(" 7 ", 7);
    number("007", 7);
    number("301", 301);
    number("9223372036854775807", std::numeric_limits<qint64>::max());
    number("-1", 0);
    number("Sun, 06 Nov 1994 08:49:37 GMT", 0);
    number("Sun, 06 Nov 1994 08:49:40 GMT", 3);
    number(" Sun, 06 Nov 1994 08:49:40 GMT ", 3);
    number("Mon, 07 Nov 1994 08:49:37 GMT", 24 * 60 * 60);
    number("Sun, 06 Nov 1994 08:49:36 GMT", 0);
    number("Sat, 06 Nov 1993 08:49:37 GMT", 0);
    garbage("");
    garbage(" ");
    garbage("soon");
    garbage("7s");
    garbage("7.5");
    garbage("0x7");
    garbage("1 2");
    garbage("Sun, 06 Nov 1994 08:49:40");
    garbage("Sun, 06 Nov 1994 08:49:40 CET");
    garbage("Sun, 31 Feb 1994 08:49:40 GMT");
    garbage("1994-11-06T08:49:40Z");
}

void tst_RetrySchedule::retryAfter()
{
    QFETCH(const QByteArray, text);
    const QDateTime now(QDate(1994, 11, 6), QTime(8, 49, 37), Qt::UTC);
    QTEST(retryschedule::retryAfter(text, now), "seconds");
}

const TestClass<tst_RetrySchedule> testClass("tst_retryschedule");

} // namespace tst_retryschedule

#include "tst_retryschedule.moc"
