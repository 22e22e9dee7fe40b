#ifndef TARVISNET_TESTS_CHAOSRUN_H
#define TARVISNET_TESTS_CHAOSRUN_H

#include "operations.h"
#include "stage.h"

#include <QtCore/QQueue>
#include <QtCore/QVector>

/// One run: a seed decides what is done, when, and what the servers make of it.
class ChaosRun {
public:
    explicit ChaosRun(quint64 seed);

    /// What did not hold; empty when all is well.
    QStringList run();
    /// What was done, in order.
    QStringList diary() const { return m_diary; }
    int requests() const { return m_requests; }

private:
    enum class Moment { Now, NextTurn, Later, InSignal };

    struct Step {
        int number = 0;
        quint64 seed = 0;
        const Operation *operation = nullptr;
        Moment moment = Moment::Now;
        /// Milliseconds for Later, emissions that pass before for InSignal.
        int delay = 0;
    };

    void plan();
    void playSteps();
    void playInSignal();
    void play(const Step &step);
    void settle();
    bool isSettled();
    void askForMarker();
    void checkTable();
    void checkMemory();

    Dice m_dice;
    Stage m_stage;
    QVector<Step> m_steps;
    /// Wait for their signal.
    QList<Step> m_armed;
    QStringList m_diary;
    int m_depth = 0;
    int m_requests = 0;
    bool m_markerAsked = false;
    bool m_markerAnswered = false;
};

#endif // TARVISNET_TESTS_CHAOSRUN_H
