#include "logcapture.h"
#include "recordfields.h"

#include <tarvisnet/errorcodes.h>
#include <tarvisnet/records.h>
#include <tarvisnet/tarvisnet.h>

#include <QtNetwork/QSslConfiguration>
#include <QtTest/QTest>

#include <algorithm>
#include <cstring>
#include <functional>
#include <iterator>
#include <type_traits>
#include <utility>

Q_DECLARE_METATYPE(QLatin1String)

static_assert(std::is_same_v<HeadersMap, QMap<QNetworkRequest::KnownHeaders, QVariant>>);
static_assert(std::is_same_v<RawHeadersMap, QMap<QByteArray, QByteArray>>);
static_assert(std::is_same_v<decltype(errorcodes::network_error), const short>);

namespace {

bool ascend(const QVector<const void *> &addresses)
{
    return std::is_sorted(addresses.begin(), addresses.end(), std::less<>());
}

} // namespace

class tst_Records : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void contentTypeTravelsInAHeadersMap();
    void constants_data();
    void constants();
    void values_data();
    void values();
    void newAndClearedRecordsAreEmpty_data();
    void newAndClearedRecordsAreEmpty();
    void newPlainRecordsAreEmpty();
    void fieldsStandInTheirOrder();
    void equality_data();
    void equality();
    void bodiesCompareByteWise();
    void requestsCompareWithoutTheirSslConfiguration();
    void theOrderOfFillingDoesNotMatter();
    void copies();
    void moves();
    void recordsTravelInVariants();
};

// First of all, because a use of the type by its C++ name would register it too.
void tst_Records::initTestCase()
{
    QCOMPARE(QMetaType::type("TarvisNet::ContentType"), int(QMetaType::UnknownType));
    const LogCapture log;
    const TarvisNet client;
    const int type = QMetaType::type("TarvisNet::ContentType");
    QVERIFY(type != QMetaType::UnknownType);
    QCOMPARE(qMetaTypeId<TarvisNet::ContentType>(), type);
    QCOMPARE(QMetaType::typeName(type), "TarvisNet::ContentType");
}

void tst_Records::contentTypeTravelsInAHeadersMap()
{
    HeadersMap headers;
    headers[QNetworkRequest::ContentTypeHeader] = QVariant::fromValue(TarvisNet::Pdf);

    const QVariant value = HeadersMap(headers).value(QNetworkRequest::ContentTypeHeader);
    QCOMPARE(value.typeName(), "TarvisNet::ContentType");
    QCOMPARE(value.value<TarvisNet::ContentType>(), TarvisNet::Pdf);
    QCOMPARE(QVariant(4).value<TarvisNet::ContentType>(), TarvisNet::Pdf);
}

void tst_Records::constants_data()
{
    QTest::addColumn<QLatin1String>("constant");
    QTest::addColumn<QString>("text");
    QTest::newRow("remote_definition") << replies::remote_definition << "remoteDefinition";
    QTest::newRow("remote_index") << replies::remote_index << "remoteIndex";
    QTest::newRow("remote_installer") << replies::remote_installer << "remoteInstaller";
    QTest::newRow("remote_installer_log")
        << replies::remote_installer_log << "remoteInstallerChangeLog";
    QTest::newRow("remote_installer_sum")
        << replies::remote_installer_sum << "remoteInstallerCheckSum";
    QTest::newRow("remote_binary") << replies::remote_binary << "remoteBinary";
    QTest::newRow("raw_get") << replies::raw_get << "rawGet";
    QTest::newRow("raw_post") << replies::raw_post << "rawPost";
    QTest::newRow("raw_patch") << replies::raw_patch << "rawPatch";
    QTest::newRow("raw_delete") << replies::raw_delete << "rawDelete";
    QTest::newRow("raw_get_file") << replies::raw_get_file << "rawGetFile";
    QTest::newRow("raw_post_file") << replies::raw_post_file << "rawPostFile";
    QTest::newRow("redirect_reply") << replies::redirect_reply << "redirectReply";
    QTest::newRow("plain") << mime::plain << "text/plain";
    QTest::newRow("pdf") << mime::pdf << "application/pdf";
    QTest::newRow("zip") << mime::zip << "application/zip";
    QTest::newRow("xml") << mime::xml << "application/xml";
    QTest::newRow("json") << mime::json << "application/json";
    QTest::newRow("wwwForm") << mime::wwwForm << "application/x-www-form-urlencoded";
    QTest::newRow("temp_file_suffix") << general::temp_file_suffix << "vtxdownload";
    QTest::newRow("default_id_type") << general::default_id_type << "vtxid";
    QTest::newRow("default_app_version") << general::default_app_version << "0.0.0";
    QTest::newRow("default_app_name") << general::default_app_name << "Vextor-Tarvis";
}

