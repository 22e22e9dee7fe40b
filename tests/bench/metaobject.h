#ifndef TARVISNET_TESTS_METAOBJECT_H
#define TARVISNET_TESTS_METAOBJECT_H

#include <QtCore/QMetaEnum>
#include <QtCore/QMetaMethod>
#include <QtCore/QMetaProperty>
#include <QtCore/QStringList>

/// What a class says of itself at run time, in lines that can be compared and read.
namespace metaobject {

/// "signal s_error(short) errorCode" for example. Void is not named; "cloned" stands for an
/// argument that has a default.
inline QString described(const QMetaMethod &method)
{
    QStringList words;
    if (method.attributes() & QMetaMethod::Cloned)
        words << "cloned";
    if (method.methodType() == QMetaMethod::Slot)
        words << (method.access() == QMetaMethod::Private ? "private slot" : "slot");
    else
        words << (method.methodType() == QMetaMethod::Signal ? "signal" : "method");
    if (method.returnType() != QMetaType::Void)
        words << method.typeName();
    words << method.methodSignature() << QString::fromLatin1(method.parameterNames().join(' '));
    return words.join(' ').trimmed();
}

/// The class, its base, and all that it adds to that one, in the order of the indexes: they are
/// part of the interface, since applications may connect by them.
inline QStringList described(const QMetaObject &type)
{
    QStringList lines(QString(type.className()) + " : " + type.superClass()->className());
    for (int i = type.enumeratorOffset(); i < type.enumeratorCount(); ++i)
        lines << QString("enum ") + type.enumerator(i).name();
    for (int i = type.propertyOffset(); i < type.propertyCount(); ++i)
        lines << QString("property ") + type.property(i).name();
    for (int i = 0; i < type.constructorCount(); ++i)
        lines << "constructor " + type.constructor(i).methodSignature();
    for (int i = type.methodOffset(); i < type.methodCount(); ++i)
        lines << described(type.method(i));
    return lines;
}

} // namespace metaobject

#endif // TARVISNET_TESTS_METAOBJECT_H
