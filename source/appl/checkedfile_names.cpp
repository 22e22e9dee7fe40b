#include "checkedfile_p.h"

#include <QtCore/QCryptographicHash>
#include <QtCore/QDir>
#include <QtCore/QFileInfo>

namespace {

/// Enough to be recognised, and with all that follows it still a name for every file system.
QString shortName(const QString &path)
{
    constexpr int length = 40;
    QString name = QFileInfo(path).fileName().left(length);
    if (!name.isEmpty() && name.at(name.size() - 1).isHighSurrogate())
        name.chop(1);
    return name;
}

/// As the system finds it: what is before "..", may be a link.
QString directoryOf(const QString &path)
{
    const QFileInfo file(path);
    const QString directory = QFileInfo(file.path()).canonicalFilePath();
    return directory.isEmpty() ? file.absolutePath() : directory;
}

/// The file of \a destination in \a directory, or beside it if that is empty.
QString namedAfter(const QString &destination, const QString &directory, QLatin1String ending)
{
    constexpr int digestSize = 16;
    const QByteArray digest = QCryptographicHash::hash(CheckedFile::identity(destination).toUtf8(),
                                                       QCryptographicHash::Sha256)
                                  .left(digestSize)
                                  .toHex();
    const QDir home(directory.isEmpty() ? directoryOf(destination) : directory);
    // Appended, not formatted: the name may itself contain what looks like a place to fill in.
    return home.absoluteFilePath(shortName(destination)) + QLatin1Char('.')
        + QString::fromLatin1(digest) + ending + general::temp_file_suffix;
}

} // namespace

bool CheckedFile::isHash(const QString &text)
{
    return text.isEmpty() || ContentHash::parsed(text);
}

QString CheckedFile::temporaryPath(const QString &directory, const QString &destination)
{
    return namedAfter(destination, directory, QLatin1String("."));
}

QString CheckedFile::copyPath(const QString &destination)
{
    return namedAfter(destination, QString(), QLatin1String(".copy."));
}

QString CheckedFile::companionPath(const QString &temporaryPath)
{
    return temporaryPath + QStringLiteral(".json");
}

/// A link that is the last part of the path is a file of its own: it will be replaced.
QString CheckedFile::identity(const QString &destination)
{
    return directoryOf(destination) + QLatin1Char('/') + QFileInfo(destination).fileName();
}