void tst_Records::constants()
{
    QFETCH(QLatin1String, constant);
    QFETCH(QString, text);
    QCOMPARE(QString(constant), text);
    QCOMPARE(constant.size(), int(std::strlen(constant.data())));
}

void tst_Records::values_data()
{
    QTest::addColumn<short>("value");
    QTest::addColumn<int>("expected");
    QTest::newRow("WwwForm") << short(TarvisNet::WwwForm) << 0;
    QTest::newRow("Json") << short(TarvisNet::Json) << 1;
    QTest::newRow("Xml") << short(TarvisNet::Xml) << 2;
    QTest::newRow("Zip") << short(TarvisNet::Zip) << 3;
    QTest::newRow("Pdf") << short(TarvisNet::Pdf) << 4;
    QTest::newRow("Plain") << short(TarvisNet::Plain) << 5;
    QTest::newRow("ssl_error_list_empty") << errorcodes::ssl_error_list_empty << -201;
    QTest::newRow("network_error") << errorcodes::network_error << -203;
    QTest::newRow("invalid_url") << errorcodes::invalid_url << -207;
    QTest::newRow("file_open_failed") << errorcodes::file_open_failed << -210;
    QTest::newRow("authentication_required") << errorcodes::authentication_required << -213;
    QTest::newRow("unknown_reply") << errorcodes::unknown_reply << -215;
    QTest::newRow("unknown_network_error") << errorcodes::unknown_network_error << -216;
    QTest::newRow("content_not_found") << errorcodes::content_not_found << -217;
    QTest::newRow("file_not_completed") << errorcodes::file_not_completed << -218;
    QTest::newRow("queue_locked") << errorcodes::queue_locked << -219;
    QTest::newRow("protocol_invalid_operation") << errorcodes::protocol_invalid_operation << -220;
    QTest::newRow("already_pending") << errorcodes::already_pending << -221;
    QTest::newRow("ssl_handshake_failed") << errorcodes::ssl_handshake_failed << -222;
}

void tst_Records::values()
{
    QFETCH(short, value);
    QFETCH(int, expected);
    QCOMPARE(int(value), expected);
}

void tst_Records::newAndClearedRecordsAreEmpty_data()
{
    QTest::addColumn<ReplyData>("record");
    ReplyData cleared = recordfields::filled(1);
    cleared.request.setRawHeader("Accept", "text/plain");
    cleared.clear();
    QTest::newRow("new") << ReplyData();
    QTest::newRow("cleared") << cleared;
}

void tst_Records::newAndClearedRecordsAreEmpty()
{
    QFETCH(ReplyData, record);
    QCOMPARE(record.tag, 0);
    QCOMPARE(record.replyType, QString());
    QCOMPARE(record.data, QByteArray());
    QCOMPARE(record.fileData.filePath, QString());
    QCOMPARE(record.fileData.tempFilePath, QString());
    QCOMPARE(record.fileData.hash, QString());
    QCOMPARE(record.fileData.size, quint64(0));
    QCOMPARE(record.fileData.resumeOffset, qint64(0));
    QCOMPARE(record.request, QNetworkRequest(QUrl()));
    QVERIFY(!record.directReply);
    QVERIFY(record == ReplyData());
}

void tst_Records::newPlainRecordsAreEmpty()
{
    const FileData file;
    const ApplicationData application;
    const SystemInfoData system;
    const User user;
    const RemotePath path;
    const QStringList texts = {file.filePath,
                               file.tempFilePath,
                               file.hash,
                               application.id,
                               application.version,
                               application.name,
                               system.architecture,
                               system.system,
                               system.version,
                               user.serverHost,
                               user.serverPort,
                               user.userName,
                               user.userPassword,
                               user.url,
                               path.definitionPath,
                               path.indexPath,
                               path.installerPath,
                               path.installerCheckSumPath,
                               path.installerChangeLogPath};
    QCOMPARE(texts.join(QString()), QString());
    QCOMPARE(file.size, quint64(0));
    QCOMPARE(file.resumeOffset, qint64(0));
}

