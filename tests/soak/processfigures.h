#ifndef TARVISNET_TESTS_PROCESSFIGURES_H
#define TARVISNET_TESTS_PROCESSFIGURES_H

#include <QtCore/QtGlobal>

/// What this process takes of the machine now, as Linux tells it.
namespace processfigures {

/// Resident memory in bytes.
qint64 residentBytes();
/// What is allocated and not freed. Resident memory also holds what was freed and is kept for the
/// next allocation, so this shows a small leak far earlier.
qint64 heapBytes();
/// Open files, sockets included.
int openFiles();
/// Allows as many open files as the machine allows at all.
void raiseOpenFilesLimit();

} // namespace processfigures

#endif // TARVISNET_TESTS_PROCESSFIGURES_H
