#include "fetcher.h"

#include "commands.h"
#include "console.h"
#include "errortext.h"
#include "files.h"
#include "serverurl.h"

#include <tarvisnet/errorcodes.h>

#include <QtCore/QDir>

#include <algorithm>
#include <initializer_list>

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
        Q_EMIT finished(Failed);
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
        settle(url, false);
        return;
    }
    bytesArrived(document.toJson(), url);
}

void Fetcher::bytesArrived(const QByteArray &bytes, const QString &url)
{
    m_progress.end(url);
    const bool written = m_console.result(bytes);
    if (!written) {
        m_console.error(QStringLiteral("standard output does not take the answer: %1").arg(url));
    }
    settle(url, written);
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
    settle(url, saved);
}

void Fetcher::requestConcluded(const QString &url)
{
    m_progress.end(url);
    const Conclusion end = m_options.command->conclude(m_options, m_targets.value(url));
    if (end.succeeded) {
        m_console.note(end.words);
    } else {
        m_console.error(end.words);
    }
    settle(url, end.succeeded);
}

void Fetcher::requestFailed(short code, const QString &url, const QJsonDocument &answer)
{
    m_progress.end(url);
    tellError(code, url);
    if (!answer.isNull()) {
        m_console.error(QString::fromUtf8(answer.toJson()).trimmed());
    }
    if (m_targets.contains(url)) {
        settle(url, false);
    } else if (m_starting) {
        settle(m_starting->urlText(), false);
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
        settle(url, false);
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

void Fetcher::settle(const QString &url, bool succeeded)
{
    if (!m_open.removeOne(url)) {
        return;
    }
    m_failures += succeeded ? 0 : 1;
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

void Fetcher::finish()
{
    tellWhatIsKept();
    if (m_targets.size() > 1) {
        m_console.note(QStringLiteral("%1 of %2 requests succeeded")
                           .arg(m_targets.size() - m_failures)
                           .arg(m_targets.size()));
    }
    const Status outcome = m_failures > 0 ? Failed : Succeeded;
    Q_EMIT finished(m_interrupted ? Interrupted : outcome);
}

void Fetcher::tellWhatIsKept()
{
    const qint64 kept = m_options.keptBytes();
    if (m_failures > 0 && kept > 0) {
        m_console.note(QStringLiteral("%1 kept in %2, the same command goes on from there")
                           .arg(sizeText(kept), m_options.partialPath()));
    }
}
