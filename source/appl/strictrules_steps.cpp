#include "strictrules_p.h"

#include "bodydecoder_p.h"
#include "errorcodes.h"
#include "replyinfo_p.h"
#include "retryschedule_p.h"
#include "transfer_p.h"

#include <QtCore/QRandomGenerator>

#include <algorithm>
#include <iterator>

/// \file
/// What follows the end of a reply.

namespace {

/// What a redirect makes of a request that is no GET.
enum class NextVerb { Kept, GetForPost, Get };

struct RedirectStatus {
    int status;
    NextVerb verb;
};

constexpr RedirectStatus redirectStatuses[] = {
    {301, NextVerb::GetForPost}, {302, NextVerb::GetForPost}, {303, NextVerb::Get},
    {307, NextVerb::Kept},       {308, NextVerb::Kept},
};

constexpr const char *privateHeaders[] = {"Authorization", "Cookie", "Proxy-Authorization"};
constexpr const char *bodyHeaders[] = {"Content-Length", "Transfer-Encoding"};

bool isInterim(int status)
{
    return status >= 100 && status < 200;
}

bool isRedirect(int status)
{
    return status >= 300 && status < 400;
}

NextStep failure(short code, const char *reason = nullptr)
{
    NextStep step;
    step.kind = NextStep::Kind::Fail;
    step.code = code;
    step.reason = reason;
    return step;
}

NextStep retry(int waitMsec)
{
    NextStep step;
    step.kind = NextStep::Kind::Retry;
    step.waitMsec = waitMsec;
    return step;
}

NextStep plain(NextStep::Kind kind)
{
    NextStep step;
    step.kind = kind;
    return step;
}

/// Qt now and then takes what came before a connection broke for the whole body. A coded one has
/// another length, and a 304 has that of a body which it does not have.
bool isCutShort(const Transfer &transfer, const QNetworkReply &reply)
{
    bool isNumber = false;
    const qint64 length = reply.rawHeader("Content-Length").toLongLong(&isNumber);
    return isNumber && !replyinfo::isFileKind(transfer.record.replyType)
        && !reply.hasRawHeader("Content-Encoding") && replyinfo::httpStatus(&reply) != 304
        && transfer.answer.size() + reply.bytesAvailable() < length;
}

/// Of an answer by HTTP/2 whose end Qt tells, but nothing before it.
bool isWithoutHead(const QNetworkReply &reply)
{
    return replyinfo::httpStatus(&reply) == 0 && replyinfo::mayUseHttp2(reply);
}

/// Whether the server refuses this request and no other (REFUSED_STREAM). Qt says so by its text
/// alone, which it does not translate.
bool isRefused(const QNetworkReply &reply)
{
    return reply.error() == QNetworkReply::ProtocolFailure
        && reply.errorString() == QLatin1String("Server refused a stream");
}

/// Whether the server has done nothing with it, because it refuses it or takes no more requests on
/// this connection (GOAWAY), as nginx does after a thousand. Qt does not send it over another one.
bool isTurnedAway(const QNetworkReply &reply)
{
    return isWithoutHead(reply)
        && (isRefused(reply) || reply.error() == QNetworkReply::ContentReSendError
            || reply.error() == QNetworkReply::ProtocolUnknownError);
}

/// Why no request may go from \a source to \a target; null if it may.
const char *faultOfTarget(const QUrl &source, const QUrl &target)
{
    const bool isHttp = target.scheme() == QLatin1String("http");
    if (!target.isValid() || target.host().isEmpty())
        return "The server redirects to what is no URL.";
    if (!isHttp && target.scheme() != QLatin1String("https"))
        return "The server redirects to a URL that is neither http nor https.";
    if (isHttp && source.scheme() == QLatin1String("https"))
        return "The server redirects from https to http.";
    return nullptr;
}

template <std::size_t size>
void removeHeaders(QNetworkRequest &request, const char *const (&names)[size])
{
    // A null value removes; an empty one would be sent.
    for (const char *name : names)
        request.setRawHeader(name, QByteArray());
}

bool becomesGet(const Transfer &transfer, NextVerb verb)
{
    const bool isPost = transfer.record.replyType == replies::raw_post
        || transfer.record.replyType == replies::raw_post_file;
    return !transfer.isGet && (verb == NextVerb::Get || (verb == NextVerb::GetForPost && isPost));
}

} // namespace

