#ifndef PROGRESS_H
#define PROGRESS_H

#include "speedmeter.h"

#include <QtCore/QHash>
#include <QtCore/QString>

class Console;

/// Shows how requests get on: as a bar on a terminal, otherwise as a line for a tenth of the whole
/// at most. Where nobody knows the whole, there is none before the end.
class Progress {
public:
    explicit Progress(Console &console);

    /// \a bytes are there already.
    void begin(const QString &url, qint64 bytes);
    /// \a total is 0 when nobody knows it.
    void setBytes(const QString &url, qint64 bytes, qint64 total);
    /// Shows the request with this percentage, 0 when nobody knows it.
    void setPercent(const QString &url, double percent);
    /// Leaves what was shown last where it is.
    void end(const QString &url);

private:
    Q_DISABLE_COPY(Progress)

    struct Transfer {
        SpeedMeter meter;
        qint64 bytes = 0;
        qint64 total = 0;
        double percent = 0;
        /// The tenth that was shown last.
        int stage = 0;
    };

    QString numbers(const Transfer &transfer) const;
    QString bar(const Transfer &transfer, const QString &text) const;
    void showLine(const QString &url, Transfer &transfer);

    Console &m_console;
    QHash<QString, Transfer> m_transfers;
    QString m_shown;
};

#endif // PROGRESS_H
