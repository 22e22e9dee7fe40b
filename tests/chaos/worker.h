#ifndef TARVISNET_TESTS_WORKER_H
#define TARVISNET_TESTS_WORKER_H

#include <QtCore/QStringList>

/// The program that is killed: one client with a strict policy. It takes its orders from the
/// standard input, one a line,
///
///     fetch URL DESTINATION SIZE HASH    (without a hash: -)
///     abort PATH
///     quit
///
/// and writes to the standard output what comes of them,
///
///     finished 0 URL
///     aborted 0 URL
///     error CODE URL
///     pause MSEC    (the longest one of the event loop, at the end)
namespace worker {

inline constexpr char option[] = "--worker";

/// \a arguments are the temporary directory and the idle time-out. Returns when it is told to quit,
/// or when nobody is left to tell it anything.
int run(const QStringList &arguments);

} // namespace worker

#endif // TARVISNET_TESTS_WORKER_H
