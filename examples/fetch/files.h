#ifndef FILES_H
#define FILES_H

#include <QtCore/QByteArray>
#include <QtCore/QString>

/// A size for people: "1.5 MiB".
QString sizeText(qint64 bytes);

/// What is wrong with a downloaded file, in words; empty when it has the size that was expected.
QString downloadFault(const QString &path, quint64 size);

/// Makes sure that a file holds exactly \a body. The library writes over an old file without
/// shortening it, and reports the answer also when it could not be written.
bool settleFile(const QString &path, const QByteArray &body);

#endif // FILES_H
