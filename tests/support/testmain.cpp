#include "testclass.h"

#include <QtCore/QByteArray>
#include <QtCore/QCoreApplication>
#include <QtCore/QMap>

#include <cstdio>

namespace {

// The classes add themselves before main(), in no certain order.
QMap<QByteArray, testclasses::Run> &all()
{
    static QMap<QByteArray, testclasses::Run> classes;
    return classes;
}

int showUsage(const char *program)
{
    std::fprintf(stderr, "%s: the first argument has to be one of\n", program);
    for (const QByteArray &name : all().keys())
        std::fprintf(stderr, "    %s\n", name.constData());
    return 2;
}

} // namespace

void testclasses::add(const char *name, Run run)
{
    all().insert(name, run);
}

int main(int argc, char *argv[])
{
    const testclasses::Run run = argc > 1 ? all().value(argv[1]) : nullptr;
    if (!run)
        return showUsage(argv[0]);
    // To Qt, the class is the program.
    int count = argc - 1;
    char **arguments = argv + 1;
    QCoreApplication application(count, arguments);
    return run(count, arguments);
}
