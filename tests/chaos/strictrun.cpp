#include "strictrun.h"

#include "answers.h"

#include <QtCore/QFileInfo>

#include <algorithm>

namespace {

/// Silent servers are common here; those that tell the truth may be as slow as the machine.
constexpr int shortIdleTimeout = 60;
constexpr int longIdleTimeout = 60000;
constexpr int longestLife = 120000;

const QByteArray loop("/loop");

QString otherDisk()
{
    const QString memory = QStringLiteral("/dev/shm");
    return QDir(QFileInfo(memory).isWritable() ? memory : QDir::tempPath())
        .filePath(QStringLiteral("tarvisnet-chaos-XXXXXX"));
}

} // namespace

void StrictFigures::add(const StrictFigures &other)
{
    downloads += other.downloads;
    requests += other.requests;
    kills += other.kills;
    pauseMsec = std::max(pauseMsec, other.pauseMsec);
    for (auto outcome = other.outcomes.begin(); outcome != other.outcomes.end(); ++outcome)
        outcomes[outcome.key()] += outcome.value();
}

// Everything is drawn before anything is done, so that the same seed gives the same lies in the
// same order however fast the network is.
StrictRun::StrictRun(quint64 seed)
    : m_dice(seed)
    , m_otherDisk(otherDisk())
    , m_home(m_directory.filePath(QStringLiteral("home")))
    , m_temporary(m_dice.pick(
          {m_home.path(), m_directory.filePath(QStringLiteral("temporary")), m_otherDisk.path()}))
{
    m_home.mkpath(QStringLiteral("."));
    m_temporary.mkpath(QStringLiteral("."));
    m_impostor.setCertificate(ScriptedServer::Certificate::WrongName);
    m_impostor.onRequest(answers::bytes("the file of an impostor"));
    m_killer.setSingleShot(true);
    QObject::connect(&m_killer, &QTimer::timeout, &m_killer, [this] { m_program->kill(); });
    serve(m_plain);
    serve(m_secure);
    makeDownloads();
    const int lives = m_dice.between(1, 6);
    for (int life = 0; life < lives; ++life)
        m_lives.append(drawLife());
}

void StrictRun::makeDownloads()
{
    m_downloads.reserve(downloadsOfOne);
    for (int number = 0; number < downloadsOfOne; ++number) {
        m_downloads.emplace_back(number, m_dice.number(), m_home);
        Download &download = m_downloads.back();
        const auto on = [&download](const ScriptedServer &server) {
            return server.url(QString::fromLatin1(download.path())).toEncoded();
        };
        download.setTargets({"moved", "moved", download.path(), on(m_secure), on(m_plain),
                             on(m_impostor), loop, "ftp://127.0.0.1/file", "http://["});
    }
    m_figures.downloads = downloadsOfOne;
}

StrictRun::Life StrictRun::drawLife()
{
    Life life;
    life.ending =
        m_dice.pick({Ending::Kill, Ending::Kill, Ending::Kill, Ending::QuitEarly, Ending::Quit});
    life.length = m_dice.between(1, 2 * downloadsOfOne);
    life.delayMsec = m_dice.below(6);
    life.idleTimeout = shortIdleTimeout;
    for (int number = 0; number < downloadsOfOne; ++number) {
        const int times = m_dice.pick({0, 1, 1, 1, 1, 1, 1, 2});
        life.asked += QVector<int>(times, number);
        if (m_dice.oneIn(10))
            life.aborts.insert(m_dice.between(1, 2 * downloadsOfOne), number);
    }
    return life;
}

void StrictRun::serve(ScriptedServer &server)
{
    server.on(loop, answers::redirect(302, loop));
    server.onRequest(
        [this](const HttpRequest &request, HttpResponse &response) { answer(request, response); });
}

void StrictRun::answer(const HttpRequest &request, HttpResponse &response)
{
    ++m_figures.requests;
    const int number = request.path().split('/').value(1).toInt();
    const QByteArray lie = m_downloads.at(size_t(number)).answer(request, response);
    m_diary.append(
        QString::fromLatin1(request.path() + ' ' + request.header("range") + ": " + lie));
    passEvent();
}

