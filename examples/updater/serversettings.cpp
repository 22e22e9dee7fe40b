#include "serversettings.h"

#include "serverurl.h"

#include <QtCore/QDir>
#include <QtCore/QSettings>
#include <QtCore/QStandardPaths>

namespace {

constexpr int httpsPort = 443;

struct TextEntry {
    const char *key;
    QString ServerSettings::*member;
    const char *fallback;
};

constexpr TextEntry textEntries[] = {
    {"server/host", &ServerSettings::host, ""},
    {"server/caFile", &ServerSettings::caFile, ""},
    {"server/definitionPath", &ServerSettings::definitionPath, "/definition.json"},
    {"server/indexPath", &ServerSettings::indexPath, "/index.json"},
    {"server/changeLogPath", &ServerSettings::changeLogPath, "/changes.txt"},
    {"downloads/folder", &ServerSettings::folder, ""},
};

constexpr char portKey[] = "server/port";

// A folder of our own, because files that are in the way of a download are replaced.
QString ownFolder()
{
    return QDir(QStandardPaths::writableLocation(QStandardPaths::DownloadLocation))
        .filePath(QStringLiteral("Updater"));
}

} // namespace

ServerSettings ServerSettings::load(const QSettings &settings)
{
    ServerSettings loaded;
    for (const TextEntry &entry : textEntries) {
        loaded.*entry.member =
            settings.value(QLatin1String(entry.key), QLatin1String(entry.fallback)).toString();
    }
    if (loaded.folder.isEmpty())
        loaded.folder = ownFolder();
    loaded.port = settings.value(QLatin1String(portKey), httpsPort).toInt();
    return loaded;
}

void ServerSettings::save(QSettings *settings) const
{
    for (const TextEntry &entry : textEntries)
        settings->setValue(QLatin1String(entry.key), this->*entry.member);
    settings->setValue(QLatin1String(portKey), port);
}

QUrl ServerSettings::url(const QString &path) const
{
    return urlOfPath(host, port, path);
}

QString ServerSettings::savePath(const QString &name) const
{
    return QDir(folder).absoluteFilePath(name);
}