NextStep StrictRules::nextStep(const Transfer &transfer, const QNetworkReply &reply) const
{
    const int status = replyinfo::httpStatus(&reply);
    if (isInterim(status))
        return plain(NextStep::Kind::DropConnections);
    if (reply.error() == QNetworkReply::OperationCanceledError)
        return {};
    // Whatever it is: it has changed nothing.
    if (isTurnedAway(reply) && transfer.retries < maximumReconnects())
        return plain(NextStep::Kind::Reconnect);
    if (const std::optional<int> waitMsec = waitBeforeRetry(transfer, reply))
        return retry(*waitMsec);
    if (reply.error() != QNetworkReply::NoError)
        return m_policy.failuresIsolated() ? failure(errorRule(reply.error()).clientCode)
                                           : NextStep();
    if (transfer.isBroken || isWithoutHead(reply) || isCutShort(transfer, reply))
        return stepAfterBreak(transfer);
    if (m_policy.redirectsChecked() && isRedirect(status))
        return redirectStep(transfer, reply);
    if (transfer.decoder && !transfer.decoder->isComplete())
        return retryOrFail(transfer, errorcodes::network_error, "The compressed body is cut off.");
    if (!transfer.checkedFile)
        return {};
    return isRedirect(status) ? failure(errorcodes::file_corrupted)
                              : plain(NextStep::Kind::FinishFile);
}

NextStep StrictRules::stepAfterSilence(const Transfer &transfer) const
{
    return retryOrFail(transfer, errorcodes::timed_out, "The server was silent for too long.");
}

NextStep StrictRules::stepAfterBreak(const Transfer &transfer) const
{
    return retryOrFail(transfer, errorcodes::network_error, "The connection broke off.");
}

NextStep StrictRules::stepAfterDrop(const Transfer &transfer) const
{
    if (!mayRepeat(transfer, maximumReconnects()))
        return failure(errorcodes::network_error,
                       "The server sent an interim answer, and what follows it is lost.");
    return retry(0);
}

/// Once without being asked to.
int StrictRules::maximumReconnects() const
{
    return std::max(1, m_policy.maximumRetries());
}

bool StrictRules::mayRepeat(const Transfer &transfer, int maximum)
{
    return transfer.isRepeatable && transfer.retries < maximum;
}

int StrictRules::growingWait(const Transfer &transfer) const
{
    return retryschedule::waitMsec(m_policy.retryDelay(), transfer.retries,
                                   QRandomGenerator::global()->generateDouble());
}

NextStep StrictRules::retryOrFail(const Transfer &transfer, short code, const char *reason) const
{
    return mayRepeat(transfer, m_policy.maximumRetries()) ? retry(growingWait(transfer))
                                                          : failure(code, reason);
}

std::optional<int> StrictRules::waitBeforeRetry(const Transfer &transfer,
                                                const QNetworkReply &reply) const
{
    if (!mayRepeat(transfer, m_policy.maximumRetries())
        || !retryschedule::mayPass(reply.error(), replyinfo::httpStatus(&reply))) {
        return std::nullopt;
    }
    const std::optional<qint64> asked =
        retryschedule::retryAfter(reply.rawHeader("Retry-After"), QDateTime::currentDateTimeUtc());
    if (!asked)
        return growingWait(transfer);
    if (*asked > retryschedule::longestRetryAfter)
        return std::nullopt;
    return int(*asked) * 1000;
}

NextStep StrictRules::redirectStep(const Transfer &transfer, const QNetworkReply &reply) const
{
    const int status = replyinfo::httpStatus(&reply);
    const QByteArray location = reply.rawHeader("Location");
    const auto row = std::find_if(std::begin(redirectStatuses), std::end(redirectStatuses),
                                  [status](const auto &known) { return known.status == status; });
    if (row == std::end(redirectStatuses) || location.isEmpty())
        return failure(errorcodes::network_error, "The server redirects to nowhere.");
    const QUrl target = reply.url().resolved(QUrl::fromEncoded(location, QUrl::TolerantMode));
    if (const char *fault = faultOfTarget(reply.url(), target))
        return failure(errorcodes::redirect_refused, fault);
    if (transfer.redirects >= m_policy.maximumRedirects())
        return failure(errorcodes::redirect_refused, "The server redirects too often.");

    NextStep step = plain(NextStep::Kind::Redirect);
    step.becomesGet = becomesGet(transfer, row->verb);
    step.request = transfer.request;
    step.request->setUrl(target);
    if (step.becomesGet)
        removeHeaders(*step.request, bodyHeaders);
    if (!replyinfo::isSameServer(reply.url(), target))
        removeHeaders(*step.request, privateHeaders);
    return step;
}
