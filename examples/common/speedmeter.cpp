#include "speedmeter.h"

namespace {

constexpr qint64 speedWindowMsec = 3000;

} // namespace

SpeedMeter::SpeedMeter(qint64 bytes)
{
    m_clock.start();
    m_samples.enqueue({0, bytes});
}

void SpeedMeter::setBytes(qint64 bytes)
{
    m_samples.enqueue({m_clock.elapsed(), bytes});
    const qint64 oldest = m_samples.constLast().msec - speedWindowMsec;
    while (m_samples.size() > 2 && m_samples.at(1).msec < oldest) {
        m_samples.dequeue();
    }
}

double SpeedMeter::speed() const
{
    const Sample &first = m_samples.constFirst();
    const Sample &last = m_samples.constLast();
    const auto msec = static_cast<double>(last.msec - first.msec);
    return msec > 0 ? static_cast<double>(last.bytes - first.bytes) * 1000 / msec : 0;
}
