#ifndef TARVISNET_TESTS_BOUNDPROCESS_H
#define TARVISNET_TESTS_BOUNDPROCESS_H

#include "onqt6.h"

#include <csignal>
#include <sys/prctl.h>

/// Ends when the test does, also when that dies without a destructor.
class BoundProcess : public PreparedProcess {
protected:
    void prepareChild() override { ::prctl(PR_SET_PDEATHSIG, SIGTERM); }
};

#endif // TARVISNET_TESTS_BOUNDPROCESS_H
