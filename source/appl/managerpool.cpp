#include "managerpool_p.h"

#include "transferrules_p.h"

#include <QtNetwork/QNetworkCookieJar>
#include <QtNetwork/QNetworkReply>

#include <algorithm>
#include <limits>
#include <utility>

namespace {

/// How long a network thread stays that nobody needs: the next file often follows at once, and its
/// connections are worth a handshake each.
constexpr int lingerMsec = 5000;

/// How many requests a connection of HTTP/2 serves at the most. Servers, nginx for one, go away
/// after a thousand, and what Qt is given to send between that and the end of the connection never
/// gets an answer.
constexpr int http2RequestsMost = 900;

/// A manager makes itself the parent of its jar, but one jar can have only one owner.
void share(QNetworkCookieJar *jar, QNetworkAccessManager &manager)
{
    QObject *const owner = jar->parent();
    manager.setCookieJar(jar);
    jar->setParent(owner);
}

bool hasReplies(const QNetworkAccessManager &manager)
{
    return manager.findChild<QNetworkReply *>(QString(), Qt::FindDirectChildrenOnly);
}

} // namespace

ManagerPool::ManagerPool(const TransferRules &rules)
    : m_rules(rules)
{
    m_lines.append({QSharedPointer<QNetworkAccessManager>(rules.newManager()), QDeadlineTimer()});
}

/// A reply that the application has made itself has another manager.
ManagerPool::Line *ManagerPool::lineOf(const QNetworkAccessManager *manager)
{
    const auto line = std::find_if(m_lines.begin(), m_lines.end(),
                                   [manager](const Line &one) { return one.manager == manager; });
    return line == m_lines.end() ? nullptr : &*line;
}

ManagerPool::Line ManagerPool::newLine() const
{
    Line line = {QSharedPointer<QNetworkAccessManager>(m_rules.newManager()),
                 QDeadlineTimer(lingerMsec)};
    share(cookieJar(), *line.manager);
    return line;
}

QNetworkAccessManager *ManagerPool::forDownload(const QList<QNetworkAccessManager *> &running)
{
    dropUnused();
    const auto load = [&running](const Line &line) {
        return line.isDistrusted ? std::numeric_limits<int>::max()
                                 : running.count(line.manager.data());
    };
    const auto idlest = std::min_element(
        m_lines.cbegin(), m_lines.cend(),
        [&load](const Line &left, const Line &right) { return load(left) < load(right); });
    if (load(*idlest) == 0 || m_lines.size() >= m_rules.downloadThreads())
        return idlest->manager.data();
    m_lines.append(newLine());
    return m_lines.constLast().manager.data();
}

void ManagerPool::countHttp2(const QNetworkAccessManager *manager)
{
    Line *const line = lineOf(manager);
    if (line && ++line->http2Requests == http2RequestsMost)
        line->isDistrusted = true;
}

void ManagerPool::distrust(const QNetworkAccessManager *manager)
{
    if (Line *const line = lineOf(manager))
        line->isDistrusted = true;
}

void ManagerPool::replacePrimary()
{
    distrust(primary().data());
    auto next = std::find_if(m_lines.begin() + 1, m_lines.end(),
                             [](const Line &line) { return !line.isDistrusted; });
    if (next == m_lines.end())
        next = m_lines.insert(next, newLine());
    // It owns the jar, unless that is the application's.
    if (cookieJar()->parent() == primary().data())
        cookieJar()->setParent(next->manager.data());
    std::swap(m_lines.first(), *next);
}

void ManagerPool::dropUnused()
{
    for (Line &line : m_lines) {
        if (hasReplies(*line.manager))
            line.idleEnd.setRemainingTime(lingerMsec);
    }
    const auto isUnused = [](const Line &line) {
        return !hasReplies(*line.manager) && (line.isDistrusted || line.idleEnd.hasExpired());
    };
    m_lines.erase(std::remove_if(m_lines.begin() + 1, m_lines.end(), isUnused), m_lines.end());
}

QDeadlineTimer ManagerPool::nextDrop() const
{
    QDeadlineTimer next(QDeadlineTimer::Forever);
    std::for_each(m_lines.cbegin() + 1, m_lines.cend(),
                  [&next](const Line &line) { next = std::min(next, line.idleEnd); });
    return next;
}

void ManagerPool::setCookieJar(QNetworkCookieJar *jar)
{
    // The primary one last: it deletes the jar that all have had if that is its own.
    for (int i = m_lines.size() - 1; i >= 0; --i)
        m_lines.at(i).manager->setCookieJar(jar);
    jar->setParent(nullptr);
}
