#include "behaviours.h"

#include "answers.h"

namespace {

using Handler = ScriptedServer::Handler;

constexpr int errorStatuses[] = {400, 401, 403, 404, 405, 407, 409, 410, 416, 418, 429, 500, 503};
constexpr int goodStatuses[] = {200, 200, 200, 201, 204, 206};

const QByteArray rubbish[] = {
    "this is no HTTP\r\n\r\n",
    "HTTP/1.1\r\n\r\n",
    "HTTP/9.9 999 what\r\n\r\nbody",
    "HTTP/1.1 200 OK\r\nContent-Length: -5\r\n\r\nbody",
    "HTTP/1.1 200 OK\r\nContent-Length: many\r\n\r\nbody",
    "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\nbody\r\n",
    "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nbo",
    "HTTP/1.1 200 OK\r\nContent-Encoding: gzip\r\nContent-Length: 4\r\n\r\nbody",
    "HTTP/1.1 200 OK\r\nno colon here\r\n\r\nbody",
    QByteArray("\0\1\2\377\n\r\0\r\n\r\n", 10),
};

Handler good(Dice &dice, const QByteArray &body)
{
    Q_UNUSED(dice)
    return answers::file(body);
}

Handler goodStatus(Dice &dice, const QByteArray &body)
{
    return answers::bytes(body, dice.pick(goodStatuses));
}

Handler dribbled(Dice &dice, const QByteArray &body)
{
    const int piece = dice.between(1 + int(body.size()) / 20, 1 + int(body.size()) / 4);
    const int msec = dice.between(0, 3);
    return [=](const HttpRequest &, HttpResponse &response) {
        response.sendHead(200, {}, body.size());
        response.dribble(body, piece, msec);
        response.finish();
    };
}

Handler chunked(Dice &dice, const QByteArray &body)
{
    const int first = dice.below(int(body.size()) + 1);
    return [=](const HttpRequest &, HttpResponse &response) {
        response.sendHead(200, {}, HttpResponse::Chunked);
        response.write(body.left(first));
        response.write(body.mid(first));
        response.finish();
    };
}

Handler withheld(Dice &dice, const QByteArray &body)
{
    Q_UNUSED(dice)
    Q_UNUSED(body)
    return answers::withhold();
}

// Head and a part of the body, and then silence.
Handler halfWithheld(Dice &dice, const QByteArray &body)
{
    const QByteArray part = body.left(dice.below(int(body.size()) + 1));
    return [=](const HttpRequest &, HttpResponse &response) {
        response.sendHead(200, {}, body.size() + 1);
        response.write(part);
    };
}

// Ends in the middle, by FIN or by RST, with and without the length of the body.
Handler broken(Dice &dice, const QByteArray &body)
{
    const QByteArray part = body.left(dice.below(int(body.size()) + 1));
    const bool byReset = dice.oneIn(2);
    const qint64 length = dice.oneIn(3) ? qint64(HttpResponse::Chunked) : body.size() + 10;
    return [=](const HttpRequest &, HttpResponse &response) {
        response.sendHead(200, {}, length);
        response.write(part);
        byReset ? response.reset() : response.cut();
    };
}

Handler unanswered(Dice &dice, const QByteArray &body)
{
    Q_UNUSED(body)
    const bool byReset = dice.oneIn(2);
    return [=](const HttpRequest &, HttpResponse &response) {
        byReset ? response.reset() : response.cut();
    };
}

Handler nonsense(Dice &dice, const QByteArray &body)
{
    Q_UNUSED(body)
    const QByteArray bytes = dice.pick(rubbish);
    return [=](const HttpRequest &, HttpResponse &response) {
        response.writeRaw(bytes);
        response.cut();
    };
}

Handler wrongLength(Dice &dice, const QByteArray &body)
{
    const qint64 length = qMax<qint64>(0, body.size() - dice.between(1, 100));
    return [=](const HttpRequest &, HttpResponse &response) {
        response.sendHead(200, {}, length);
        response.write(body);
        response.cut();
    };
}

Handler refused(Dice &dice, const QByteArray &body)
{
    const int status = dice.pick(errorStatuses);
    const HttpHeaders headers =
        status == 401 ? HttpHeaders{{"WWW-Authenticate", "Basic realm=\"r\""}} : HttpHeaders();
    return answers::bytes(dice.oneIn(2) ? QByteArray("{\"error\":1}") : body, status, headers);
}

// A part of the body that nobody asked for, or none.
Handler wrongRange(Dice &dice, const QByteArray &body)
{
    const qint64 from = dice.below(int(body.size()) + 1);
    const int status = dice.oneIn(3) ? 416 : 206;
    const QByteArray range = "bytes " + QByteArray::number(from) + "-/*";
    return answers::bytes(status == 206 ? body.mid(int(from)) : QByteArray(), status,
                          {{"Content-Range", range}});
}

// A header flood, and far more than was expected.
Handler flood(Dice &dice, const QByteArray &body)
{
    HttpHeaders headers;
    const int count = dice.between(100, 1000);
    for (int i = 0; i < count; ++i)
        headers.append({"X-Flood-" + QByteArray::number(i), QByteArray(50, 'x')});
    return answers::bytes(body.repeated(3), 200, headers);
}

const Behaviour all[] = {
    {"good", 10, good, true},
    {"good status", 3, goodStatus},
    {"dribbled", 4, dribbled, true},
    {"chunked", 3, chunked, true},
    {"withheld", 4, withheld},
    {"half withheld", 3, halfWithheld},
    {"broken", 4, broken},
    {"unanswered", 2, unanswered},
    {"nonsense", 3, nonsense},
    {"wrong length", 2, wrongLength},
    {"refused", 5, refused},
    {"wrong range", 2, wrongRange},
    {"flood", 1, flood},
};

} // namespace

namespace behaviours {

const Behaviour &draw(Dice &dice)
{
    return dice.pickByWeight(all);
}

} // namespace behaviours
