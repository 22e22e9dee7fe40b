#ifndef TARVISNET_TESTS_BOUNDPROCESS_H
#define TARVISNET_TESTS_BOUNDPROCESS_H

#include <QtCore/QProcess>

#include <csignal>
#include <sys/prctl.h>

/// Ends when the test does, also when that dies without a destructor.
class BoundProcess : public QProcess {
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
protected:
    void setupChildProcess() override
    {
        prepareChild();
    }
#else
public:
    BoundProcess()
    {
        setChildProcessModifier([this] { prepareChild(); });
    }
#endif

protected:
    /// In the child, before it becomes the program.
    virtual void prepareChild()
    {
        ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    }
};

#endif // TARVISNET_TESTS_BOUNDPROCESS_H
