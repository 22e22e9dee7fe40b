#include "opensslserver.h"

#include "scriptedserver.h"

OpensslServer::OpensslServer(const QStringList &options)
    : m_port(ScriptedServer::freePort())
{
    const QString certificates = TARVISNET_TEST_CERTIFICATES;
    m_process.start(
        TARVISNET_OPENSSL_PROGRAM,
        QStringList({"s_server", "-www", "-accept", "127.0.0.1:" + QString::number(m_port), "-cert",
                     certificates + "/server.crt", "-key", certificates + "/server.key"})
            + options);
    // It says so once it listens.
    QByteArray said;
    while (!said.contains("ACCEPT")) {
        if (!m_process.waitForReadyRead(10000))
            qFatal("no openssl server: %s", m_process.readAllStandardError().constData());
        said += m_process.readAllStandardOutput();
    }
}

OpensslServer::~OpensslServer()
{
    m_process.kill();
    m_process.waitForFinished();
}

QUrl OpensslServer::url(const QString &path) const
{
    return QUrl(QString("https://127.0.0.1:%1").arg(m_port) + path);
}
