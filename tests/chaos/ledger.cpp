#include "ledger.h"

#include "files.h"

#include <tarvisnet/errorcodes.h>

#include <QtCore/QRegularExpression>

namespace {

QRegularExpressionMatch matched(const QString &url)
{
    static const QRegularExpression pattern(QStringLiteral("\\br(\\d+)(?:/h(\\d+))?$"));
    return pattern.match(url);
}

/// Only a redirect without a target leads to an empty URL, and only as the first one.
int hopOf(const QString &url)
{
    return url.isEmpty() ? 1 : matched(url).captured(2).toInt();
}

/// Redirected replies that stay in the client's table for good: all before the one that failed, but
/// those that were aborted themselves.
int placesLostBy(const Asked &asked)
{
    int places = asked.failedHop;
    for (auto url = asked.aborted.keyBegin(); url != asked.aborted.keyEnd(); ++url)
        places -= hopOf(*url) < asked.failedHop ? 1 : 0;
    return places;
}

/// A result does not count: what was given up has none.
bool hasFailed(const Asked &asked)
{
    return asked.errors + int(asked.aborted.size()) > 0;
}

bool hasEnded(const Asked &asked)
{
    if (asked.wasUnknown && !hasFailed(asked))
        return false;
    if (asked.maySilent || asked.times > 1)
        return true;
    return asked.results + asked.refusals > 0 || hasFailed(asked);
}

} // namespace

void Ledger::ask(int number, const Asked &asked)
{
    m_asked.insert(number, asked);
}

void Ledger::repeat(int number)
{
    Asked &asked = m_asked[number];
    ++asked.times;
    // Each of the two may find the file of the other.
    asked.content.clear();
}

Ledger::Place Ledger::find(const QString &url)
{
    if (url.isEmpty() && m_blank != 0)
        return {&m_asked[m_blank], hopOf(url)};
    const QRegularExpressionMatch match = matched(url);
    const auto found = m_asked.find(match.captured(1).toInt());
    if (!match.hasMatch() || found == m_asked.end())
        return {};
    return {&found.value(), hopOf(url)};
}

void Ledger::addResult(int owner, const char *signal, const QString &url)
{
    const auto [asked, hop] = find(url);
    const QString what = QStringLiteral("%1 for %2: ").arg(QLatin1String(signal), url);
    if (!asked)
        return fault(what + QStringLiteral("nobody asked"));
    if (asked->owner != owner)
        return fault(what + QStringLiteral("somebody else asked"));
    if (asked->result != signal)
        fault(what + QStringLiteral("asked by ") + QString::fromLatin1(asked->operation));
    if (isDouble(*asked, ++asked->results))
        fault(what + QStringLiteral("a second result"));
    if (!mayGoOn(*asked) && asked->errors > 0)
        fault(what + QStringLiteral("a result after an error"));
    if (!mayGoOn(*asked) && !asked->aborted.isEmpty() && !m_dying)
        fault(what + QStringLiteral("a result after an abort"));
    if (!asked->content.isEmpty() && files::read(asked->file) != asked->content)
        fault(what + QStringLiteral("another content"));
}

void Ledger::addError(int owner, short code, const QString &url)
{
    if (code == errorcodes::invalid_url) {
        ++m_refusedUrls;
        return;
    }
    const auto [asked, hop] = find(url);
    const QString what = QStringLiteral("error %1 for %2: ").arg(code).arg(url);
    // The probe's time-out has the URL of the probe, which has no path.
    if (!asked && code == errorcodes::network_error && url.count(QLatin1Char('/')) == 2)
        return;
    if (!asked)
        return fault(what + QStringLiteral("nobody asked"));
    if (asked->owner != owner)
        return fault(what + QStringLiteral("somebody else asked"));
    if (code == errorcodes::already_pending) {
        if (isDouble(*asked, ++asked->refusals + 1))
            fault(what + QStringLiteral("but it was asked once"));
        return;
    }
    // What is aborted within its own failure is unknown by the time it finishes, which may be
    // before that is told.
    const bool isKnownCode = asked->codes.contains(code);
    if (code == errorcodes::unknown_reply && (hasFailed(*asked) || !isKnownCode)) {
        asked->wasUnknown = !isKnownCode;
        return;
    }
    if (!isKnownCode)
        fault(what + QStringLiteral("not a code of ") + QString::fromLatin1(asked->operation));
    // Comes for each part, and the request goes on.
    if (code == errorcodes::file_open_failed)
        return;
    if (isDouble(*asked, ++asked->errors - hop))
        fault(what + QStringLiteral("a second error"));
    if (asked->times == 1 && asked->results > 0)
        fault(what + QStringLiteral("an error after a result"));
    asked->failedHop = hop;
}

void Ledger::addAborted(int owner, const QString &url)
{
    ++m_aborts[owner];
    const auto [asked, hop] = find(url);
    const QString what = QStringLiteral("aborted %1: ").arg(url);
    if (!asked)
        return fault(what + QStringLiteral("nobody asked"));
    if (isDouble(*asked, ++asked->aborted[url]))
        fault(what + QStringLiteral("a second time"));
    if (asked->times == 1 && asked->results > 0 && !m_dying)
        fault(what + QStringLiteral("after its result"));
    if (!m_dying)
        asked->failedHop = hop;
}

void Ledger::release(int owner)
{
    for (Asked &asked : m_asked)
        asked.maySilent = asked.maySilent || asked.owner == owner;
}

void Ledger::releasePath(const QString &path)
{
    const Place place = find(path);
    if (place.asked && place.hop == 0)
        place.asked->maySilent = true;
}

QStringList Ledger::open(int owner) const
{
    QStringList texts;
    for (auto entry = m_asked.begin(); entry != m_asked.end(); ++entry) {
        if (entry->owner == owner && !hasEnded(*entry))
            texts.append(QStringLiteral("r%1 %2")
                             .arg(entry.key())
                             .arg(QString::fromLatin1(entry->operation)));
    }
    return texts;
}

int Ledger::placesLost(int owner) const
{
    int places = 0;
    for (const Asked &asked : m_asked)
        places += asked.owner == owner ? placesLostBy(asked) : 0;
    return places;
}

int Ledger::ended() const
{
    int count = 0;
    for (const Asked &asked : m_asked)
        count += asked.results + asked.errors + int(asked.aborted.size()) > 0 ? 1 : 0;
    return count;
}
