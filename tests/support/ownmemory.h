#ifndef TARVISNET_TESTS_OWNMEMORY_H
#define TARVISNET_TESTS_OWNMEMORY_H

#include "files.h"

/// A sanitizer holds back what is freed.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool memoryIsMeasurable = false;
#else
inline constexpr bool memoryIsMeasurable = true;
#endif

/// A figure of this process in bytes: VmRSS is what is resident, VmHWM the most that ever was.
inline qint64 ownMemory(const QByteArray &figure)
{
    for (const QByteArray &line : files::read("/proc/self/status").split('\n')) {
        if (line.startsWith(figure + ':'))
            return line.mid(figure.size() + 1).simplified().split(' ').value(0).toLongLong() * 1024;
    }
    qFatal("no figure %s", figure.constData());
}

#endif // TARVISNET_TESTS_OWNMEMORY_H
