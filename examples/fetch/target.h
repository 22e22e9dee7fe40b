#ifndef TARGET_H
#define TARGET_H

#include <QtCore/QString>
#include <QtCore/QUrl>

struct Options;

/// One thing that the user asked for.
struct Target {
    /// As the user wrote it: a URL, or a path on the configured server. Empty for the configured
    /// path.
    QString text;
    /// The URL that will be asked for.
    QUrl url;

    /// The name by which the signals of the library speak of the request.
    QString urlText() const { return url.toString(); }
};

/// Whether a text names a server too, and not only a path on the configured one.
bool isCompleteUrl(const QString &text);

/// Works out which URL is asked for when the command of \a options is carried out for \a text.
Target makeTarget(const Options &options, const QString &text);

#endif // TARGET_H
