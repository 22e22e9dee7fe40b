#ifndef TARVISNET_RESUMEPOINT_P_H
#define TARVISNET_RESUMEPOINT_P_H

#include <QtCore/QByteArray>
#include <QtCore/QString>

#include <optional>

QT_BEGIN_NAMESPACE
class QNetworkReply;
QT_END_NAMESPACE

/// What is kept beside the beginning of a file, to tell later whether it may be continued.
struct ResumePoint {
    QString url;
    /// Size and hash as they were asked for.
    quint64 size = 0;
    QString hash;
    /// See resumepoint::validatorOf().
    QByteArray validator;
    /// Size of the complete file as far as it is known, else resumepoint::unknown.
    qint64 total = -1;
};

namespace resumepoint {

inline constexpr qint64 unknown = -1;

/// Nothing if there is no such file, or if it is not one that write() has made.
std::optional<ResumePoint> read(const QString &path);
/// Replaces the file \a path. It is only for its owner, and no link is followed.
bool write(const QString &path, const ResumePoint &point);

/// "Content-Range: bytes first-last/total".
struct ContentRange {
    qint64 first = unknown;
    qint64 last = unknown;
    /// Unknown when the server leaves it open.
    qint64 total = unknown;
};

std::optional<ContentRange> contentRange(const QByteArray &text);

/// What counts of the head of an answer.
struct Answer {
    int status = 0;
    /// Of the body.
    qint64 length = unknown;
    /// All unknown when there is none, or one that cannot be read.
    ContentRange range;
    QByteArray encoding;
    QByteArray eTag;
    QByteArray lastModified;
    QByteArray date;
};

Answer answerOf(const QNetworkReply *reply);

/// What tells this content from every other at the same address, in the form that "If-Range" takes;
/// empty if the answer has nothing of the kind.
QByteArray validatorOf(const Answer &answer);

/// What was asked for.
struct Question {
    /// Bytes that are left out; 0 for the whole file.
    qint64 offset = 0;
    /// Size that the caller expects of the complete file, or unknown.
    qint64 size = unknown;
    /// That of the file that the beginning is from, or unknown.
    qint64 total = unknown;
    /// Of the beginning; may be empty.
    QByteArray validator;
};

enum class Judgement {
    /// The body is the whole file.
    Whole,
    /// The body is what is missing.
    Rest,
    /// It does not fit the beginning that there is.
    AskAfresh,
    /// The body is a file of another size.
    OtherSize,
    /// It is no answer to what was asked.
    NoFile,
};

Judgement judge(const Answer &answer, const Question &question);

} // namespace resumepoint

#endif // TARVISNET_RESUMEPOINT_P_H