QString StrictRun::url(const Download &download) const
{
    const ScriptedServer &server = download.isSecure() ? m_secure : m_plain;
    return server.url(QString::fromLatin1(download.path())).toString();
}

QStringList StrictRun::run()
{
    for (const Life &life : qAsConst(m_lives))
        play(life);
    playLastLife();
    checkFiles();
    for (const Download &download : m_downloads)
        m_faults += download.faults();
    return m_faults;
}

void StrictRun::play(const Life &life)
{
    m_life = life;
    m_events = 0;
    const Program::Callbacks callbacks{[this](const QStringList &words) { hear(words); },
                                       [this] { m_awaiter.changed(); }};
    Program program({m_temporary.path(), QString::number(life.idleTimeout)}, callbacks);
    m_program = &program;
    ask(program, life);
    if (!m_awaiter.wait([&program] { return !program.isRunning(); }, longestLife))
        fault(QStringLiteral("the program does not come to an end"));
    m_killer.stop();
    m_program = nullptr;
    checkLife(program);
}

void StrictRun::ask(Program &program, const Life &life)
{
    for (const int number : life.asked) {
        Download &download = m_downloads.at(size_t(number));
        download.ask();
        program.tell(QStringList{QStringLiteral("fetch"), url(download)} + download.arguments());
    }
    if (life.asked.isEmpty())
        program.quit();
}

void StrictRun::hear(const QStringList &words)
{
    const QString what = words.value(0);
    const int number = words.value(1).toInt();
    if (what == QLatin1String("pause")) {
        m_figures.pauseMsec = std::max(m_figures.pauseMsec, qint64(number));
        return;
    }
    m_diary.append(words.join(QLatin1Char(' ')));
    ++m_figures.outcomes[what == QLatin1String("error") ? words.value(1) : what];
    const int asked = QUrl(words.value(2)).path().section(QLatin1Char('/'), 1, 1).toInt();
    m_downloads.at(size_t(asked)).end(what, number);
    passEvent();
}

void StrictRun::passEvent()
{
    if (!m_program)
        return;
    ++m_events;
    if (m_life.aborts.contains(m_events)) {
        const Download &download = m_downloads.at(size_t(m_life.aborts.value(m_events)));
        m_program->tell({QStringLiteral("abort"), QString::fromLatin1(download.path())});
    }
    if (m_events == m_life.length)
        endEarly();
    const auto isOpen = [](const Download &download) { return download.open() > 0; };
    if (std::none_of(m_downloads.begin(), m_downloads.end(), isOpen))
        m_program->quit();
}

void StrictRun::endEarly()
{
    if (m_life.ending == Ending::QuitEarly)
        m_program->quit();
    if (m_life.ending == Ending::Kill)
        m_killer.start(m_life.delayMsec);
}

void StrictRun::checkLife(const Program &program)
{
    m_figures.kills += program.wasKilled() ? 1 : 0;
    m_diary.append(program.wasKilled() ? QStringLiteral("killed") : QStringLiteral("ended"));
    if (!program.fault().isEmpty())
        fault(program.fault());
    for (Download &download : m_downloads) {
        download.checkDestination();
        const int open = download.takeOpen();
        if (open > 0 && !program.wasKilled())
            fault(QStringLiteral("%1: no end").arg(QString::fromLatin1(download.path())));
    }
}

void StrictRun::playLastLife()
{
    Life life;
    life.idleTimeout = longIdleTimeout;
    for (int number = 0; number < downloadsOfOne; ++number) {
        Download &download = m_downloads.at(size_t(number));
        download.behave();
        if (!download.isDone())
            life.asked.append(number);
    }
    play(life);
    for (const Download &download : m_downloads) {
        if (!download.isDone())
            fault(QString::fromLatin1(download.path()) + QStringLiteral(": not finished"));
    }
}

void StrictRun::checkFiles()
{
    QStringList expected;
    for (const Download &download : m_downloads)
        expected.append(QFileInfo(download.arguments().at(0)).fileName());
    QStringList found = m_home.entryList(QDir::Files | QDir::Hidden);
    if (m_temporary != m_home)
        found += m_temporary.entryList(QDir::Files | QDir::Hidden);
    for (const QString &name : qAsConst(found)) {
        if (!expected.contains(name))
            fault(QStringLiteral("left behind: ") + name);
    }
}
