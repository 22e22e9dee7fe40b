#include "stage.h"

#include "answers.h"
#include "files.h"

#include <tarvisnet/errorcodes.h>

#include <QtCore/QDir>
#include <QtCore/QDirIterator>

namespace {

using Mode = ScriptedServer::Mode;

/// The first two are used most.
constexpr Mode modes[] = {Mode::Http, Mode::Https, Mode::MuteTls, Mode::CloseAfterClientHello};
constexpr int modeWeights[] = {0, 0, 0, 0, 1, 1, 1, 1, 1, 2, 3, 4};

/// Where temporary files go, downloads go, and nothing may go.
constexpr int temporaryDirectories = 2;
const char sentinel[] = "nobody may touch this";

/// The path of request \a number after \a hop redirects, as the ledger knows it.
QString pathOf(int number, int hop)
{
    const QString path = QStringLiteral("/r%1").arg(number);
    return hop == 0 ? path : path + QStringLiteral("/h%1").arg(hop);
}

QVector<short> clientCodes(bool isFile)
{
    using namespace errorcodes;
    QVector<short> codes = {network_error,     authentication_required,    unknown_network_error,
                            content_not_found, protocol_invalid_operation, ssl_handshake_failed};
    if (isFile)
        codes += {file_open_failed, file_not_completed};
    return codes;
}

QVector<short> processorCodes(const Draft &draft)
{
    using namespace errorcodes;
    QVector<short> codes = {network_error, unknown_network_error, content_not_found};
    if (draft.isFile)
        codes.append(file_open_failed);
    if (!*draft.result)
        codes.append(unknown_reply);
    return codes;
}

} // namespace

Stage::Stage(Dice &dice)
    : m_closedPort(ScriptedServer::freePort())
{
    makeDirectories();
    for (const Mode mode : modes)
        m_servers.push_back(std::make_unique<ScriptedServer>(mode));
    for (const auto &server : m_servers)
        server->on("/", behaviours::draw(dice).make(dice, "root"));
    m_honest.on("/marker", answers::json({{"marker", 1}}));
    makeClient();
    makeProcessor();
}

Stage::~Stage()
{
    deleteClient();
    deleteProcessor();
}

void Stage::makeDirectories()
{
    for (const char *name : {"temporary0", "temporary1", "out", "system", "home", "current"})
        QDir(m_directory.path()).mkpath(QString::fromLatin1(name));
    for (const char *name : {"sentinel", "out/sentinel", "temporary0/sentinel.vtxdownload"})
        files::write(m_directory.filePath(QString::fromLatin1(name)), sentinel);
    // What escapes lands where it is seen.
    qputenv("TMPDIR", m_directory.filePath(QStringLiteral("system")).toLocal8Bit());
    qputenv("HOME", m_directory.filePath(QStringLiteral("home")).toLocal8Bit());
    QDir::setCurrent(m_directory.filePath(QStringLiteral("current")));
}

QString Stage::directory(int number) const
{
    if (number >= temporaryDirectories)
        return QString();
    return m_directory.filePath(QStringLiteral("temporary%1").arg(number));
}

// With it goes the temporary file, in every directory that may be the temporary one.
QString Stage::named(const QString &name)
{
    const QString path = m_directory.filePath(QStringLiteral("out/") + name);
    m_named.insert(path);
    for (const char *place : {"temporary0/", "temporary1/", "system/"})
        m_named.insert(
            m_directory.filePath(QLatin1String(place) + name + QStringLiteral(".vtxdownload")));
    return path;
}

