#ifndef REMOTEFILE_H
#define REMOTEFILE_H

#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QVector>

QT_BEGIN_NAMESPACE
class QJsonDocument;
QT_END_NAMESPACE

/// A file that the server offers.
struct RemoteFile {
    /// Name of the file on this machine.
    QString name;
    /// Absolute path on the server.
    QString path;
    /// In bytes; never 0.
    qint64 size = 0;
    /// In hexadecimal, as the server gives it; empty when it gives none.
    QString sha256;
};

bool operator==(const RemoteFile &left, const RemoteFile &right);

/// The files that an index document lists; README.md tells its format. What cannot be used is left
/// out, with the reason in \a faults.
QVector<RemoteFile> filesOfIndex(const QJsonDocument &index, QStringList *faults);

#endif // REMOTEFILE_H
