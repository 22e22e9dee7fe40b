#include "progress.h"

#include "console.h"
#include "files.h"

#include <QtCore/QUrl>

#include <algorithm>

namespace {

constexpr double percentPerLine = 10;
constexpr int narrowestBar = 6;
constexpr int widestBar = 40;

// Of one width, so that nothing moves but the numbers.
QString column(qint64 bytes)
{
    constexpr int widest = 10;
    return sizeText(bytes).rightJustified(widest);
}

QString shortName(const QString &url)
{
    const QString name = QUrl(url).fileName();
    return name.isEmpty() ? url : name;
}

} // namespace

Progress::Progress(Console &console)
    : m_console(console)
{
}

void Progress::begin(const QString &url, qint64 bytes)
{
    m_transfers[url].meter = SpeedMeter(bytes);
}

void Progress::setBytes(const QString &url, qint64 bytes, qint64 total)
{
    Transfer &transfer = m_transfers[url];
    transfer.bytes = bytes;
    transfer.total = total;
    transfer.meter.setBytes(bytes);
}

void Progress::setPercent(const QString &url, double percent)
{
    Transfer &transfer = m_transfers[url];
    transfer.percent = std::clamp(percent, 0.0, 100.0);
    if (m_console.isTerminal()) {
        m_shown = url;
        m_console.setStatus(bar(transfer, numbers(transfer) + shortName(url)));
    } else {
        showLine(url, transfer);
    }
}

void Progress::end(const QString &url)
{
    if (m_shown == url) {
        m_console.keepStatus();
        m_shown.clear();
    }
    m_transfers.remove(url);
}

QString Progress::numbers(const Transfer &transfer) const
{
    const QString percent = QStringLiteral("%1%").arg(transfer.percent, 5, 'f', 1);
    if (transfer.bytes == 0) {
        return percent + QStringLiteral(" sent  ");
    }
    QString bytes = column(transfer.bytes);
    if (transfer.total > 0) {
        bytes += QStringLiteral(" of ") + sizeText(transfer.total);
    }
    const QString speed = column(static_cast<qint64>(transfer.meter.speed()));
    return QStringLiteral("%1 %2 %3/s  ").arg(percent, bytes, speed);
}

QString Progress::bar(const Transfer &transfer, const QString &text) const
{
    const int brackets = 3;
    // The last column stays free: some terminals begin a new line when it is written.
    const int room = m_console.columns() - 1;
    const int width = std::min(room - static_cast<int>(text.size()) - brackets, widestBar);
    if (width < narrowestBar) {
        return text.left(room);
    }
    const int done = static_cast<int>(transfer.percent * width / 100);
    return QStringLiteral("[%1] %2").arg(QString(done, QLatin1Char('#')).leftJustified(width),
                                         text);
}

void Progress::showLine(const QString &url, Transfer &transfer)
{
    const int stage = static_cast<int>(transfer.percent / percentPerLine);
    if (stage > transfer.stage) {
        transfer.stage = stage;
        m_console.note(numbers(transfer) + shortName(url));
    }
}
