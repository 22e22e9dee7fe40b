#include "files.h"

#include <QtCore/QCryptographicHash>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QLocale>

namespace {

QString sha256Of(const QString &path)
{
    QFile file(path);
    QCryptographicHash hash(QCryptographicHash::Sha256);
    if (!file.open(QIODevice::ReadOnly) || !hash.addData(&file)) {
        return QString();
    }
    return QString::fromLatin1(hash.result().toHex());
}

} // namespace

QString sizeText(qint64 bytes)
{
    return QLocale::c().formattedDataSize(bytes, 1);
}

QString downloadFault(const QString &path, quint64 size, const QString &sha256)
{
    const qint64 actual = QFileInfo(path).size();
    if (static_cast<quint64>(actual) != size) {
        return QStringLiteral("%1 has %2 bytes instead of %3").arg(path).arg(actual).arg(size);
    }
    if (!sha256.isEmpty() && sha256.compare(sha256Of(path), Qt::CaseInsensitive) != 0) {
        return QStringLiteral("%1 does not have the SHA-256 that was given").arg(path);
    }
    return QString();
}

bool settleFile(const QString &path, const QByteArray &body)
{
    QFile file(path);
    return file.open(QIODevice::ReadWrite) && file.resize(body.size()) && file.readAll() == body;
}
