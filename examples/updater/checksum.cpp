#include "checksum.h"

#include <QtCore/QTimer>

namespace {

// Some milliseconds of work.
constexpr qint64 pieceSize = qint64(1024) * 1024;

} // namespace

Checksum::Checksum(const QString &path, QObject *parent)
    : QObject(parent)
    , m_file(path)
    , m_hash(QCryptographicHash::Sha256)
{
    QTimer::singleShot(0, this, &Checksum::begin);
}

void Checksum::begin()
{
    if (m_file.open(QIODevice::ReadOnly))
        addPiece();
    else
        end(QString());
}

void Checksum::addPiece()
{
    const QByteArray piece = m_file.read(pieceSize);
    m_hash.addData(piece);
    if (m_file.error() != QFileDevice::NoError)
        end(QString());
    else if (piece.isEmpty())
        end(QString::fromLatin1(m_hash.result().toHex()));
    else
        QTimer::singleShot(0, this, &Checksum::addPiece);
}

void Checksum::end(const QString &sha256)
{
    deleteLater();
    Q_EMIT done(sha256);
}