QStringList Stage::strayFiles() const
{
    QStringList strays;
    QDirIterator walk(m_directory.path(), QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    int sentinels = 0;
    while (walk.hasNext()) {
        const QString path = walk.next();
        if (walk.fileName().startsWith(QLatin1String("sentinel")))
            sentinels += files::read(path) == sentinel ? 1 : 0;
        else if (!m_named.contains(path))
            strays.append(path);
    }
    if (sentinels != 3)
        strays.append(QStringLiteral("a sentinel was touched"));
    return strays;
}

void Stage::makeClient()
{
    m_client = new TarvisNet;
    m_manager = m_client->getCoockies()->parent();
    m_clientNumber = ++m_owners;
    m_client->setServerHost(QStringLiteral("127.0.0.1"));
    m_client->setServerPort(QString::number(secureServer().port()));
    m_client->setTemporaryDirectory(directory(0));
    followClient(m_clientNumber);
}

void Stage::makeProcessor()
{
    m_processor = new NetworkProcessor;
    m_processorNumber = ++m_owners;
    followProcessor(m_processorNumber);
}

void Stage::entered()
{
    if (onSignal)
        onSignal();
}

void Stage::followClient(int owner)
{
    const auto enter = [this, owner](const char *signal, const QString &url) {
        m_ledger.addResult(owner, signal, url);
        entered();
    };
    using T = TarvisNet;
    connect(m_client, &T::s_fetchDefinition, this,
            [enter](const QJsonDocument &, const QString &url) { enter("definition", url); });
    connect(m_client, &T::s_fetchIndex, this,
            [enter](const QJsonDocument &, const QString &url) { enter("index", url); });
    connect(m_client, &T::s_fetchInstallerChangeLogData, this,
            [enter](const QByteArray &, const QString &url) { enter("log", url); });
    connect(m_client, &T::s_finished, this,
            [enter](const QString &url) { enter("finished", url); });
    connect(m_client, &T::s_rawGet, this, [enter](const QJsonDocument &, const QString &url) {
        if (!url.endsWith(QLatin1String("/marker")))
            enter("rawGet", url);
    });
    connect(m_client, &T::s_rawPost, this,
            [enter](const QJsonDocument &, const QString &url) { enter("rawPost", url); });
    connect(m_client, &T::s_rawPathFinished, this,
            [enter](const QJsonDocument &, const QString &url) { enter("rawPath", url); });
    connect(m_client, &T::s_rawDeleteFinished, this,
            [enter](const QString &url) { enter("rawDelete", url); });
    connect(m_client, &T::s_rawGetFileFinished, this,
            [enter](const QByteArray &, const QString &url) { enter("rawGetFile", url); });
    connect(m_client, &T::s_rawPostFileFinished, this,
            [enter](const QByteArray &, const QString &url) { enter("rawPostFile", url); });
    connect(m_client, &T::s_errorChanged, this, [this, owner](short code, const QString &url) {
        m_ledger.addError(owner, code, url);
        entered();
    });
    connect(m_client, &T::s_aborted, this, [this, owner](const QString &url) {
        if (!url.endsWith(QLatin1String("/marker")))
            m_ledger.addAborted(owner, url);
        entered();
    });
    for (const auto signal : {&T::s_repliesCountChanged, &T::s_stopPing, &T::s_stopProcessChanged})
        connect(m_client, signal, this, &Stage::entered);
    connect(m_client, &T::s_startPing, this, &Stage::entered);
    connect(m_client, &T::s_downloadFileProgress, this, &Stage::entered);
    connect(m_client, &T::s_uploadFileProgress, this, &Stage::entered);
}

void Stage::followProcessor(int owner)
{
    const auto enter = [this, owner](const char *signal, const QString &url) {
        m_ledger.addResult(owner, signal, url);
        entered();
    };
    using P = NetworkProcessor;
    connect(m_processor, &P::s_fetchIndex, this,
            [enter](const QJsonDocument &, const QString &url) { enter("index", url); });
    connect(m_processor, &P::s_fetchInstallerChangeLogData, this,
            [enter](const QByteArray &, const QString &url) { enter("log", url); });
    connect(m_processor, &P::s_finished, this,
            [enter](const QString &url) { enter("finished", url); });
    connect(m_processor, &P::s_rawGet, this,
            [enter](const QJsonDocument &, const QString &url) { enter("rawGet", url); });
    connect(m_processor, &P::s_rawPost, this,
            [enter](const QJsonDocument &, const QString &url) { enter("rawPost", url); });
    connect(m_processor, &P::s_rawGetFileFinished, this,
            [enter](const QString &url) { enter("rawGetFile", url); });
    connect(m_processor, &P::s_errorChanged, this, [this, owner](short code, const QString &url) {
        m_ledger.addError(owner, code, url);
        entered();
    });
    connect(m_processor, &P::s_downloadFileProgress, this, &Stage::entered);
}

QUrl Stage::urlOf(Dice &dice, const QString &path, ScriptedServer **server)
{
    const int index = dice.pick(modeWeights);
    if (index == int(m_servers.size())) {
        *server = nullptr;
        return QUrl(QStringLiteral("http://127.0.0.1:%1%2").arg(m_closedPort).arg(path));
    }
    *server = m_servers.at(size_t(index)).get();
    QUrl url = (*server)->url(path);
    // Neither of these two speaks HTTP, and both are asked for TLS.
    url.setScheme(index == 0 ? QStringLiteral("http") : QStringLiteral("https"));
    return url;
}

DrawnRequest Stage::draw(int number, Dice &dice, const Draft &draft)
{
    Asked asked;
    asked.operation = draft.operation;
    asked.result = draft.result;
    asked.codes = clientCodes(draft.isFile);
    asked.owner = m_clientNumber;
    return answerWith(number, dice, asked, draft);
}

DrawnRequest Stage::drawForProcessor(int number, Dice &dice, const Draft &draft)
{
    Asked asked;
    asked.operation = draft.operation;
    asked.result = draft.result;
    asked.codes = processorCodes(draft);
    asked.owner = m_processorNumber;
    return answerWith(number, dice, asked, draft);
}

// Each hop may lie on another server. Returns the one that it leads to, null when that is none.
ScriptedServer *Stage::redirect(int number, int hop, Dice &dice, const Asked &asked,
                                ScriptedServer *server)
{
    const QByteArray path = pathOf(number, hop).toLatin1();
    ScriptedServer *next = nullptr;
    QByteArray target = urlOf(dice, QString::fromLatin1(path), &next).toEncoded();
    const bool mayBeBlank = hop == 1 && !m_ledger.hasBlank() && asked.owner == m_clientNumber;
    if (dice.oneIn(8)) {
        target = path;
    } else if (dice.oneIn(8)) {
        target = "none://127.0.0.1" + path;
    } else if (mayBeBlank && dice.oneIn(8)) {
        target = QByteArray();
        m_ledger.setBlank(number);
    }
    server->on(pathOf(number, hop - 1).toLatin1(),
               answers::redirect(dice.pick({301, 302, 303, 307, 308}), target));
    return target.startsWith("http") ? next : nullptr;
}

DrawnRequest Stage::answerWith(int number, Dice &dice, Asked asked, const Draft &draft)
{
    const QString path = pathOf(number, 0);
    DrawnRequest request;
    request.number = number;
    request.file = named(QStringLiteral("f%1.bin").arg(number));
    request.size = dice.oneIn(10) ? dice.between(100000, 1000000) : dice.between(1, 5000);
    ScriptedServer *server = nullptr;
    request.url = urlOf(dice, path, &server);
    if (draft.byPath) {
        server = &secureServer();
        request.url = server->url(path);
    }

    const int hops = dice.oneIn(6) ? (dice.oneIn(20) ? 50 : dice.between(1, 4)) : 0;
    for (int hop = 1; hop <= hops && server; ++hop)
        server = redirect(number, hop, dice, asked, server);
    asked.isRedirected = hops > 0;
    const Behaviour &behaviour = behaviours::draw(dice);
    const QByteArray body =
        dice.oneIn(3) ? QByteArray("{\"a\":1}") : HttpResponse::generated(0, request.size);
    if (server) {
        server->on(pathOf(number, hops).toLatin1(), behaviour.make(dice, body));
    }
    if (draft.isFile && hops == 0 && behaviour.isGood && body.size() == request.size) {
        asked.file = request.file;
        asked.content = body;
    }
    m_ledger.ask(number, asked);
    m_paths.append(path);
    if (hops == 0 && qstrcmp(draft.operation, "rawGet") == 0)
        m_latest = request;
    return request;
}

void Stage::replaceClient(bool later)
{
    // The aborts of a dying client are signals too.
    if (m_isReplacing)
        return;
    m_isReplacing = true;
    m_ledger.release(m_clientNumber);
    if (later) {
        m_client->deleteLater();
        m_client.clear();
    }
    deleteClient();
    // Also what was asked of it while it died.
    m_latest = DrawnRequest();
    makeClient();
    m_isReplacing = false;
}

void Stage::replaceProcessor()
{
    deleteProcessor();
    makeProcessor();
}

void Stage::deleteClient()
{
    m_ledger.release(m_clientNumber);
    m_ledger.setDying(true);
    delete m_client;
    m_ledger.setDying(false);
}

void Stage::deleteProcessor()
{
    m_ledger.release(m_processorNumber);
    delete m_processor;
}

QList<QNetworkReply *> Stage::replies() const
{
    return m_manager ? m_manager->findChildren<QNetworkReply *>() : QList<QNetworkReply *>();
}

QNetworkCookieJar *Stage::newJar()
{
    m_jars.push_back(std::make_unique<QNetworkCookieJar>());
    return m_jars.back().get();
}

void Stage::closeConnections()
{
    for (const auto &server : m_servers)
        server->closeAll();
}

#include "moc_stage.cpp"
