#ifndef TARVISNET_TESTS_SIGNALRECORDER_H
#define TARVISNET_TESTS_SIGNALRECORDER_H

#include "awaiter.h"

#include <QtCore/QHash>
#include <QtCore/QList>
#include <QtCore/QObject>
#include <QtCore/QStringList>
#include <QtCore/QVariant>
#include <QtCore/QVector>

/// One emission that a SignalRecorder saw.
struct SignalCall {
    QString name;
    QVariantList args;
    /// Counts all emissions that any recorder of the process saw, so that the order of emissions of
    /// different objects can be compared.
    quint64 order = 0;
};

/// Records every signal of one object in the order of emission, with all arguments:
///
///     SignalRecorder recorder(&client);
///     client.rawGet(url);
///     QVERIFY(recorder.waitFor("s_rawGet"));
///     QCOMPARE(recorder.last("s_rawGet").at(1).toString(), url.toString());
///
/// Where QSignalSpy watches one signal, this tells how signals follow each other, and what was not
/// emitted. The object may die at any time, also inside an emission; what was recorded stays, and
/// what its destructor emits is recorded too while the recorder lives. Signals are known by their
/// bare name; destroyed and objectNameChanged are left out. Emissions must come from the
/// recorder's own thread.
class SignalRecorder : public QObject {
public:
    /// Records the signals named in \a only, or all of them when it is empty. A name in it that is
    /// none of a signal of \a object is fatal, because such a test would never fail.
    explicit SignalRecorder(QObject *object, const QStringList &only = QStringList());

    /// Names of all emissions in order.
    QStringList names() const;
    QList<SignalCall> calls() const;
    /// The arguments of each emission of the signal \a name.
    QList<QVariantList> of(const QString &name) const;
    int count(const QString &name) const;
    /// The arguments of the latest emission of \a name; empty when there was none.
    QVariantList last(const QString &name) const;
    void clear();

    /// Runs the event loop until \a name has been emitted at least \a count times since the start
    /// or the last clear(). False when that takes longer than \a msec.
    bool waitFor(const QString &name, int count = 1, int msec = 10000);

    int qt_metacall(QMetaObject::Call call, int id, void **args) override;

private:
    struct Signal {
        QString name;
        QVector<int> argumentTypes;
    };

    void watch(QObject *object, int methodIndex);
    void record(const Signal &signal, void **args);

    QVector<Signal> m_signals;
    QList<SignalCall> m_calls;
    /// By name, because a waiting test asks after every emission.
    QHash<QString, int> m_counts;
    Awaiter m_awaiter;
};

#endif // TARVISNET_TESTS_SIGNALRECORDER_H
