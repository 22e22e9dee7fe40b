#include "fakereply.h"
#include "onqt6.h"
#include "signalrecorder.h"
#include "testclass.h"

#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtCore/QTimer>
#include <QtTest/QTest>

namespace tst_signalrecorder {

using HeaderPairs = QList<QNetworkReply::RawHeaderPair>;

class Speaker : public QObject {
    Q_OBJECT

public:
    using QObject::QObject;
    ~Speaker() override { Q_EMIT plain(); }

Q_SIGNALS:
    void plain();
    void numbers(short small, double real, qlonglong large);
    void texts(QString text, QByteArray bytes);
    void document(QJsonDocument document);
    void headerPairs(QList<QNetworkReply::RawHeaderPair> pairs);
    void anything(QVariant value);
    void withDefaults(short code, QString url = QString(), QJsonDocument data = QJsonDocument());
};

class tst_SignalRecorder : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void keepsTheOrder();
    void keepsArgumentsOfEveryType();
    void recordsDefaultArgumentsOnce();
    void recordsInheritedSignals();
    void leavesOutTheSignalsOfEveryObject();
    void filters();
    void survivesDeletionInsideAnEmission_data();
    void survivesDeletionInsideAnEmission();
    void ordersAcrossRecorders();
    void waitsForEmissions();
    void waitsMayBeNested();
};

void tst_SignalRecorder::keepsTheOrder()
{
    Speaker speaker;
    SignalRecorder recorder(&speaker);
    Q_EMIT speaker.anything(1);
    Q_EMIT speaker.plain();
    Q_EMIT speaker.anything(2);

    QCOMPARE(recorder.names(), QStringList({"anything", "plain", "anything"}));
    QCOMPARE(recorder.calls().size(), 3);
    QCOMPARE(recorder.calls().at(2).name, QString("anything"));
    QCOMPARE(recorder.calls().at(2).args, QVariantList({2}));
    QCOMPARE(recorder.of("anything"), QList<QVariantList>({{1}, {2}}));
    QCOMPARE(recorder.count("anything"), 2);
    QCOMPARE(recorder.last("anything"), QVariantList({2}));
    QCOMPARE(recorder.count("texts"), 0);
    QVERIFY(recorder.last("texts").isEmpty());

    recorder.clear();
    QVERIFY(recorder.names().isEmpty());
    QCOMPARE(recorder.count("anything"), 0);
}

void tst_SignalRecorder::keepsArgumentsOfEveryType()
{
    const QJsonDocument document(QJsonObject{{"key", "value"}});
    const HeaderPairs pairs{{"Name", "value"}, {"Other", ""}};

    Speaker speaker;
    SignalRecorder recorder(&speaker);
    Q_EMIT speaker.numbers(-207, 12.5, Q_INT64_C(5000000000));
    Q_EMIT speaker.texts("text", QByteArray("by\0tes", 6));
    Q_EMIT speaker.document(document);
    Q_EMIT speaker.headerPairs(pairs);
    Q_EMIT speaker.anything(QVariant("inner"));

    QCOMPARE(recorder.last("numbers"),
             QVariantList({QVariant::fromValue(short(-207)), 12.5, Q_INT64_C(5000000000)}));
    QCOMPARE(recorder.last("texts"), QVariantList({"text", QByteArray("by\0tes", 6)}));
    QCOMPARE(recorder.last("document").at(0).toJsonDocument(), document);
    QCOMPARE(recorder.last("headerPairs").at(0).value<HeaderPairs>(), pairs);
    QCOMPARE(recorder.last("anything"), QVariantList({"inner"}));
}

void tst_SignalRecorder::recordsDefaultArgumentsOnce()
{
    Speaker speaker;
    SignalRecorder recorder(&speaker);
    Q_EMIT speaker.withDefaults(3);

    QCOMPARE(recorder.names(), QStringList("withDefaults"));
    QCOMPARE(recorder.last("withDefaults").size(), 3);
    QCOMPARE(recorder.last("withDefaults").at(0).toInt(), 3);
    QCOMPARE(recorder.last("withDefaults").at(2).toJsonDocument(), QJsonDocument());
}

