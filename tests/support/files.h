#ifndef TARVISNET_TESTS_FILES_H
#define TARVISNET_TESTS_FILES_H

#include <QtCore/QByteArray>
#include <QtCore/QString>

/// Whole files in one call, for tests that prepare or compare them.
namespace files {

/// Replaces the file \a path, making the directories on the way. A failure is fatal: no test could
/// go on.
void write(const QString &path, const QByteArray &content);
/// The content of the file \a path; null when there is no such file.
QByteArray read(const QString &path);

} // namespace files

#endif // TARVISNET_TESTS_FILES_H
