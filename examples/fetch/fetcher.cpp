#include "fetcher.h"

#include "commands.h"
#include "console.h"
#include "errortext.h"
#include "files.h"
#include "serverurl.h"

#include <tarvisnet/errorcodes.h>

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QJsonArray>
#include <QtCore/QJsonObject>

#include <algorithm>
#include <initializer_list>

namespace {

constexpr qint64 pieceSize = 1 << 20;

QJsonDocument documentOf(const QJsonValue &value)
{
    return value.isArray() ? QJsonDocument(value.toArray())
        : value.isObject() ? QJsonDocument(value.toObject())
                           : QJsonDocument();
}

} // namespace

Fetcher::Fetcher(const Options &options, Console &console, QObject *parent)
    : QObject(parent)
    , m_options(options)
    , m_console(console)
    , m_progress(console)
    , m_engine(Engine::make(options))
{
    connectEngine();
}

void Fetcher::start()
{
    if (!makeDirectories() || !m_engine->prepareFile(m_options, m_console)) {
        Q_EMIT finished(NotWritten);
        return;
    }
    makeTargets();
    const QStringList urls = m_open;
    for (const QString &url : urls) {
        startTarget(m_targets[url]);
    }
}

void Fetcher::interrupt()
{
    m_interrupted = true;
    m_console.error(QStringLiteral("interrupted"));
    giveUp();
}

void Fetcher::connectEngine()
{
    const auto follow = [this](auto signal, auto slot) {
        connect(m_engine.get(), signal, this, slot);
    };
    follow(&Engine::documentArrived, &Fetcher::documentArrived);
    follow(&Engine::bytesArrived, &Fetcher::bytesArrived);
    follow(&Engine::fileArrived, &Fetcher::fileArrived);
    follow(&Engine::concluded, &Fetcher::requestConcluded);
    follow(&Engine::failed, &Fetcher::requestFailed);
    follow(&Engine::aborted, &Fetcher::requestAborted);
    follow(&Engine::bytesProgressed, &Fetcher::bytesProgressed);
    follow(&Engine::percentProgressed, &Fetcher::percentProgressed);
}

void Fetcher::makeTargets()
{
    const QStringList texts =
        m_options.targets.isEmpty() ? QStringList(QString()) : m_options.targets;
    for (const QString &text : texts) {
        const Target target = makeTarget(m_options, text);
        if (m_targets.contains(target.urlText())) {
            m_console.note(QStringLiteral("asked for only once: %1").arg(target.urlText()));
            continue;
        }
        m_targets.insert(target.urlText(), target);
        m_open.append(target.urlText());
    }
}

bool Fetcher::makeDirectories()
{
    for (const QString &directory : {m_options.outputDirectory, m_options.temporaryDirectory}) {
        if (!directory.isEmpty() && !QDir().mkpath(directory)) {
            m_console.error(QStringLiteral("the directory %1 cannot be made").arg(directory));
            return false;
        }
    }
    return true;
}

void Fetcher::startTarget(const Target &target)
{
    const qint64 kept = m_options.keptBytes();
    if (kept > 0) {
        m_console.note(QStringLiteral("resuming after %1").arg(sizeText(kept)));
    }
    m_progress.begin(target.urlText(), kept);
    m_starting = &target;
    m_engine->start(m_options, target);
    m_starting = nullptr;
}

void Fetcher::documentArrived(const QJsonDocument &document, const QString &url)
{
    if (document.isNull()) {
        m_progress.end(url);
        m_console.error(QStringLiteral("the answer is empty or not JSON: %1").arg(url));
        settle(url, WrongContent);
        return;
    }
    bytesArrived(document.toJson(), url);
}

void Fetcher::bytesArrived(const QByteArray &bytes, const QString &url)
{
    m_progress.end(url);
    const bool written = m_console.result(bytes);
    if (!written) {
        tellFullOutput(url);
    }
    settle(url, written ? Succeeded : NotWritten);
}

void Fetcher::fileArrived(const QByteArray &bytes, const QString &url)
{
    const QString path = m_options.savePath();
    if (path.isEmpty()) {
        bytesArrived(bytes, url);
        return;
    }
    m_progress.end(url);
    const bool saved = settleFile(path, bytes);
    if (saved) {
        m_console.note(QStringLiteral("saved %1 (%2)").arg(path, sizeText(bytes.size())));
    } else {
        m_console.error(QStringLiteral("%1 cannot be written").arg(path));
    }
    settle(url, saved ? Succeeded : NotWritten);
}

void Fetcher::requestConcluded(const QString &url)
{
    m_progress.end(url);
    const Conclusion end = m_options.command->conclude(m_options, m_targets.value(url));
    if (!end.succeeded) {
        m_console.error(end.words);
        settle(url, WrongContent);
    } else if (m_options.isSpooled()) {
        deliverSpooled(url);
    } else {
        m_console.note(end.words);
        settle(url, Succeeded);
    }
}

