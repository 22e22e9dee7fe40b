#include "download.h"

#include "files.h"

#include <tarvisnet/errorcodes.h>

#include <QtCore/QCryptographicHash>
#include <QtCore/QFile>

#include <algorithm>

namespace {

constexpr short expectedCodes[] = {
    errorcodes::network_error,         errorcodes::authentication_required,
    errorcodes::unknown_network_error, errorcodes::content_not_found,
    errorcodes::already_pending,       errorcodes::protocol_invalid_operation,
    errorcodes::ssl_handshake_failed,  errorcodes::timed_out,
    errorcodes::redirect_refused,      errorcodes::file_corrupted,
};

constexpr QCryptographicHash::Algorithm algorithms[] = {
    QCryptographicHash::Sha256, QCryptographicHash::Sha512, QCryptographicHash::Sha1,
    QCryptographicHash::Md5};

/// Small files are as likely to be cut in a bad place as large ones, and are done with sooner.
constexpr int largestSizes[] = {0, 3, 100, 1000, 1000, 5000, 5000, 20000, 70000, 300000};

/// So many tell what it is that should not be there.
constexpr int describedBytes = 60;

int drawSize(Dice &dice)
{
    return dice.below(dice.pick(largestSizes) + 1);
}

QByteArray drawContent(Dice &dice, int size)
{
    return HttpResponse::generated(dice.below(1 << 30), size);
}

using Marking = HttpHeaders (*)(int version);

QByteArray tag(int version)
{
    return "\"v" + QByteArray::number(version) + '"';
}

QByteArray date(int version)
{
    return "Sat, 0" + QByteArray::number(version + 1) + " Jan 2022 10:00:00 GMT";
}

/// Not all servers tell versions apart. The first is the best.
constexpr Marking markings[] = {
    [](int version) {
        return HttpHeaders{{"ETag", tag(version)}};
    },
    [](int version) {
        return HttpHeaders{{"ETag", tag(version)}, {"Last-Modified", date(version)}};
    },
    [](int version) {
        return HttpHeaders{{"Last-Modified", date(version)}};
    },
    [](int version) {
        return HttpHeaders{{"ETag", "W/" + tag(version)}};
    },
    [](int version) {
        return HttpHeaders{{"ETag", "W/" + tag(version)}, {"Last-Modified", date(version)}};
    },
    [](int version) {
        return HttpHeaders{{"Last-Modified", date(version)}, {"Date", date(version)}};
    },
    [](int) { return HttpHeaders(); },
};

/// Null only if there is no file.
QByteArray contentOf(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QByteArray();
    const QByteArray content = file.readAll();
    return content.isNull() ? QByteArray("") : content;
}

} // namespace

Download::Download(int number, quint64 seed, const QDir &home)
    : m_path('/' + QByteArray::number(number) + "/file")
    , m_destination(home.filePath(QStringLiteral("file%1").arg(number)))
{
    Dice dice(seed);
    m_isSecure = dice.oneIn(3);
    drawVersions(dice);
    drawKnowledge(dice);
    drawSteps(dice);
    placeOldFile(dice);
}

void Download::drawVersions(Dice &dice)
{
    const Marking marking = dice.oneIn(2) ? markings[0] : dice.pick(markings);
    const bool haveOneSize = dice.oneIn(2);
    const int count = dice.pick({1, 1, 1, 1, 2, 3});
    const int size = drawSize(dice);
    for (int version = 0; version < count; ++version) {
        const int own = haveOneSize ? size : drawSize(dice);
        m_versions.append({drawContent(dice, own), marking(version)});
    }
}

// The application knows the last version, or nothing.
void Download::drawKnowledge(Dice &dice)
{
    const QByteArray &content = m_versions.last().content;
    if (dice.oneIn(2))
        m_size = content.size();
    if (dice.oneIn(2))
        m_hash = QCryptographicHash::hash(content, dice.pick(algorithms)).toHex();
}

void Download::drawSteps(Dice &dice)
{
    const int count = dice.below(20);
    while (m_steps.size() < count) {
        const Lie *const forWhole = drawLie(dice, &Lie::forWhole);
        const Lie *const forRest = drawLie(dice, &Lie::forRest);
        m_steps.enqueue({forWhole, forRest, dice.number()});
    }
}

