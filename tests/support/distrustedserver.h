#ifndef TARVISNET_TESTS_DISTRUSTEDSERVER_H
#define TARVISNET_TESTS_DISTRUSTEDSERVER_H

#include <QtCore/QFile>
#include <QtCore/QProcess>
#include <QtCore/QTemporaryDir>
#include <QtCore/QUrl>
#include <QtNetwork/QSslCertificate>
#include <QtNetwork/QSslKey>
#include <QtNetwork/QSslSocket>
#include <QtNetwork/QTcpServer>

/// An HTTPS server on 127.0.0.1 whose certificate is on Qt's list of distrusted ones, which goes by
/// common name and serial number only. It shakes hands and says nothing.
class DistrustedServer : public QTcpServer {
public:
    DistrustedServer()
    {
        const QString key = m_directory.filePath("key");
        const QString certificate = m_directory.filePath("certificate");
        QProcess openssl;
        openssl.start("openssl",
                      {"req", "-x509", "-newkey", "rsa:2048", "-nodes", "-subj",
                       "/CN=DigiNotar Services 1024 CA", "-set_serial", "0x469c2cb0", "-keyout",
                       key, "-out", certificate});
        if (!openssl.waitForFinished() || openssl.exitCode() != 0
            || !listen(QHostAddress::LocalHost))
            qFatal("no server with a distrusted certificate");
        m_certificate = QSslCertificate(content(certificate));
        m_key = QSslKey(content(key), QSsl::Rsa);
    }

    QUrl url() const { return QUrl(QStringLiteral("https://127.0.0.1:%1/").arg(serverPort())); }
    QSslCertificate certificate() const { return m_certificate; }

protected:
    void incomingConnection(qintptr descriptor) override
    {
        auto *socket = new QSslSocket(this);
        socket->setSocketDescriptor(descriptor);
        socket->setLocalCertificate(m_certificate);
        socket->setPrivateKey(m_key);
        socket->startServerEncryption();
    }

private:
    static QByteArray content(const QString &path)
    {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    QTemporaryDir m_directory;
    QSslCertificate m_certificate;
    QSslKey m_key;
};

#endif // TARVISNET_TESTS_DISTRUSTEDSERVER_H