void tst_Records::fieldsStandInTheirOrder()
{
    const ReplyData reply;
    QVERIFY(ascend({&reply.tag, &reply.replyType, &reply.data, &reply.fileData, &reply.request,
                    &reply.directReply}));
    const FileData file;
    QVERIFY(
        ascend({&file.filePath, &file.tempFilePath, &file.hash, &file.size, &file.resumeOffset}));
    const ApplicationData application;
    QVERIFY(ascend({&application.id, &application.version, &application.name}));
    const SystemInfoData system;
    QVERIFY(ascend({&system.architecture, &system.system, &system.version}));
    const User user;
    QVERIFY(ascend(
        {&user.serverHost, &user.serverPort, &user.userName, &user.userPassword, &user.url}));
    const RemotePath path;
    QVERIFY(ascend({&path.definitionPath, &path.indexPath, &path.installerPath,
                    &path.installerCheckSumPath, &path.installerChangeLogPath}));
}

void tst_Records::equality_data()
{
    QTest::addColumn<int>("field");
    for (int field = 0; field < int(std::size(recordfields::all)); ++field)
        QTest::newRow(recordfields::all[field].name) << field;
}

void tst_Records::equality()
{
    QFETCH(int, field);
    ReplyData left = recordfields::filled(1);
    const ReplyData right = recordfields::filled(1);
    QVERIFY(left == right);

    recordfields::all[field].set(left, 2);
    QVERIFY(!(left == right));
    QVERIFY(!(right == left));
    QVERIFY(left != right);
    QVERIFY(right != left);

    recordfields::all[field].set(left, 1);
    QVERIFY(left == right);
    QVERIFY(!(left != right));

    // Against an empty record, where no other field is there to tell the difference.
    ReplyData record;
    recordfields::all[field].set(record, 1);
    QVERIFY(!(record == ReplyData()));
    QVERIFY(!(ReplyData() == record));
    record.clear();
    QVERIFY(record == ReplyData());
    QVERIFY(!(record != ReplyData()));
}

void tst_Records::bodiesCompareByteWise()
{
    ReplyData left;
    ReplyData right;
    left.data = QByteArray("a\0b", 3);
    right.data = QByteArray("a\0c", 3);
    QVERIFY(left != right);
    right.data = QByteArray("a\0b", 3);
    QVERIFY(left == right);
}

void tst_Records::requestsCompareWithoutTheirSslConfiguration()
{
    ReplyData left = recordfields::filled(1);
    ReplyData right = recordfields::filled(1);
    QSslConfiguration configuration;
    configuration.setPeerVerifyDepth(7);
    left.request.setSslConfiguration(configuration);
    QVERIFY(left == right);

    right.request.setRawHeader("Accept", "text/plain");
    QVERIFY(left != right);
    left.request.setRawHeader("Accept", "text/plain");
    QVERIFY(left == right);
    left.request.setAttribute(QNetworkRequest::User, 1);
    QVERIFY(left != right);
}

void tst_Records::theOrderOfFillingDoesNotMatter()
{
    ReplyData backwards;
    std::for_each(std::rbegin(recordfields::all), std::rend(recordfields::all),
                  [&backwards](const recordfields::Field &field) { field.set(backwards, 3); });
    QVERIFY(backwards == recordfields::filled(3));
}

void tst_Records::copies()
{
    ReplyData original = recordfields::filled(1);
    const ReplyData constructed(original);
    ReplyData assigned = recordfields::filled(2);
    assigned = original;
    const ReplyData &alias = assigned;
    assigned = alias;
    original.clear();
    QVERIFY(constructed == recordfields::filled(1));
    QVERIFY(assigned == recordfields::filled(1));

    FileData file;
    file = FileData(assigned.fileData);
    assigned.fileData = file;
    QVERIFY(assigned == recordfields::filled(1));
}

void tst_Records::moves()
{
    ReplyData source = recordfields::filled(1);
    ReplyData constructed(std::move(source));
    QVERIFY(constructed == recordfields::filled(1));

    ReplyData assigned = recordfields::filled(2);
    assigned = std::move(constructed);
    QVERIFY(assigned == recordfields::filled(1));
}

void tst_Records::recordsTravelInVariants()
{
    const ReplyData record = recordfields::filled(1);
    QVERIFY(QVariant::fromValue(record).value<ReplyData>() == record);
    const QVariant file = QVariant::fromValue(record.fileData);
    QCOMPARE(file.value<FileData>().filePath, record.fileData.filePath);
}

QTEST_GUILESS_MAIN(tst_Records)

#include "tst_records.moc"
