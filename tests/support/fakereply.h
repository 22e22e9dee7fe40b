#ifndef TARVISNET_TESTS_FAKEREPLY_H
#define TARVISNET_TESTS_FAKEREPLY_H

#include <QtNetwork/QNetworkReply>
#include <QtNetwork/QSslConfiguration>

/// A reply that never was on a network: the test sets what it holds and makes it emit, so that
/// states that a real server reaches only by luck can be driven one by one.
///
///     FakeReply reply(QUrl("http://127.0.0.1/file"));
///     reply.setStatus(200);
///     reply.appendBody("some bytes");
///     Q_EMIT reply.readyRead();
///     reply.finish();
///
/// It is running until it is finished. The signals of QNetworkReply are public: a test emits them
/// with Q_EMIT, or by the methods below, which keep the state in step. The setters that
/// QNetworkReply hides are public here.
class FakeReply : public QNetworkReply {
    Q_OBJECT

public:
    explicit FakeReply(const QUrl &url = QUrl(), QObject *parent = nullptr);

    using QNetworkReply::ignoreSslErrors;
    using QNetworkReply::setAttribute;
    using QNetworkReply::setError;
    using QNetworkReply::setRawHeader;
    using QNetworkReply::setUrl;

    /// Sets the HTTP status attribute.
    void setStatus(int status);
    /// Adds bytes that can be read; emits nothing.
    void appendBody(const QByteArray &bytes);

    /// Sets the error and emits errorOccurred; QNetworkReply itself emits the deprecated error
    /// signal along with it. The reply is still running then, as with Qt.
    void fail(NetworkError code, const QString &text = QStringLiteral("failed by the test"));
    /// Marks the reply finished and emits finished.
    void finish();

    int abortCalls() const { return m_abortCalls; }
    int ignoreSslErrorsCalls() const { return m_ignoreSslErrorsCalls; }

    qint64 bytesAvailable() const override;

public Q_SLOTS:
    /// Counts. On a running reply also fails with OperationCanceledError and finishes, all before
    /// it returns, as Qt does.
    void abort() override;
    /// Counts.
    void ignoreSslErrors() override;

protected:
    qint64 readData(char *data, qint64 maxSize) override;
    void sslConfigurationImplementation(QSslConfiguration &configuration) const override;
    void setSslConfigurationImplementation(const QSslConfiguration &configuration) override;

private:
    QByteArray m_unread;
    QSslConfiguration m_sslConfiguration;
    int m_abortCalls = 0;
    int m_ignoreSslErrorsCalls = 0;
};

#endif // TARVISNET_TESTS_FAKEREPLY_H