void Fetcher::requestFailed(short code, const QString &url, const QJsonDocument &answer)
{
    m_progress.end(url);
    tellError(code, url);
    tellAnswer(answer);
    const bool isExplained = m_options.policy.errorsExplained();
    const ExitCode cause =
        exitCodeOf(code, isExplained ? answer[QLatin1String("httpStatus")].toInt() : 0);
    noteCause(cause);
    if (m_targets.contains(url)) {
        settle(url, cause);
    } else if (m_starting) {
        settle(m_starting->urlText(), cause);
    } else if (endsRequest(code)) {
        giveUp();
    }
    if (code == errorcodes::file_open_failed) {
        // Nothing more can be saved, so there is no use in going on.
        m_engine->abort(url);
    }
}

void Fetcher::requestAborted(const QString &url)
{
    if (m_open.contains(url)) {
        m_progress.end(url);
        m_console.error(QStringLiteral("aborted: %1").arg(url));
        settle(url, Failed);
    } else if (!m_targets.contains(url)) {
        giveUp();
    }
}

void Fetcher::bytesProgressed(qint64 bytes, qint64 total, const QString &url)
{
    if (isUnderWay(url)) {
        m_progress.setBytes(url, bytes, total);
    }
}

void Fetcher::percentProgressed(double percent, const QString &url)
{
    if (isUnderWay(url)) {
        m_progress.setPercent(url, percent);
    }
}

bool Fetcher::isUnderWay(const QString &url) const
{
    const bool redirected = !m_open.isEmpty() && !m_targets.contains(url);
    return m_open.contains(url) || redirected;
}

void Fetcher::tellError(short code, const QString &url)
{
    const QString place = url.isEmpty() && m_starting ? m_starting->text : url;
    QString text = QStringLiteral("error %1: %2").arg(code).arg(reason(code, url));
    if (!place.isEmpty()) {
        text += QStringLiteral(": ") + place;
    }
    m_console.error(text);
}

QString Fetcher::reason(short code, const QString &url) const
{
    const auto isSilentServer = [&url](const Target &target) {
        return url != target.urlText() && url == serverText(target.url);
    };
    if (code == errorcodes::network_error
        && std::any_of(m_targets.cbegin(), m_targets.cend(), isSilentServer)) {
        return QStringLiteral("the server did not answer in time");
    }
    return errorText(code);
}

void Fetcher::tellAnswer(const QJsonDocument &answer)
{
    if (!m_options.policy.errorsExplained()) {
        tellDocument(answer);
        return;
    }
    m_console.error(answer[QLatin1String("reason")].toString());
    tellDocument(documentOf(answer[QLatin1String("body")]));
}

void Fetcher::tellDocument(const QJsonDocument &document)
{
    if (!document.isNull())
        m_console.error(QString::fromUtf8(document.toJson()).trimmed());
}

void Fetcher::tellFullOutput(const QString &url)
{
    m_console.error(QStringLiteral("standard output does not take the answer: %1").arg(url));
}

void Fetcher::deliverSpooled(const QString &url)
{
    QFile file(m_options.savePath());
    bool isWritten = file.open(QIODevice::ReadOnly);
    while (isWritten && !file.atEnd()) {
        const QByteArray piece = file.read(pieceSize);
        isWritten = !piece.isEmpty() && m_console.result(piece);
    }
    if (!isWritten)
        tellFullOutput(url);
    settle(url, isWritten ? Succeeded : NotWritten);
}

void Fetcher::settle(const QString &url, ExitCode end)
{
    if (!m_open.removeOne(url)) {
        return;
    }
    if (end != Succeeded) {
        ++m_failures;
        noteCause(end);
    }
    if (m_open.isEmpty()) {
        finish();
    }
}

void Fetcher::giveUp()
{
    const QStringList left = m_open;
    if (left.isEmpty()) {
        return;
    }
    m_open.clear();
    m_failures += left.size();
    for (const QString &url : left) {
        m_progress.end(url);
        m_console.error(QStringLiteral("given up: %1").arg(url));
    }
    m_engine->abortAll(left.size());
    finish();
}

void Fetcher::noteCause(ExitCode cause)
{
    if (m_cause == Failed)
        m_cause = cause;
}

void Fetcher::finish()
{
    tellWhatIsKept();
    if (m_targets.size() > 1) {
        m_console.note(QStringLiteral("%1 of %2 requests succeeded")
                           .arg(m_targets.size() - m_failures)
                           .arg(m_targets.size()));
    }
    const ExitCode outcome = m_failures > 0 ? m_cause : Succeeded;
    Q_EMIT finished(m_interrupted ? Interrupted : outcome);
}

void Fetcher::tellWhatIsKept()
{
    const qint64 kept = m_options.keptBytes();
    if (m_failures > 0 && kept > 0 && !m_options.isSpooled()) {
        m_console.note(QStringLiteral("%1 kept in %2, the same command goes on from there")
                           .arg(sizeText(kept), m_options.partialPath()));
    }
}
