#include "backgroundwork_p.h"

#include <QtCore/QMetaObject>

#include <algorithm>
#include <utility>

namespace {

// A file that is copied for minutes must not keep the others waiting where there is one processor.
constexpr int leastThreads = 4;
constexpr int idleThreadLife = 1000;

} // namespace

BackgroundWork::BackgroundWork()
{
    m_pool.setMaxThreadCount(std::max(leastThreads, m_pool.maxThreadCount()));
    m_pool.setExpiryTimeout(idleThreadLife);
}

BackgroundWork::~BackgroundWork()
{
    for (const QWeakPointer<std::atomic_bool> &ticket : std::as_const(m_tickets)) {
        if (const Ticket isCancelled = ticket.toStrongRef())
            isCancelled->store(true);
    }
    m_pool.waitForDone();
}

BackgroundWork::Ticket BackgroundWork::run(Job job, Done done)
{
    Ticket ticket = newTicket();
    auto report = [ticket, done = std::move(done)] {
        if (!*ticket && done)
            done();
    };
    m_pool.start([this, ticket, job = std::move(job), report = std::move(report)]() mutable {
        if (!*ticket)
            job(*ticket);
        QMetaObject::invokeMethod(this, std::move(report), Qt::QueuedConnection);
    });
    return ticket;
}

BackgroundWork::Ticket BackgroundWork::newTicket()
{
    const auto isGone = [](const auto &ticket) { return ticket.isNull(); };
    m_tickets.erase(std::remove_if(m_tickets.begin(), m_tickets.end(), isGone), m_tickets.end());
    Ticket ticket = Ticket::create(false);
    m_tickets.append(ticket);
    return ticket;
}
