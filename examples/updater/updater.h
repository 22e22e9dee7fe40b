#ifndef UPDATER_H
#define UPDATER_H

#include "downloadmodel.h"
#include "serversettings.h"

#include <tarvisnet/tarvisnet.h>

#include <QtCore/QJsonDocument>
#include <QtCore/QMap>
#include <QtCore/QObject>

/// What the window does: asks the server for its documents and downloads files.
class Updater : public QObject {
    Q_OBJECT

public:
    explicit Updater(QObject *parent = nullptr);
    ~Updater() override;

    /// Takes effect for what is begun from then on.
    void setServer(const ServerSettings &settings);
    DownloadModel *downloads() { return &m_downloads; }
    bool isChecking() const { return !m_openDocuments.isEmpty(); }
    /// Whether all documents of the last check arrived.
    bool hasCheckSucceeded() const { return m_hasCheckSucceeded; }

    /// Asks for definition, index and change log, for those that have a path. A check that is still
    /// under way is given up for the new one.
    void check();
    /// Goes on where an earlier download of the row was interrupted.
    void startDownload(int row);
    /// What has arrived stays to be resumed.
    void abortDownload(int row);

Q_SIGNALS:
    void checkingChanged();
    void definitionArrived(const QJsonDocument &definition);
    void indexArrived(const QJsonDocument &index);
    void changeLogArrived(const QString &text);
    /// Something went wrong: \a words for the user, and where, which may be empty.
    void failed(const QString &words, const QString &place);

private:
    struct Document {
        QString path;
        void (TarvisNet::*fetch)(QString) = nullptr;
    };

    void connectClient();
    void askForDocuments();
    void giveUpDocuments();
    void endDocument(const QString &url, bool succeeded);
    void takeDefinition(const QJsonDocument &document, const QString &url);
    void takeIndex(const QJsonDocument &document, const QString &url);
    void takeFiles(const QVector<RemoteFile> &files);

    void requestFailed(short code, const QString &url);
    void requestAborted(const QString &url);
    void requestFinished(const QString &url);
    QString errorWords(short code, const QString &url) const;

    bool clearTheWay(const RemoteFile &file);
    void verify(int row);
    void takeChecksum(const QString &url, const QString &sha256);
    void reject(int row, const QString &reason);
    void settleFromDisk(int row);
    void settleAllFromDisk();
    qint64 partialSize(const RemoteFile &file) const;

    ServerSettings m_settings;
    DownloadModel m_downloads;
    /// The documents that are still to come, by URL text.
    QMap<QString, Document> m_openDocuments;
    bool m_hasCheckSucceeded = false;
    TarvisNet m_client;
};

#endif // UPDATER_H
