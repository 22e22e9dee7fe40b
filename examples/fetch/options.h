#ifndef OPTIONS_H
#define OPTIONS_H

#include <tarvisnet/records.h>
#include <tarvisnet/transferpolicy.h>

#include <QtCore/QByteArray>
#include <QtCore/QString>
#include <QtCore/QStringList>

struct Command;

/// What the command line asks for.
struct Options {
    QString engine;
    QString host;
    quint64 port = 443;
    QString definitionPath;
    QString indexPath;
    QString changeLogPath;
    QString installerPath;
    QString installerUrl;

    QString temporaryDirectory;
    QString outputDirectory;

    quint64 parallelCount = 5;
    quint64 pingTimeout = 10000;
    bool pingAlways = false;

    QString applicationName;
    QString applicationVersion;
    QString installationId;

    /// A file, or "-".
    QString output;
    quint64 size = 0;
    QString hash;
    QString dataText;
    QString dataFile;
    QByteArray body;
    RawHeadersMap headers;

    TransferPolicy policy;

    /// The file that stands in for standard output where isSpooled() says so; made up later.
    QString spoolPath;

    bool quiet = false;
    bool verbose = false;
    bool help = false;
    bool version = false;

    const Command *command = nullptr;
    QStringList targets;

    /// Where the answer is saved; empty for standard output.
    QString savePath() const;
    /// Where a binary download grows.
    QString partialPath() const;
    /// What an earlier attempt has left there, and this one goes on from. Where files are checked,
    /// only the library knows.
    qint64 keptBytes() const;
    /// Whether the stand-alone processor is asked instead of the client.
    bool usesProcessor() const;
    /// Whether the client can only fetch the answer into a file.
    bool mustBeSaved() const;
    /// Whether the answer goes to standard output, but can only be fetched into a file.
    bool isSpooled() const;
};

/// Reads the command line. Gives back what is wrong with it, in words; nothing when it makes sense.
QString parseCommandLine(const QStringList &arguments, Options *options);

/// The text of --help.
QString helpText();

#endif // OPTIONS_H
