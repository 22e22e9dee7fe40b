#ifndef TARVISNET_DOWNLOADFILE_P_H
#define TARVISNET_DOWNLOADFILE_P_H

#include <QtCore/QByteArray>
#include <QtCore/QString>

QT_BEGIN_NAMESPACE
class QFile;
class QNetworkReply;
QT_END_NAMESPACE

/// The file that one reply is appended to while it arrives.
class DownloadFile {
public:
    enum class Append {
        OpenFailed,
        /// The file has its size already; nothing was read.
        Complete,
        NothingAvailable,
        Written,
        /// A write fell short, now or earlier: what has arrived is lost.
        Dropped,
    };

    DownloadFile() = default;
    /// \a size is that of the complete file.
    DownloadFile(QString path, quint64 size);

    void setTarget(const QString &path, quint64 size);

    /// Appends what \a reply has available, unless the file has its size already. The size is
    /// looked at once, so the bytes that cross it are written as well.
    Append append(QNetworkReply *reply);

private:
    bool write(QNetworkReply *reply, QFile &file) const;

    QString m_path;
    quint64 m_size = 0;
    bool m_isCut = false;
};

namespace savedfile {

/// The Range value that asks for what is still missing of a file.
QByteArray openRange(qint64 from);

/// Writes \a body over the start of the file \a path; what the file has beyond it stays. False when
/// the file cannot be opened.
bool overwriteStart(const QString &path, const QByteArray &body);

/// Makes the file \a source the new file \a destination. Moves it, without reading it, where nobody
/// can tell that from a copy that was made and a source that was removed. False if it was not
/// moved, and then nothing has changed. Never replaces a file.
bool moveLikeCopy(const QString &source, const QString &destination);

} // namespace savedfile

#endif // TARVISNET_DOWNLOADFILE_P_H
