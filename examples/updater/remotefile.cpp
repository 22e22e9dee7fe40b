#include "remotefile.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QFileInfo>
#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>

#include <algorithm>
#include <tuple>

namespace {

QString tr(const char *text)
{
    return QCoreApplication::translate("RemoteFile", text);
}

// Beyond this a JSON number cannot tell one byte from the next; nor has it to.
constexpr double mostBytes = 9007199254740992.0;

qint64 sizeOf(double bytes)
{
    return bytes >= 1 && bytes <= mostBytes ? static_cast<qint64>(bytes) : 0;
}

RemoteFile fileOf(const QJsonObject &entry)
{
    RemoteFile file;
    file.path = entry.value(QLatin1String("path")).toString();
    file.name =
        entry.value(QLatin1String("name")).toString(file.path.section(QLatin1Char('/'), -1));
    file.size = sizeOf(entry.value(QLatin1String("size")).toDouble());
    file.sha256 = entry.value(QLatin1String("sha256")).toString();
    return file;
}

// The name comes from outside: it must not lead out of the folder that the user has chosen.
bool isPlainName(const QString &name)
{
    const bool isDots = name == QLatin1String(".") || name == QLatin1String("..");
    return !name.isEmpty() && !isDots && !name.contains(QLatin1Char('/'))
        && !name.contains(QLatin1Char('\\')) && QFileInfo(name).fileName() == name;
}

// Two downloads into one file would destroy each other, and the signals of the library tell
// requests apart by their paths.
bool isTaken(const QVector<RemoteFile> &files, const RemoteFile &file)
{
    return std::any_of(files.cbegin(), files.cend(), [&file](const RemoteFile &other) {
        return other.name == file.name || other.path == file.path;
    });
}

QString faultOf(const RemoteFile &file, const QVector<RemoteFile> &others)
{
    if (!file.path.startsWith(QLatin1Char('/')))
        return tr("it has no absolute path");
    if (!isPlainName(file.name))
        return tr("its name is not that of a file");
    if (file.size < 1)
        return tr("its size is not known");
    if (isTaken(others, file))
        return tr("its name or path is there already");
    return QString();
}

} // namespace

bool operator==(const RemoteFile &left, const RemoteFile &right)
{
    return std::tie(left.name, left.path, left.size, left.sha256)
        == std::tie(right.name, right.path, right.size, right.sha256);
}

QVector<RemoteFile> filesOfIndex(const QJsonDocument &index, QStringList *faults)
{
    QVector<RemoteFile> files;
    const QJsonArray entries = index.object().value(QLatin1String("files")).toArray();
    for (int i = 0; i < entries.size(); ++i) {
        const RemoteFile file = fileOf(entries.at(i).toObject());
        const QString fault = faultOf(file, files);
        if (fault.isEmpty())
            files.append(file);
        else
            faults->append(tr("File %1 of the index is left out: %2").arg(i + 1).arg(fault));
    }
    return files;
}
