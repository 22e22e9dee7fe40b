#ifndef TARVISNET_TESTS_ENGINES_H
#define TARVISNET_TESTS_ENGINES_H

#include "replylog_p.h"

#include <QtCore/QString>

/// Two engines for the tests of what both share, and the texts that they log.
namespace engines {

using replylog::Engine;

inline constexpr char sourceFile[] = "../../source/unit";
inline constexpr char function[] = "void Unit::run()";

// The client warns of what the stand-alone processor only notes.
inline const Engine client = {MessageLog(sourceFile), "TarvisNet", QtWarningMsg};
inline const Engine processor = {MessageLog(sourceFile), "NetworkProcessor", QtDebugMsg};

inline QString textOf(const Engine &engine, const char *operation, const QString &text)
{
    return QString("<%1::%2> ").arg(engine.className, operation) + text;
}

} // namespace engines

#endif // TARVISNET_TESTS_ENGINES_H