void tst_SignalRecorder::recordsInheritedSignals()
{
    FakeReply reply;
    SignalRecorder recorder(&reply);
    reply.fail(QNetworkReply::ContentNotFoundError);
    reply.finish();
    Q_EMIT reply.downloadProgress(1, 2);

    QStringList expected{"errorOccurred", "finished", "downloadProgress"};
    if (!onQt6)
        expected.prepend("error");
    QCOMPARE(recorder.names(), expected);
    QCOMPARE(recorder.last("errorOccurred").at(0).value<QNetworkReply::NetworkError>(),
             QNetworkReply::ContentNotFoundError);
    QCOMPARE(recorder.last("downloadProgress"), QVariantList({1ll, 2ll}));
}

void tst_SignalRecorder::leavesOutTheSignalsOfEveryObject()
{
    auto *const object = new QObject;
    SignalRecorder recorder(object);
    object->setObjectName("name");
    delete object;

    QVERIFY(recorder.names().isEmpty());
}

void tst_SignalRecorder::filters()
{
    Speaker speaker;
    SignalRecorder recorder(&speaker, {"texts", "objectNameChanged"});
    Q_EMIT speaker.plain();
    Q_EMIT speaker.texts("text", "bytes");
    speaker.setObjectName("name");

    QCOMPARE(recorder.names(), QStringList({"texts", "objectNameChanged"}));
}

void tst_SignalRecorder::survivesDeletionInsideAnEmission_data()
{
    QTest::addColumn<bool>("recorderFirst");
    QTest::addColumn<QStringList>("names");
    // The destructor emits as well.
    QTest::newRow("recorder told first") << true << QStringList({"document", "plain"});
    QTest::newRow("deleted before") << false << QStringList("plain");
}

void tst_SignalRecorder::survivesDeletionInsideAnEmission()
{
    QFETCH(bool, recorderFirst);
    QFETCH(QStringList, names);

    auto *const speaker = new Speaker;
    const auto deleteInside = [speaker] {
        connect(speaker, &Speaker::document, [speaker] { delete speaker; });
    };
    if (!recorderFirst)
        deleteInside();
    SignalRecorder recorder(speaker);
    if (recorderFirst)
        deleteInside();
    Q_EMIT speaker->document(QJsonDocument());

    QCOMPARE(recorder.names(), names);
}

void tst_SignalRecorder::ordersAcrossRecorders()
{
    Speaker left;
    Speaker right;
    SignalRecorder leftRecorder(&left);
    SignalRecorder rightRecorder(&right);
    Q_EMIT left.plain();
    Q_EMIT right.plain();
    Q_EMIT left.plain();

    const quint64 middle = rightRecorder.calls().first().order;
    QVERIFY(leftRecorder.calls().first().order < middle);
    QVERIFY(middle < leftRecorder.calls().last().order);
}

void tst_SignalRecorder::waitsForEmissions()
{
    Speaker speaker;
    SignalRecorder recorder(&speaker);
    QTimer timer;
    connect(&timer, &QTimer::timeout, &speaker, &Speaker::plain);
    timer.start(0);

    QVERIFY(recorder.waitFor("plain", 3));
    QCOMPARE(recorder.count("plain"), 3);
    // What is there already is not waited for: the event loop does not run.
    QVERIFY(recorder.waitFor("plain", 2));
    QCOMPARE(recorder.count("plain"), 3);
    QVERIFY(!recorder.waitFor("texts", 1, 0));
}

void tst_SignalRecorder::waitsMayBeNested()
{
    Speaker speaker;
    SignalRecorder recorder(&speaker);
    bool innerReached = false;
    connect(&speaker, &Speaker::document, this, [&] {
        QTimer::singleShot(0, &speaker, [&speaker] { Q_EMIT speaker.anything(1); });
        innerReached = recorder.waitFor("anything");
    });
    QTimer::singleShot(0, &speaker, [&speaker] { Q_EMIT speaker.document(QJsonDocument()); });

    QVERIFY(recorder.waitFor("document"));
    QVERIFY(innerReached);
}

const TestClass<tst_SignalRecorder> testClass("tst_signalrecorder");

} // namespace tst_signalrecorder

#include "tst_signalrecorder.moc"
