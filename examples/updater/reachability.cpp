#include "reachability.h"

Reachability::Reachability(QObject *parent)
    : QObject(parent)
    , m_manager(new QNetworkAccessManager)
    , m_ping(m_manager)
{
    // Whether the server answers does not depend on its certificate: who it is, the client checks.
    connect(m_manager.data(), &QNetworkAccessManager::sslErrors, this,
            [](QNetworkReply *reply) { reply->ignoreSslErrors(); });
    connect(&m_ping, &RemotePing::s_ping, this, [this] {
        m_lastAnswer = QTime::currentTime();
        enter(State::Answering);
    });
    connect(&m_ping, &RemotePing::s_error, this, [this] { enter(State::Failing); });
    connect(&m_ping, &RemotePing::s_timeout, this, [this] { enter(State::Silent); });
}

void Reachability::watch(const QUrl &url)
{
    if (m_ping.isRunnig() && m_ping.getUrl() == url)
        return;
    m_ping.stop();
    // Not host and port one by one: the probe's own port is a signed 16-bit number.
    m_ping.setUrl(url);
    m_lastAnswer = QTime();
    enter(State::Unknown);
    if (url.isValid())
        m_ping.start();
}

void Reachability::enter(State state)
{
    m_state = state;
    Q_EMIT changed();
}
