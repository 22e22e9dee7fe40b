#ifndef SPEEDMETER_H
#define SPEEDMETER_H

#include <QtCore/QElapsedTimer>
#include <QtCore/QQueue>

/// How fast something went in the last few seconds.
class SpeedMeter {
public:
    explicit SpeedMeter(qint64 bytes = 0);

    void setBytes(qint64 bytes);
    /// Bytes a second; 0 while too little is known.
    double speed() const;

private:
    struct Sample {
        qint64 msec;
        qint64 bytes;
    };

    QElapsedTimer m_clock;
    QQueue<Sample> m_samples;
};

#endif // SPEEDMETER_H
