// Fills the queue with COUNT requests that stay pending, asks for all of them again, and aborts
// them: half of them one by one, the other half by a list.

#include "support.h"

#include <tarvisnet/errorcodes.h>
#include <tarvisnet/tarvisnet.h>

#include <QtCore/QCoreApplication>

#include <functional>

namespace {

class Queue {
public:
    explicit Queue(int count)
        : m_count(count)
    {
        m_client.setStopProcess(true);
        QObject::connect(&m_client, &TarvisNet::s_errorChanged, &m_client, [this](short code) {
            if (code == errorcodes::already_pending)
                ++m_refused;
        });
    }

    QJsonObject measure()
    {
        const double add = timeOf([this] { addAll(); });
        const int refusedAtFirst = m_refused;
        const double refuse = timeOf([this] { addAll(); });
        const int refusedAgain = m_refused;
        const double abort = timeOf([this] {
            for (int i = 0; i < m_count / 2; ++i)
                m_client.abortDownload(path(i));
        });
        QStringList rest;
        for (int i = m_count / 2; i < m_count; ++i)
            rest.append(path(i));
        const double abortList = timeOf([&] { m_client.abortDownload(rest); });

        // What is gone may be added again.
        m_client.setStopProcess(true);
        addAll();
        const bool right =
            refusedAtFirst == 0 && refusedAgain == m_count && m_refused == refusedAgain;
        return {{QStringLiteral("count"), right ? m_count : 0},
                {QStringLiteral("add"), add},
                {QStringLiteral("refuse"), refuse},
                {QStringLiteral("abort"), 2 * abort},
                {QStringLiteral("abortList"), 2 * abortList}};
    }

private:
    static double timeOf(const std::function<void()> &work)
    {
        QElapsedTimer clock;
        clock.start();
        work();
        return bench::seconds(clock);
    }

    static QString path(int number)
    {
        return QStringLiteral("/content/") + QString::number(number);
    }

    void addAll()
    {
        const QString server = QStringLiteral("http://127.0.0.1:1");
        for (int i = 0; i < m_count; ++i)
            m_client.rawGet(QUrl(server + path(i)));
    }

    const int m_count;
    int m_refused = 0;
    TarvisNet m_client;
};

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    const bench::Options options({QStringLiteral("count")});
    bench::dropMessages();
    bench::print(Queue(int(options.number(QStringLiteral("count")))).measure());
}