const Lie *Download::drawLie(Dice &dice, int Lie::*weight) const
{
    const Lie *lie = &lies::draw(dice, weight);
    while (!isEnough(lie->needs))
        lie = &lies::draw(dice, weight);
    return lie;
}

void Download::placeOldFile(Dice &dice)
{
    if (dice.oneIn(2))
        files::write(m_destination, drawContent(dice, drawSize(dice)));
    m_content = contentOf(m_destination);
}

// A part of one version may have the size of another, and a size of 0 stands for an unknown one.
bool Download::isEnough(Needs needs) const
{
    const bool isHashKnown = m_hash != "-";
    const auto isOfSize = [this](const Version &version) {
        return version.content.size() == m_size;
    };
    const bool isSizeKnown =
        m_size > 0 && std::all_of(m_versions.begin(), m_versions.end(), isOfSize);
    return needs == Needs::Nothing || isHashKnown || (needs == Needs::Size && isSizeKnown);
}

void Download::ask()
{
    ++m_open;
    m_isDone = false;
}

QStringList Download::arguments() const
{
    return {m_destination, QString::number(m_size), QString::fromLatin1(m_hash)};
}

const char *Download::answer(const HttpRequest &request, HttpResponse &response)
{
    checkDestination();
    static constexpr Lie truth{"the truth", 1, 1, Needs::Nothing, false, lies::tellTheTruth};
    const Step step = m_steps.isEmpty() ? Step{&truth, &truth, 0} : m_steps.dequeue();
    const Lie &lie = request.header("range").isNull() ? *step.forWhole : *step.forRest;
    if (lie.changesFile)
        m_current = std::min(m_current + 1, int(m_versions.size()) - 1);
    Dice dice(step.seed);
    Exchange exchange{request, response, m_versions.at(m_current), m_targets, dice};
    lie.tell(exchange);
    return lie.name;
}

void Download::behave()
{
    m_steps.clear();
    m_current = int(m_versions.size()) - 1;
}

void Download::end(const QString &signal, int code)
{
    checkDestination();
    if (--m_open < 0)
        fault(QStringLiteral("%1 %2, and nothing was open").arg(signal).arg(code));
    if (signal == QLatin1String("finished")) {
        m_isDone = true;
        if (m_content.isNull() || !isServed(m_content))
            fault(QStringLiteral("finished without its file"));
    }
    if (signal == QLatin1String("error")
        && std::find(std::begin(expectedCodes), std::end(expectedCodes), code)
            == std::end(expectedCodes)) {
        fault(QStringLiteral("error %1").arg(code));
    }
}

void Download::checkDestination()
{
    const QByteArray content = contentOf(m_destination);
    const bool isAsBefore = content == m_content && content.isNull() == m_content.isNull();
    if (!isAsBefore && (content.isNull() || !isServed(content)))
        fault(QStringLiteral("in place, but never served: ") + described(content));
    m_content = content;
}

QString Download::described(const QByteArray &content) const
{
    QStringList texts = {QStringLiteral("%1 bytes").arg(content.size()),
                         QString::fromLatin1(content.left(describedBytes).toPercentEncoding())};
    for (const Version &version : m_versions) {
        const auto [here, there] = std::mismatch(content.begin(), content.end(),
                                                 version.content.begin(), version.content.end());
        Q_UNUSED(there)
        texts.append(QStringLiteral("%1 like a version of %2 bytes")
                         .arg(here - content.begin())
                         .arg(version.content.size()));
    }
    return texts.join(QStringLiteral(", "));
}

bool Download::isServed(const QByteArray &content) const
{
    const auto isIt = [&content](const Version &version) { return version.content == content; };
    const auto served = m_versions.begin() + m_current + 1;
    const bool mustBeLast = m_hash != "-";
    if (mustBeLast)
        return content == m_versions.last().content;
    return (m_size == 0 || content.size() == m_size)
        && std::any_of(m_versions.begin(), served, isIt);
}

void Download::fault(const QString &text)
{
    const QStringList where = {QString::fromLatin1(m_path), QString::number(m_size),
                               QString::fromLatin1(m_hash)};
    m_faults.append(where.join(QLatin1Char(' ')) + QStringLiteral(": ") + text);
}
