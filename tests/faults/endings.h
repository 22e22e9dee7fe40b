#ifndef TARVISNET_TESTS_ENDINGS_H
#define TARVISNET_TESTS_ENDINGS_H

#include "signalrecorder.h"

#include <QtNetwork/QNetworkReply>

/// How a request ends.
struct Ending {
    QNetworkReply::NetworkError error = QNetworkReply::NoError;
    /// As Qt tells it at the end; 0 when no status line arrived.
    int status = 0;
    /// What of the body reached the application.
    QByteArray body = QByteArray();
};

namespace endings {

/// An emission in one line, so that lists of them can be compared and read.
QString signalText(const QString &name, const QVariantList &arguments);
/// All emissions but progress, in order.
QStringList seen(const SignalRecorder &recorder);

} // namespace endings

#endif // TARVISNET_TESTS_ENDINGS_H
