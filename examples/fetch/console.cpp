#include "console.h"

#include <algorithm>
#include <cstdio>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

constexpr int usualColumns = 80;

// What a server sends must not steer the terminal.
bool isHarmless(QChar c)
{
    return c.isPrint() || c.isSurrogate() || c == QLatin1Char('\n');
}

QByteArray printable(QString text)
{
    std::replace_if(
        text.begin(), text.end(), [](QChar c) { return !isHarmless(c); }, QLatin1Char('?'));
    return text.toLocal8Bit();
}

void writeError(const QByteArray &bytes)
{
    std::fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), stderr);
    std::fflush(stderr);
}

} // namespace

Console::Console(bool quiet)
    : m_quiet(quiet)
    , m_terminal(isatty(STDERR_FILENO) == 1)
{
}

Console::~Console()
{
    keepStatus();
}

int Console::columns() const
{
    winsize size{};
    const bool known = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return known ? size.ws_col : usualColumns;
}

bool Console::result(const QByteArray &bytes)
{
    eraseStatus();
    const auto size = static_cast<size_t>(bytes.size());
    return std::fwrite(bytes.constData(), 1, size, stdout) == size && std::fflush(stdout) == 0;
}

void Console::error(const QString &text)
{
    eraseStatus();
    writeError(printable(text) + '\n');
}

void Console::note(const QString &text)
{
    if (!m_quiet) {
        error(text);
    }
}

void Console::setStatus(const QString &text)
{
    if (m_quiet || !m_terminal) {
        return;
    }
    eraseStatus();
    writeError(printable(text));
    m_statusShown = true;
}

void Console::keepStatus()
{
    if (m_statusShown) {
        writeError("\n");
    }
    m_statusShown = false;
}

void Console::eraseStatus()
{
    if (m_statusShown) {
        writeError("\r\x1b[K");
    }
    m_statusShown = false;
}
