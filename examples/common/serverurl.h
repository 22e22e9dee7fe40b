#ifndef SERVERURL_H
#define SERVERURL_H

#include <QtCore/QString>
#include <QtCore/QUrl>

/// The URL that the library makes of a path on the configured server. Its text, toString(), is the
/// name by which the library's signals speak of the request.
QUrl urlOfPath(const QString &host, int port, const QString &path);

/// The server of a URL alone, which is how the library's probe names it.
QString serverText(const QUrl &url);

#endif // SERVERURL_H
