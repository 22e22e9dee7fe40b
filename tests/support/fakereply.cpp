#include "fakereply.h"

#include <algorithm>

FakeReply::FakeReply(const QUrl &url, QObject *parent)
    : QNetworkReply(parent)
{
    setUrl(url);
    setRequest(QNetworkRequest(url));
    setOperation(QNetworkAccessManager::GetOperation);
    open(QIODevice::ReadOnly);
}

void FakeReply::setStatus(int status)
{
    setAttribute(QNetworkRequest::HttpStatusCodeAttribute, status);
}

void FakeReply::appendBody(const QByteArray &bytes)
{
    m_unread += bytes;
}

void FakeReply::fail(NetworkError code, const QString &text)
{
    setError(code, text);
    Q_EMIT errorOccurred(code);
}

void FakeReply::finish()
{
    setFinished(true);
    Q_EMIT finished();
}

void FakeReply::abort()
{
    ++m_abortCalls;
    if (isFinished())
        return;
    fail(OperationCanceledError, QStringLiteral("Operation canceled"));
    finish();
}

void FakeReply::ignoreSslErrors()
{
    ++m_ignoreSslErrorsCalls;
}

qint64 FakeReply::bytesAvailable() const
{
    return QNetworkReply::bytesAvailable() + m_unread.size();
}

qint64 FakeReply::readData(char *data, qint64 maxSize)
{
    const int size = int(std::min<qint64>(maxSize, m_unread.size()));
    // Qt asks for nothing at a null address when it skips.
    std::copy_n(m_unread.constBegin(), size, data);
    m_unread.remove(0, size);
    return size;
}

void FakeReply::sslConfigurationImplementation(QSslConfiguration &configuration) const
{
    configuration = m_sslConfiguration;
}

void FakeReply::setSslConfigurationImplementation(const QSslConfiguration &configuration)
{
    m_sslConfiguration = configuration;
}

#include "moc_fakereply.cpp"
