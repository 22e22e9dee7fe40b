#ifndef TARVISNET_TESTS_LIES_H
#define TARVISNET_TESTS_LIES_H

#include "dice.h"

#include "scriptedserver.h"

/// One state of a file on a server.
struct Version {
    QByteArray content;
    /// The headers that tell it from others; may be empty.
    HttpHeaders validators;
};

/// A request for a file, and all that an answer to it is made of.
struct Exchange {
    const HttpRequest &request;
    HttpResponse &response;
    const Version &version;
    /// Where redirects may lead.
    const QList<QByteArray> &targets;
    Dice &dice;
};

/// What must be known of a file for a lie about it to be noticed at all.
enum class Needs { Nothing, Size, Hash };

/// One way to answer that a client must not be taken in by.
struct Lie {
    const char *name;
    /// How often it is drawn, in comparison with the others, when the whole file was asked for and
    /// when the rest of it was.
    int forWhole;
    int forRest;
    Needs needs;
    /// The file has another version from this answer on.
    bool changesFile;
    void (*tell)(Exchange &exchange);
};

namespace lies {

/// \a weight is one of the two that a lie has.
const Lie &draw(Dice &dice, int Lie::*weight);
/// What HTTP asks for, in any form that it allows.
void tellTheTruth(Exchange &exchange);

} // namespace lies

#endif // TARVISNET_TESTS_LIES_H
