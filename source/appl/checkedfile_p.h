#ifndef TARVISNET_CHECKEDFILE_P_H
#define TARVISNET_CHECKEDFILE_P_H

#include "backgroundwork_p.h"
#include "contenthash_p.h"
#include "records.h"
#include "resumepoint_p.h"

#include <QtCore/QScopedPointer>
#include <QtCore/QSharedPointer>
#include <QtCore/QString>
#include <QtCore/QUrl>

#include <functional>
#include <optional>

QT_BEGIN_NAMESPACE
class QNetworkReply;
QT_END_NAMESPACE

class TemporaryFile;

/// The file of one download that is put in place only when it is right. It outlives the requests
/// that the download takes:
///
///     file.prepare(request);     // before each
///     file.take(reply);          // whenever bytes have arrived
///     file.finish(reply, done);  // once the last one has ended well
///
/// What is on disk when it is destroyed stays, for the next download of the same file, and nothing
/// is put in place any more.
class CheckedFile {
public:
    enum class Verdict {
        Good,
        /// Nothing of it can be used. What was on disk is gone, and the next request, after another
        /// prepare(), will be for the whole file.
        AskAfresh,
        /// The server has sent less than it announced. What is on disk is a clean beginning.
        BrokenOff,
        /// The disk does not take it, or has no place for it. What is on disk is a clean beginning.
        WriteFailed,
        /// The rest: it is not the file that was asked for. What was on disk is gone.
        OtherSize,
        OtherContent,
        NoFile,
    };
    using Done = std::function<void(Verdict)>;

    /// Of \a file the two paths count, and the size and hash that are expected, if any.
    CheckedFile(const FileData &file, const QUrl &url, QSharedPointer<BackgroundWork> work);
    ~CheckedFile();

    /// Gives \a request the headers with which it asks for what is missing.
    Verdict prepare(QNetworkRequest &request);
    /// How many bytes the body goes on behind; 0 when it begins at the beginning.
    qint64 offset() const { return m_question.offset; }
    /// Judges the head of the answer, once, and saves what has arrived. Any verdict but Good stays.
    Verdict take(QNetworkReply *reply);
    /// Takes what is left, checks size and content, and puts the file in place. \a done is called
    /// later, unless this object is gone by then, and may destroy it.
    void finish(QNetworkReply *reply, Done done);

    /// 0 while it is unknown.
    quint64 expectedSize() const;
    /// Those from earlier requests included.
    quint64 receivedSize() const { return quint64(m_received); }

    /// Whether a content can be checked against \a text; an empty one asks for no check.
    static bool isHash(const QString &text);
    /// Where the file \a destination grows, in \a directory or, if that is empty, beside it. No two
    /// destinations share it.
    static QString temporaryPath(const QString &directory, const QString &destination);
    /// Where it is copied to on the way from another file system. No two destinations share it.
    static QString copyPath(const QString &destination);
    /// Where it is kept what the file \a temporaryPath is the beginning of.
    static QString companionPath(const QString &temporaryPath);
    /// Equal for the same file, however its path is spelt.
    static QString identity(const QString &destination);

private:
    Q_DISABLE_COPY(CheckedFile)

    bool openFile();
    void removeLeftCopy();
    std::optional<ResumePoint> usableBeginning() const;
    void lookAtBeginning();
    void setHeaders(QNetworkRequest &request) const;

    Verdict judge(const resumepoint::Answer &answer);
    Verdict beginWith(const resumepoint::Answer &answer);
    Verdict goOn();
    Verdict save(QNetworkReply *reply);
    Verdict askAfresh();
    Verdict giveUp(Verdict fault);

    void checkDigest(const QByteArray &digest);
    void putInPlace();
    void endLater(Verdict verdict);
    void end(Verdict verdict);

    bool empty();
    bool truncate(qint64 size);
    void removeFile();
    void release();
    void closeInBackground(QSharedPointer<TemporaryFile> file) const;
    void removeCompanion() const;

    const FileData m_data;
    const QString m_url;
    const std::optional<ContentHash> m_wanted;
    const QSharedPointer<BackgroundWork> m_work;

    QSharedPointer<TemporaryFile> m_file;
    QScopedPointer<FollowingHash> m_hash;
    /// What the current request asks for.
    resumepoint::Question m_question;
    /// Of its answer; nothing until there is one.
    std::optional<Verdict> m_verdict;
    qint64 m_received = 0;
    /// Whether the server has said how long its answer is.
    bool m_isAnnounced = false;
    /// Bytes of large files that are freed in the background.
    qint64 m_beingFreed = 0;
    /// Whether what is on disk came in the bodies of several answers.
    bool m_isResumed = false;
    bool m_isRefetched = false;
    BackgroundWork::Ticket m_ending;
    Done m_done;
};

#endif // TARVISNET_CHECKEDFILE_P_H
