#ifndef COMMANDS_H
#define COMMANDS_H

#include <QtCore/QLatin1String>
#include <QtCore/QString>
#include <QtCore/QStringList>

class TarvisNet;
struct Options;
struct Target;

/// How a request ended that brought no document and no bytes.
struct Conclusion {
    bool succeeded;
    QString words;
};

/// What targets a sub-command takes.
struct TargetRule {
    int fewest;
    int most;
    /// Whether they may be paths on the configured server.
    bool paths;
};

/// A sub-command: what the program can ask a server for.
struct Command {
    QString name;
    QString arguments;
    QString help;
    /// The options that only some commands take and this one does, and those of them it must have.
    QStringList options;
    QStringList required;
    TargetRule targets;
    /// The path that stands for no target; null without one.
    QString Options::*configuredPath;
    /// The kind of its requests for the stand-alone processor; empty when that has none for it.
    QLatin1String replyType;
    /// Hands the request to the client.
    void (*start)(TarvisNet &client, const Options &options, const Target &target);
    /// Judges a request whose end the library reported by its URL alone.
    Conclusion (*conclude)(const Options &options, const Target &target);
    /// The options that it takes only where files are checked. The first it must have then.
    QStringList checkedOptions = {};
};

/// The command of that name, or null.
const Command *findCommand(const QString &name);

/// Every option that only some commands take.
QStringList optionsOfCommands();

/// The table of commands for --help.
QString commandsHelp();

#endif // COMMANDS_H
