#include "signalrecorder.h"

#include "onqt6.h"

#include <QtCore/QMetaMethod>
#include <QtCore/QSet>
#include <QtNetwork/QNetworkReply>

#include <atomic>
#include <type_traits>

namespace {

// Dead weight in every comparison: what a test wants to know of them it watches on its own.
bool isLeftOut(const QString &name)
{
    return name == QLatin1String("destroyed") || name == QLatin1String("objectNameChanged");
}

// A type that nobody has registered yet is known to the class that declares the signal. Qt 6 asks
// that class by itself.
int argumentType(QObject *object, const QMetaMethod &method, int argument)
{
    int type = method.parameterType(argument);
    if (type == QMetaType::UnknownType && !onQt6) {
        void *question[] = {&type, &argument};
        QMetaObject::metacall(object, QMetaObject::RegisterMethodArgumentMetaType,
                              method.methodIndex(), question);
    }
    return type < 0 ? int(QMetaType::UnknownType) : type;
}

// Qt 6 wants the type itself where Qt 5 wants its number.
using VariantType =
    std::conditional_t<std::is_constructible_v<QVariant, QMetaType, const void *>, QMetaType, int>;

// An argument of a type that is not known even so is recorded as an invalid QVariant.
QVariant toVariant(int type, const void *value)
{
    if (type == QMetaType::QVariant)
        return *static_cast<const QVariant *>(value);
    return QVariant(VariantType(type), value);
}

} // namespace

SignalRecorder::SignalRecorder(QObject *object, const QStringList &only)
{
    // moc does not register types that are named by an alias.
    qRegisterMetaType<QList<QNetworkReply::RawHeaderPair>>("QList<QNetworkReply::RawHeaderPair>");

    QSet<QString> unknown(only.begin(), only.end());
    const QMetaObject *meta = object->metaObject();
    for (int index = 0; index < meta->methodCount(); ++index) {
        const QMetaMethod method = meta->method(index);
        const QString name = QString::fromLatin1(method.name());
        // Cloned methods stand for default arguments; the full signature is emitted as well.
        if (method.methodType() != QMetaMethod::Signal || method.attributes() & QMetaMethod::Cloned)
            continue;
        if (only.isEmpty() ? isLeftOut(name) : !only.contains(name))
            continue;
        unknown.remove(name);
        watch(object, index);
    }
    if (!unknown.isEmpty())
        qFatal("%s has no signal %s", meta->className(), qPrintable(*unknown.begin()));
}

void SignalRecorder::watch(QObject *object, int methodIndex)
{
    const QMetaMethod method = object->metaObject()->method(methodIndex);
    Signal signal;
    signal.name = QString::fromLatin1(method.name());
    for (int argument = 0; argument < method.parameterCount(); ++argument)
        signal.argumentTypes.append(argumentType(object, method, argument));

    // The slot is none that moc knows: one number per signal, served by qt_metacall().
    const int slotIndex = QObject::staticMetaObject.methodCount() + m_signals.size();
    if (!QMetaObject::connect(object, methodIndex, this, slotIndex, Qt::DirectConnection))
        qFatal("cannot watch the signal %s", qPrintable(signal.name));
    m_signals.append(signal);
}

int SignalRecorder::qt_metacall(QMetaObject::Call call, int id, void **args)
{
    id = QObject::qt_metacall(call, id, args);
    if (id < 0 || call != QMetaObject::InvokeMetaMethod)
        return id;
    if (id < m_signals.size())
        record(m_signals.at(id), args);
    return id - m_signals.size();
}

void SignalRecorder::record(const Signal &signal, void **args)
{
    static std::atomic<quint64> emissions{0};

    SignalCall call;
    call.name = signal.name;
    call.order = ++emissions;
    // args[0] is the place of a return value.
    for (int argument = 0; argument < signal.argumentTypes.size(); ++argument)
        call.args.append(toVariant(signal.argumentTypes.at(argument), args[argument + 1]));
    m_calls.append(call);
    ++m_counts[signal.name];
    m_awaiter.changed();
}

QStringList SignalRecorder::names() const
{
    QStringList found;
    for (const SignalCall &call : m_calls)
        found.append(call.name);
    return found;
}

QList<SignalCall> SignalRecorder::calls() const
{
    return m_calls;
}

QList<QVariantList> SignalRecorder::of(const QString &name) const
{
    QList<QVariantList> found;
    for (const SignalCall &call : m_calls) {
        if (call.name == name)
            found.append(call.args);
    }
    return found;
}

int SignalRecorder::count(const QString &name) const
{
    return m_counts.value(name);
}

QVariantList SignalRecorder::last(const QString &name) const
{
    const QList<QVariantList> all = of(name);
    return all.isEmpty() ? QVariantList() : all.last();
}

void SignalRecorder::clear()
{
    m_calls.clear();
    m_counts.clear();
}

bool SignalRecorder::waitFor(const QString &name, int count, int msec)
{
    return m_awaiter.wait([this, &name, count] { return this->count(name) >= count; }, msec);
}
