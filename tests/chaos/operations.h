#ifndef TARVISNET_TESTS_OPERATIONS_H
#define TARVISNET_TESTS_OPERATIONS_H

#include "stage.h"

/// Something that an application may do at any time.
struct Operation {
    const char *name;
    int weight;
    /// \a number is what the operation's request, if it makes one, is known by.
    void (*run)(Stage &stage, Dice &dice, int number);
};

namespace operations {

/// Draws one.
const Operation &draw(Dice &dice);

/// What is asked of the client, by file clientoperations.cpp.
QVector<Operation> ofClient();

} // namespace operations

#endif // TARVISNET_TESTS_OPERATIONS_H
