#include "policyoptions.h"

#include "number.h"
#include "options.h"

#include <QtCore/QCommandLineParser>
#include <QtCore/QFile>
#include <QtCore/QRegularExpression>
#include <QtNetwork/QSslCertificate>

#include <algorithm>
#include <iterator>
#include <limits>

namespace {

template <TransferPolicy (*preset)()>
QString takePreset(const QStringList &, Options *options)
{
    options->policy = preset();
    return QString();
}

QString takeAuthorities(const QStringList &paths, Options *options)
{
    QList<QSslCertificate> authorities;
    for (const QString &path : paths) {
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly))
            return QStringLiteral("%1: %2").arg(path, file.errorString());
        const QList<QSslCertificate> read = QSslCertificate::fromDevice(&file, QSsl::Pem);
        if (read.isEmpty())
            return QStringLiteral("takes a file of PEM certificates, %1 has none").arg(path);
        authorities += read;
    }
    options->policy.setPeersVerified(true);
    options->policy.setCaCertificates(authorities);
    return QString();
}

QString takePins(const QStringList &texts, Options *options)
{
    static const QRegularExpression sha256(
        QRegularExpression::anchoredPattern(QStringLiteral("[0-9A-Fa-f]{64}")));
    QList<QByteArray> keys;
    for (const QString &text : texts) {
        if (!sha256.match(text).hasMatch())
            return QStringLiteral("takes a SHA-256, 64 hexadecimal digits");
        keys += QByteArray::fromHex(text.toLatin1());
    }
    options->policy.setPinnedKeys(keys);
    return QString();
}

QString takeHash(const QStringList &texts, Options *options)
{
    options->hash = texts.constLast();
    if (options->hash.isEmpty())
        return QStringLiteral("takes a hash in hexadecimal, not nothing");
    options->policy.setFilesChecked(true);
    return QString();
}

/// A number whose \a unit is that of the policy.
template <auto set, int unit = 1>
QString takeNumber(const QStringList &texts, Options *options)
{
    quint64 number = 0;
    QString fault =
        readNumber(texts.constLast(), 0, std::numeric_limits<int>::max() / unit, &number);
    if (fault.isEmpty())
        (options->policy.*set)(static_cast<int>(number) * unit);
    return fault;
}

QString takeMaximumRedirects(const QStringList &texts, Options *options)
{
    options->policy.setRedirectsChecked(true);
    return takeNumber<&TransferPolicy::setMaximumRedirects>(texts, options);
}

struct PolicyOption {
    const char *name;
    const char *value;
    const char *help;
    /// Sets what the option asks for. Gives back what is wrong with its values.
    QString (*take)(const QStringList &values, Options *options);
};

constexpr int msecPerSecond = 1000;

// The first two replace the policy that the others change.
const PolicyOption policyOptions[] = {
    {"strict", "",
     "Verify servers, redirects and files, give up after 30 silent seconds, try three times more.*",
     takePreset<TransferPolicy::strict>},
    {"fast", "", "The same, with HTTP/2, and downloads on up to five threads.*",
     takePreset<TransferPolicy::fast>},
    {"ca", "FILE", "Verify servers, against the PEM authorities in the file; may be repeated.*",
     takeAuthorities},
    {"pin", "HEX",
     "Ask only servers whose public key has this SHA-256 (64 digits); may be repeated.*", takePins},
    {"hash", "TEXT",
     "Save only a file with this SHA-256, SHA-512, SHA-1 or MD5, in hexadecimal (binary).*",
     takeHash},
    {"retries", "N", "Try a GET that failed so many times more.*",
     takeNumber<&TransferPolicy::setMaximumRetries>},
    {"idle-timeout", "SECONDS", "Give up a request when no byte moves for so long; 0: never.*",
     takeNumber<&TransferPolicy::setIdleTimeout, msecPerSecond>},
    {"max-time", "SECONDS", "Give up a request, with its retries, after so long; 0: never.*",
     takeNumber<&TransferPolicy::setTotalTimeout, msecPerSecond>},
    {"max-redirects", "N", "Follow redirects as HTTP means them, but only so many.*",
     takeMaximumRedirects},
};

QString nameOf(const PolicyOption &option)
{
    return QString::fromLatin1(option.name);
}

} // namespace

void describePolicyOptions(QCommandLineParser &parser)
{
    for (const PolicyOption &option : policyOptions) {
        parser.addOption(
            {nameOf(option), QString::fromLatin1(option.help), QString::fromLatin1(option.value)});
    }
}

QString takePolicyOptions(const QCommandLineParser &parser, Options *options)
{
    for (const PolicyOption &option : policyOptions) {
        const QString name = nameOf(option);
        if (!parser.isSet(name))
            continue;
        const QString fault = option.take(parser.values(name), options);
        if (!fault.isEmpty())
            return QStringLiteral("--%1 %2").arg(name, fault);
        options->policy.setErrorsExplained(true);
    }
    return QString();
}

QString policyOptionIn(const QCommandLineParser &parser)
{
    const auto option =
        std::find_if(std::begin(policyOptions), std::end(policyOptions),
                     [&parser](const PolicyOption &each) { return parser.isSet(nameOf(each)); });
    return option == std::end(policyOptions) ? QString() : nameOf(*option);
}
