#ifndef SERVERSETTINGS_H
#define SERVERSETTINGS_H

#include <QtCore/QString>
#include <QtCore/QUrl>

QT_BEGIN_NAMESPACE
class QSettings;
QT_END_NAMESPACE

/// What the user tells about the server, kept from one run of the program to the next.
struct ServerSettings {
    QString host;
    int port = 0;
    /// PEM file with the authorities that the server is checked against; empty for the system's.
    QString caFile;
    QString definitionPath;
    QString indexPath;
    QString changeLogPath;
    /// Where downloads go.
    QString folder;

    static ServerSettings load(const QSettings &settings);
    void save(QSettings *settings) const;

    /// The URL of a path on this server.
    QUrl url(const QString &path) const;
    /// Where a download with this name is saved.
    QString savePath(const QString &name) const;
};

#endif // SERVERSETTINGS_H
