#ifndef POLICYOPTIONS_H
#define POLICYOPTIONS_H

#include <QtCore/QString>

QT_BEGIN_NAMESPACE
class QCommandLineParser;
QT_END_NAMESPACE

struct Options;

/// \file
/// The options of the command line that make a TransferPolicy. Without any of them the policy stays
/// the one that asks for nothing.

/// Tells the parser about them.
void describePolicyOptions(QCommandLineParser &parser);

/// Takes them over. Gives back what is wrong with them, in words.
QString takePolicyOptions(const QCommandLineParser &parser, Options *options);

/// The first of them that the command line has; empty when it has none.
QString policyOptionIn(const QCommandLineParser &parser);

#endif // POLICYOPTIONS_H
