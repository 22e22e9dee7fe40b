#ifndef TARVISNET_TESTS_BOUNDPROCESS_H
#define TARVISNET_TESTS_BOUNDPROCESS_H

#include <QtCore/QProcess>

#include <csignal>
#include <sys/prctl.h>

/// Ends when the test does, also when that dies without a destructor.
class BoundProcess : public QProcess {
protected:
    void setupChildProcess() override { ::prctl(PR_SET_PDEATHSIG, SIGTERM); }
};

#endif // TARVISNET_TESTS_BOUNDPROCESS_H
