#include "resumepoint_p.h"

#include "descriptor_p.h"
#include "records.h"
#include "replyinfo_p.h"

#include <QtCore/QFile>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtCore/QRegularExpression>

#include <unistd.h>

namespace resumepoint {

namespace {

constexpr QLatin1String urlKey = general::literal("url");
constexpr QLatin1String sizeKey = general::literal("size");
constexpr QLatin1String hashKey = general::literal("hash");
constexpr QLatin1String validatorKey = general::literal("validator");
constexpr QLatin1String totalKey = general::literal("total");

// More than any that was ever written.
constexpr qint64 greatestFile = qint64(64) * 1024;

/// Fits when one of the two is not known.
bool fits(qint64 length, qint64 expected)
{
    return length == unknown || expected == unknown || length == expected;
}

bool isPlain(const QByteArray &encoding)
{
    return encoding.isEmpty() || encoding.compare("identity", Qt::CaseInsensitive) == 0;
}

/// A tag is compared with a tag, a date with a date.
bool isOfSameVersion(const Answer &answer, const QByteArray &validator)
{
    const QByteArray own = validator.startsWith('"') ? answer.eTag : answer.lastModified;
    return validator.isEmpty() || own.isEmpty() || own == validator;
}

bool continues(const Answer &answer, const Question &question)
{
    const ContentRange &range = answer.range;
    return range.first == question.offset && range.last == range.total - 1
        && fits(range.total, question.total) && fits(range.total, question.size)
        && fits(answer.length, range.total - range.first) && isPlain(answer.encoding)
        && isOfSameVersion(answer, question.validator);
}

/// "-1" and "+1" are no lengths.
qint64 lengthOf(const QByteArray &text)
{
    bool isNumber = false;
    const qint64 length = text.toLongLong(&isNumber);
    return isNumber && text.at(0) >= '0' && text.at(0) <= '9' ? length : unknown;
}

std::optional<ResumePoint> pointOf(const QJsonObject &object)
{
    // Numbers are kept as texts: those of JSON lose digits.
    bool isSize = false;
    bool isTotal = false;
    const ResumePoint point{
        object.value(urlKey).toString(), object.value(sizeKey).toString().toULongLong(&isSize),
        object.value(hashKey).toString(), object.value(validatorKey).toString().toLatin1(),
        object.value(totalKey).toString().toLongLong(&isTotal)};
    if (!isSize || !isTotal || point.total < unknown)
        return std::nullopt;
    return point;
}

} // namespace

std::optional<ResumePoint> read(const QString &path)
{
    const Descriptor file(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
    const struct stat about = file.about();
    if (!S_ISREG(about.st_mode) || about.st_uid != geteuid() || about.st_size > greatestFile)
        return std::nullopt;
    return pointOf(QJsonDocument::fromJson(file.read(0, about.st_size)).object());
}

bool write(const QString &path, const ResumePoint &point)
{
    const QJsonObject object{{urlKey, point.url},
                             {sizeKey, QString::number(point.size)},
                             {hashKey, point.hash},
                             {validatorKey, QString::fromLatin1(point.validator)},
                             {totalKey, QString::number(point.total)}};
    const QByteArray text = QJsonDocument(object).toJson();
    unlink(QFile::encodeName(path).constData());
    const Descriptor file(path, O_WRONLY | O_CREAT | O_EXCL, S_IRUSR | S_IWUSR);
    return file.isOpen() && file.write(0, text) == text.size();
}

std::optional<ContentRange> contentRange(const QByteArray &text)
{
    static const QRegularExpression form(QStringLiteral("\\Abytes (\\d+)-(\\d+)/(\\d+|\\*)\\z"),
                                         QRegularExpression::CaseInsensitiveOption);
    const QRegularExpressionMatch match = form.match(QString::fromLatin1(text));
    const auto number = [&](int group) { return lengthOf(match.captured(group).toLatin1()); };
    const ContentRange range{number(1), number(2), number(3)};
    const bool isOpen = match.captured(3) == QLatin1String("*");
    const bool isRange =
        range.first != unknown && range.first <= range.last && (isOpen || range.last < range.total);
    return isRange ? std::optional(range) : std::nullopt;
}

Answer answerOf(const QNetworkReply *reply)
{
    return {replyinfo::httpStatus(reply),
            lengthOf(reply->rawHeader("Content-Length")),
            contentRange(reply->rawHeader("Content-Range")).value_or(ContentRange{}),
            reply->rawHeader("Content-Encoding"),
            reply->rawHeader("ETag"),
            reply->rawHeader("Last-Modified"),
            reply->rawHeader("Date")};
}

QByteArray validatorOf(const Answer &answer)
{
    // Some servers give the coded and the plain content one tag, and ranges are of the plain one.
    if (!isPlain(answer.encoding))
        return QByteArray();
    if (answer.eTag.startsWith('"'))
        return answer.eTag;
    // A file that was changed in the very second in which it was served may change again in it.
    return answer.lastModified == answer.date ? QByteArray() : answer.lastModified;
}

Judgement judge(const Answer &answer, const Question &question)
{
    const bool asksForRest = question.offset > 0;
    const auto refusal = [asksForRest](Judgement fault) {
        return asksForRest ? Judgement::AskAfresh : fault;
    };
    switch (answer.status) {
    case 200:
        return fits(answer.length, question.size) ? Judgement::Whole
                                                  : refusal(Judgement::OtherSize);
    case 206:
        return asksForRest && continues(answer, question) ? Judgement::Rest
                                                          : refusal(Judgement::NoFile);
    case 416:
        return refusal(Judgement::NoFile);
    default:
        return Judgement::NoFile;
    }
}

} // namespace resumepoint
