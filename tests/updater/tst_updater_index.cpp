#include "remotefile.h"

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtTest/QTest>

/// What the updater makes of an index document, which comes from outside.
class tst_updater_index : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void takesFiles();
    void nameIsOptional();
    void otherDocuments_data();
    void otherDocuments();
    void leavesOutBadEntries_data();
    void leavesOutBadEntries();
};

namespace {

QJsonObject manual()
{
    return {{"name", "manual.pdf"}, {"path", "/files/m.pdf"}, {"size", 300}, {"sha256", "abc"}};
}

QJsonObject dataset()
{
    return {{"name", "data.bin"}, {"path", "/files/d.bin"}, {"size", 5e12}};
}

QVector<RemoteFile> filesOf(const QJsonArray &entries, QStringList *faults)
{
    return filesOfIndex(QJsonDocument(QJsonObject{{"files", entries}}), faults);
}

} // namespace

void tst_updater_index::takesFiles()
{
    QStringList faults;
    const QVector<RemoteFile> files = filesOf({manual(), dataset()}, &faults);
    QCOMPARE(faults, QStringList());
    QCOMPARE(files.size(), 2);
    QVERIFY(files.at(0) == (RemoteFile{"manual.pdf", "/files/m.pdf", 300, "abc"}));
    QVERIFY(files.at(1) == (RemoteFile{"data.bin", "/files/d.bin", 5000000000000, QString()}));
}

void tst_updater_index::nameIsOptional()
{
    QStringList faults;
    const QVector<RemoteFile> files =
        filesOf({QJsonObject{{"path", "/deep/folder/x.zip"}, {"size", 1}}}, &faults);
    QCOMPARE(files.size(), 1);
    QCOMPARE(files.first().name, QString("x.zip"));
}

void tst_updater_index::otherDocuments_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::newRow("nothing") << QByteArray("{}");
    QTest::newRow("array") << QByteArray("[1, 2]");
    QTest::newRow("files are a text") << QByteArray(R"({"files": "all"})");
    QTest::newRow("no files") << QByteArray(R"({"files": []})");
}

void tst_updater_index::otherDocuments()
{
    QFETCH(QByteArray, json);
    QStringList faults;
    QVERIFY(filesOfIndex(QJsonDocument::fromJson(json), &faults).isEmpty());
    QCOMPARE(faults, QStringList());
}

void tst_updater_index::leavesOutBadEntries_data()
{
    QTest::addColumn<QJsonObject>("change");
    QTest::addColumn<QString>("reason");

    const QString name = "its name is not that of a file";
    const QString path = "it has no absolute path";
    const QString size = "its size is not known";
    const QString taken = "its name or path is there already";
    QTest::newRow("relative path") << QJsonObject{{"path", "files/x"}} << path;
    QTest::newRow("no path") << QJsonObject{{"path", QJsonValue()}} << path;
    QTest::newRow("path is a folder")
        << QJsonObject{{"name", QJsonValue()}, {"path", "/x/"}} << name;
    QTest::newRow("parent folder") << QJsonObject{{"name", "../x"}} << name;
    QTest::newRow("absolute name") << QJsonObject{{"name", "/etc/x"}} << name;
    QTest::newRow("dot") << QJsonObject{{"name", "."}} << name;
    QTest::newRow("dots") << QJsonObject{{"name", ".."}} << name;
    QTest::newRow("backslash") << QJsonObject{{"name", "..\\x"}} << name;
    QTest::newRow("no name") << QJsonObject{{"name", ""}} << name;
    QTest::newRow("no size") << QJsonObject{{"size", QJsonValue()}} << size;
    QTest::newRow("size 0") << QJsonObject{{"size", 0}} << size;
    QTest::newRow("negative size") << QJsonObject{{"size", -5}} << size;
    QTest::newRow("size beyond all files") << QJsonObject{{"size", 1e300}} << size;
    QTest::newRow("name twice") << QJsonObject{{"name", "manual.pdf"}} << taken;
    QTest::newRow("path twice") << QJsonObject{{"path", "/files/m.pdf"}} << taken;
}

void tst_updater_index::leavesOutBadEntries()
{
    QFETCH(QJsonObject, change);
    QFETCH(QString, reason);

    QJsonObject bad = dataset();
    for (auto field = change.begin(); field != change.end(); ++field)
        bad.insert(field.key(), field.value());
    QStringList faults;
    const QVector<RemoteFile> files = filesOf({manual(), bad}, &faults);
    QCOMPARE(faults, QStringList("File 2 of the index is left out: " + reason));
    QCOMPARE(files.size(), 1);
    QCOMPARE(files.first().name, QString("manual.pdf"));
}

QTEST_GUILESS_MAIN(tst_updater_index)
#include "tst_updater_index.moc"
