#ifndef UPDATER_H
#define UPDATER_H

#include "downloadmodel.h"
#include "serversettings.h"

#include <tarvisnet/tarvisnet.h>

#include <QtCore/QJsonDocument>
#include <QtCore/QMap>
#include <QtCore/QObject>
#include <QtCore/QScopedPointer>

/// What the window does: asks the server for its documents and downloads files.
class Updater : public QObject {
    Q_OBJECT

public:
    using QObject::QObject;

    /// Takes effect for what is begun from then on. Other authorities are another client: what runs
    /// is aborted then.
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

    void makeClient();
    void connectClient();
    void configureClient();
    void abortAll();
    bool hasClient();
    void askForDocuments();
    void giveUpDocuments();
    void endDocument(const QString &url, bool succeeded);
    void takeDefinition(const QJsonDocument &document, const QString &url);
    void takeIndex(const QJsonDocument &document, const QString &url);
    void takeFiles(const QVector<RemoteFile> &files);

    void requestFailed(const QString &url, const QString &reason);
    void requestFinished(const QString &url);

    void settleFromDisk(int row);
    void settleAllFromDisk();
    qint64 partialSize(const RemoteFile &file) const;

    ServerSettings m_settings;
    DownloadModel m_downloads;
    /// The documents that are still to come, by URL text.
    QMap<QString, Document> m_openDocuments;
    bool m_hasCheckSucceeded = false;
    /// None while there is a file of authorities that has none.
    QScopedPointer<TarvisNet> m_client;
};

#endif // UPDATER_H
