#ifndef CHECKSUM_H
#define CHECKSUM_H

#include <QtCore/QCryptographicHash>
#include <QtCore/QFile>
#include <QtCore/QObject>

/// Works out the SHA-256 of a file a piece at a time, in the event loop, so that the window stays
/// alive beside it. Deletes itself when it is done.
class Checksum : public QObject {
    Q_OBJECT

public:
    explicit Checksum(const QString &path, QObject *parent = nullptr);

Q_SIGNALS:
    /// In hexadecimal; empty when the file cannot be read.
    void done(const QString &sha256);

private:
    void begin();
    void addPiece();
    void end(const QString &sha256);

    QFile m_file;
    QCryptographicHash m_hash;
};

#endif // CHECKSUM_H
