#include "processfigures.h"

#include <QtCore/QDir>
#include <QtCore/QFile>

#include <malloc.h>
#include <sys/resource.h>
#include <unistd.h>

namespace processfigures {

qint64 residentBytes()
{
    QFile file(QStringLiteral("/proc/self/statm"));
    if (!file.open(QIODevice::ReadOnly))
        qFatal("cannot read /proc/self/statm");
    // Pages: of the whole address space, then resident.
    return file.readAll().split(' ').value(1).toLongLong() * ::sysconf(_SC_PAGESIZE);
}

qint64 heapBytes()
{
    const struct mallinfo2 heap = ::mallinfo2();
    return qint64(heap.uordblks + heap.hblkhd);
}

int openFiles()
{
    const QDir descriptors(QStringLiteral("/proc/self/fd"));
    // One of them is the directory itself.
    return int(descriptors.entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot).size())
        - 1;
}

void raiseOpenFilesLimit()
{
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return;
    limit.rlim_cur = limit.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &limit);
}

} // namespace processfigures
