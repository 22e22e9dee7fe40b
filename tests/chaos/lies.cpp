#include "lies.h"

#include "answers.h"

#include <algorithm>

namespace {

constexpr int passingStatuses[] = {408, 425, 429, 500, 502, 503, 504};
constexpr int lastingStatuses[] = {400, 401, 403, 404, 410, 418, 501};
constexpr int oddStatuses[] = {201, 202, 203, 204, 205, 226, 300, 304, 305};

const QByteArray brokenHeads[] = {
    "this is no HTTP\r\n\r\n",
    "HTTP/1.1\r\n\r\n",
    "HTTP/9.9 999 what\r\n\r\nbody",
    "HTTP/1.1 206 Partial Content\r\nContent-Range: bytes 0-9999",
    "HTTP/1.1 200 OK\r\nContent-Length: 999",
    QByteArray("\0\1\2\377\n\r\0\r\n\r\n", 10),
};

/// An answer before it is sent.
struct AnswerDraft {
    int status = 200;
    HttpHeaders headers;
    QByteArray body;
};

QByteArray rangeText(qint64 first, qint64 last, qint64 total)
{
    return "bytes " + QByteArray::number(first) + '-' + QByteArray::number(last) + '/'
        + QByteArray::number(total);
}

/// 0 without a range.
qint64 askedOffset(const HttpRequest &request)
{
    const QByteArray prefix("bytes=");
    const QByteArray range = request.header("range");
    return range.isNull() ? 0
                          : range.mid(prefix.size(), range.size() - prefix.size() - 1).toLongLong();
}

bool isSameVersion(const Exchange &exchange)
{
    const QByteArray asked = exchange.request.header("if-range");
    const HttpHeaders &own = exchange.version.validators;
    return asked.isNull() || std::any_of(own.begin(), own.end(), [&asked](const auto &header) {
               return header.second == asked;
           });
}

AnswerDraft whole(const Exchange &exchange)
{
    return {200, exchange.version.validators, exchange.version.content};
}

/// From \a first on, whatever was asked for. Of an empty file there is no part.
AnswerDraft part(const Exchange &exchange, qint64 first)
{
    const QByteArray &content = exchange.version.content;
    const qint64 total = content.size();
    HttpHeaders headers = exchange.version.validators;
    if (first >= total)
        return {416, {{"Content-Range", "bytes */" + QByteArray::number(total)}}, QByteArray()};
    headers.append(HttpHeader("Content-Range", rangeText(first, total - 1, total)));
    return {206, headers, content.mid(int(first))};
}

AnswerDraft truth(const Exchange &exchange)
{
    const bool asksForPart = !exchange.request.header("range").isNull();
    return asksForPart && isSameVersion(exchange) ? part(exchange, askedOffset(exchange.request))
                                                  : whole(exchange);
}

void setHeader(AnswerDraft &draft, const QByteArray &name, const QByteArray &value)
{
    for (HttpHeader &header : draft.headers) {
        if (header.first == name)
            header.second = value;
    }
}

int smallNumber(Exchange &exchange)
{
    return exchange.dice.between(1, 50);
}

QByteArray anyPart(Exchange &exchange, const QByteArray &body)
{
    return body.left(exchange.dice.below(body.size() + 1));
}

void writeBody(Exchange &exchange, const QByteArray &body)
{
    if (exchange.dice.oneIn(3))
        exchange.response.dribble(body, 1 + int(body.size()) / exchange.dice.between(1, 6),
                                  exchange.dice.below(3));
    else
        exchange.response.write(body);
}

void send(Exchange &exchange, const AnswerDraft &draft, qint64 length)
{
    exchange.response.sendHead(draft.status, draft.headers, length);
    writeBody(exchange, draft.body);
    exchange.response.finish();
}

qint64 anyFraming(Exchange &exchange, const AnswerDraft &draft)
{
    const qint64 length = draft.body.size();
    return exchange.dice.pick(
        {length, length, length, qint64(HttpResponse::Chunked), qint64(HttpResponse::UntilClose)});
}

void send(Exchange &exchange, const AnswerDraft &draft)
{
    send(exchange, draft, anyFraming(exchange, draft));
}

void breakOff(Exchange &exchange)
{
    if (exchange.dice.oneIn(3))
        exchange.response.cut();
    else
        exchange.response.reset();
}

void sendPart(Exchange &exchange, qint64 length, const AnswerDraft &draft)
{
    if (exchange.dice.oneIn(2))
        exchange.response.cork();
    exchange.response.sendHead(draft.status, draft.headers, length);
    writeBody(exchange, anyPart(exchange, draft.body));
}

// What is whole, and what is not

void wholeForRange(Exchange &exchange)
{
    send(exchange, whole(exchange));
}

void cutAnywhere(Exchange &exchange)
{
    const AnswerDraft draft = truth(exchange);
    sendPart(exchange, draft.body.size(), draft);
    breakOff(exchange);
}

void cutChunks(Exchange &exchange)
{
    sendPart(exchange, HttpResponse::Chunked, truth(exchange));
    breakOff(exchange);
}

void cutWithoutLength(Exchange &exchange)
{
    sendPart(exchange, HttpResponse::UntilClose, truth(exchange));
    breakOff(exchange);
}

void closed(Exchange &exchange)
{
    breakOff(exchange);
}

void silent(Exchange &exchange)
{
    Q_UNUSED(exchange)
}

void stalled(Exchange &exchange)
{
    const AnswerDraft draft = truth(exchange);
    sendPart(exchange, draft.body.size() + 1, draft);
}

void surplus(Exchange &exchange)
{
    AnswerDraft draft = truth(exchange);
    draft.body += HttpResponse::generated(7, smallNumber(exchange));
    send(exchange, draft);
}

void surplusBehindTheEnd(Exchange &exchange)
{
    const AnswerDraft draft = truth(exchange);
    exchange.response.sendHead(draft.status, draft.headers, draft.body.size());
    exchange.response.write(draft.body);
    exchange.response.writeRaw(HttpResponse::generated(7, smallNumber(exchange)));
    exchange.response.finish();
}

void empty(Exchange &exchange)
{
    AnswerDraft draft = truth(exchange);
    draft.body.clear();
    send(exchange, draft);
}

void corrupt(Exchange &exchange, AnswerDraft &draft)
{
    if (!draft.body.isEmpty())
        draft.body.data()[exchange.dice.below(draft.body.size())] ^= 1;
}

void corrupted(Exchange &exchange)
{
    AnswerDraft draft = truth(exchange);
    corrupt(exchange, draft);
    send(exchange, draft);
}

void corruptedAndCut(Exchange &exchange)
{
    AnswerDraft draft = truth(exchange);
    corrupt(exchange, draft);
    sendPart(exchange, draft.body.size(), draft);
    breakOff(exchange);
}

// What the head says of it

void wrongStart(Exchange &exchange)
{
    send(exchange, part(exchange, exchange.dice.below(exchange.version.content.size() + 1)));
}

void wrongEnd(Exchange &exchange)
{
    AnswerDraft draft = truth(exchange);
    const int less = std::min(smallNumber(exchange), int(draft.body.size()) - 1);
    if (draft.status == 206 && less > 0) {
        const qint64 total = exchange.version.content.size();
        const qint64 first = askedOffset(exchange.request);
        setHeader(draft, "Content-Range", rangeText(first, total - 1 - less, total));
        if (exchange.dice.oneIn(2))
            draft.body.chop(less);
    }
    send(exchange, draft);
}

void wrongTotal(Exchange &exchange)
{
    AnswerDraft draft = truth(exchange);
    const int difference = smallNumber(exchange) * exchange.dice.pick({1, -1});
    const qint64 total = exchange.version.content.size() + difference;
    setHeader(draft, "Content-Range", rangeText(askedOffset(exchange.request), total - 1, total));
    send(exchange, draft);
}

void noRange(Exchange &exchange)
{
    AnswerDraft draft = truth(exchange);
    draft.status = 206;
    setHeader(
        draft, "Content-Range",
        exchange.dice.pick({QByteArray(), QByteArray("bytes */*"), QByteArray("bytes 5-3/9")}));
    send(exchange, draft);
}

void manyParts(Exchange &exchange)
{
    const HttpHeaders headers = {{"Content-Type", "multipart/byteranges; boundary=cut"}};
    const AnswerDraft rest = truth(exchange);
    send(exchange, {206, headers, "--cut\r\n\r\n" + rest.body + "\r\n--cut--\r\n"});
}

void refusedRange(Exchange &exchange)
{
    send(exchange, part(exchange, exchange.version.content.size()));
}

void shortLength(Exchange &exchange)
{
    const AnswerDraft draft = truth(exchange);
    send(exchange, draft, std::max(0, int(draft.body.size()) - smallNumber(exchange)));
}

void longLength(Exchange &exchange)
{
    const AnswerDraft draft = truth(exchange);
    send(exchange, draft, draft.body.size() + smallNumber(exchange));
}

void noLength(Exchange &exchange)
{
    AnswerDraft draft = truth(exchange);
    const QByteArray length = QByteArray::number(draft.body.size());
    const QByteArray text = exchange.dice.pick(
        {QByteArray("many"), QByteArray("-5"), length + ", " + length, '+' + length});
    draft.headers.append(HttpHeader("Content-Length", text));
    draft.headers.append(HttpHeader("Connection", "close"));
    send(exchange, draft);
}

void coded(Exchange &exchange)
{
    AnswerDraft draft = truth(exchange);
    const QByteArray coding =
        exchange.dice.pick({QByteArray("gzip"), QByteArray("deflate"), QByteArray("br")});
    draft.headers.append(HttpHeader("Content-Encoding", coding));
    // Behind its own length qCompress() writes what HTTP calls deflate.
    draft.body = qCompress(draft.body).mid(4);
    send(exchange, draft);
}

void codedRest(Exchange &exchange)
{
    if (truth(exchange).status == 206)
        coded(exchange);
    else
        lies::tellTheTruth(exchange);
}

// Which version it is

void restOfAnyVersion(Exchange &exchange)
{
    const qint64 from = askedOffset(exchange.request);
    send(exchange, from > 0 ? part(exchange, from) : whole(exchange));
}

void unmarkedRest(Exchange &exchange)
{
    const Version unmarked{exchange.version.content, {}};
    Exchange other{exchange.request, exchange.response, unmarked, exchange.targets, exchange.dice};
    restOfAnyVersion(other);
}

void noValidator(Exchange &exchange)
{
    AnswerDraft draft = truth(exchange);
    for (const HttpHeader &validator : exchange.version.validators)
        draft.headers.removeAll(validator);
    send(exchange, draft);
}

void wrongValidator(Exchange &exchange)
{
    AnswerDraft draft = truth(exchange);
    if (draft.status == 206) {
        setHeader(draft, "ETag", "\"another\"");
        setHeader(draft, "Last-Modified", "Thu, 01 Jan 1970 00:00:01 GMT");
    }
    send(exchange, draft);
}

void weakened(Exchange &exchange)
{
    AnswerDraft draft = truth(exchange);
    for (HttpHeader &header : draft.headers) {
        if (header.first == "ETag" && header.second.startsWith('"'))
            header.second.prepend("W/");
    }
    send(exchange, draft);
}

// What is no file at all

void redirected(Exchange &exchange)
{
    const int status = exchange.dice.pick({301, 302, 303, 307, 308});
    const QByteArray target = exchange.dice.pick(exchange.targets);
    exchange.response.send(status, {{"Location", target}}, "This file has moved.");
}

void passingFailure(Exchange &exchange)
{
    const HttpHeaders again = {{"Retry-After", "0"}};
    exchange.response.send(exchange.dice.pick(passingStatuses),
                           exchange.dice.oneIn(2) ? again : HttpHeaders(), truth(exchange).body);
}

void lastingFailure(Exchange &exchange)
{
    exchange.response.send(exchange.dice.pick(lastingStatuses), {}, truth(exchange).body);
}

void oddStatus(Exchange &exchange)
{
    AnswerDraft draft = truth(exchange);
    draft.status = exchange.dice.pick(oddStatuses);
    send(exchange, draft);
}

void noHttp(Exchange &exchange)
{
    exchange.response.writeRaw(exchange.dice.pick(brokenHeads));
    exchange.response.cut();
}

void interimAnswer(Exchange &exchange)
{
    exchange.response.writeRaw("HTTP/1.1 103 Early Hints\r\nLink: </>\r\n\r\n");
    lies::tellTheTruth(exchange);
}

constexpr Lie allLies[] = {
    {"the truth", 10, 8, Needs::Nothing, false, lies::tellTheTruth},
    {"another version", 3, 6, Needs::Nothing, true, lies::tellTheTruth},
    {"the whole for a range", 0, 4, Needs::Nothing, false, wholeForRange},
    {"cut anywhere", 30, 14, Needs::Nothing, false, cutAnywhere},
    // Now and then Qt takes what arrived for the whole, and says nothing.
    {"chunks cut", 8, 4, Needs::Size, false, cutChunks},
    {"cut without a length", 6, 3, Needs::Size, false, cutWithoutLength},
    {"closed", 2, 1, Needs::Nothing, false, closed},
    {"silent", 1, 1, Needs::Nothing, false, silent},
    {"stalled", 14, 6, Needs::Nothing, false, stalled},
    {"surplus", 2, 3, Needs::Size, false, surplus},
    {"surplus behind the end", 2, 2, Needs::Nothing, false, surplusBehindTheEnd},
    {"empty", 1, 2, Needs::Size, false, empty},
    {"corrupted", 3, 4, Needs::Hash, false, corrupted},
    {"corrupted and cut", 4, 4, Needs::Hash, false, corruptedAndCut},
    {"wrong start", 1, 5, Needs::Nothing, false, wrongStart},
    {"wrong end", 0, 5, Needs::Nothing, false, wrongEnd},
    {"wrong total", 0, 5, Needs::Nothing, false, wrongTotal},
    {"no range", 1, 3, Needs::Nothing, false, noRange},
    {"many parts", 1, 2, Needs::Nothing, false, manyParts},
    {"416", 1, 4, Needs::Nothing, false, refusedRange},
    {"short length", 2, 3, Needs::Size, false, shortLength},
    {"long length", 3, 3, Needs::Nothing, false, longLength},
    {"no length", 2, 2, Needs::Nothing, false, noLength},
    {"coded", 2, 1, Needs::Size, false, coded},
    {"coded rest", 0, 4, Needs::Nothing, false, codedRest},
    {"rest of another version", 0, 8, Needs::Nothing, true, restOfAnyVersion},
    {"rest of another version, unmarked", 0, 4, Needs::Hash, true, unmarkedRest},
    {"no validator", 3, 3, Needs::Nothing, false, noValidator},
    {"wrong validator", 0, 5, Needs::Nothing, false, wrongValidator},
    {"weakened validator", 2, 3, Needs::Nothing, false, weakened},
    {"redirected", 3, 3, Needs::Nothing, false, redirected},
    {"passing failure", 4, 4, Needs::Nothing, false, passingFailure},
    {"lasting failure", 1, 1, Needs::Nothing, false, lastingFailure},
    {"odd status", 1, 2, Needs::Nothing, false, oddStatus},
    {"no HTTP", 1, 2, Needs::Nothing, false, noHttp},
    {"interim answer", 1, 2, Needs::Nothing, false, interimAnswer},
};

} // namespace

void lies::tellTheTruth(Exchange &exchange)
{
    send(exchange, truth(exchange));
}

const Lie &lies::draw(Dice &dice, int Lie::*weight)
{
    return dice.pickByWeight(allLies, weight);
}
