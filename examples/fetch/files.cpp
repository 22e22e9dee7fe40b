#include "files.h"

#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QLocale>

QString sizeText(qint64 bytes)
{
    return QLocale::c().formattedDataSize(bytes, 1);
}

QString downloadFault(const QString &path, quint64 size)
{
    const qint64 actual = QFileInfo(path).size();
    if (static_cast<quint64>(actual) != size) {
        return QStringLiteral("%1 has %2 bytes instead of %3").arg(path).arg(actual).arg(size);
    }
    return QString();
}

bool settleFile(const QString &path, const QByteArray &body)
{
    QFile file(path);
    return file.open(QIODevice::ReadWrite) && file.resize(body.size()) && file.readAll() == body;
}
