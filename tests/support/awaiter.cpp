#include "awaiter.h"

#include <QtCore/QEventLoop>
#include <QtCore/QTimer>

bool Awaiter::wait(const std::function<bool()> &reached, int msec)
{
    if (reached())
        return true;

    QEventLoop loop;
    QTimer::singleShot(msec, &loop, &QEventLoop::quit);
    m_checks.append([&loop, &reached] {
        if (reached())
            loop.quit();
    });
    loop.exec();
    m_checks.removeLast();
    return reached();
}

void Awaiter::changed()
{
    const auto checks = m_checks;
    for (const auto &check : checks)
        check();
}
