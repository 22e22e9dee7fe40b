#ifndef TARVISNET_TESTS_BEHAVIOURS_H
#define TARVISNET_TESTS_BEHAVIOURS_H

#include "dice.h"
#include "scriptedserver.h"

/// What a server does with a request.
struct Behaviour {
    const char *name;
    int weight;
    /// \a body is what a good answer brings.
    ScriptedServer::Handler (*make)(Dice &dice, const QByteArray &body);
    /// Whether the body arrives whole.
    bool isGood = false;
};

namespace behaviours {

/// Draws one.
const Behaviour &draw(Dice &dice);

} // namespace behaviours

#endif // TARVISNET_TESTS_BEHAVIOURS_H
