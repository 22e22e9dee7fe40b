#include "endings.h"

#include <QtCore/QCryptographicHash>
#include <QtCore/QJsonDocument>

namespace {

// Long bytes would drown what differs.
QString bytesText(const QByteArray &bytes)
{
    if (bytes.size() <= 200)
        return QString::fromUtf8(bytes);
    return QString::number(bytes.size()) + ' '
        + QCryptographicHash::hash(bytes, QCryptographicHash::Md5).toHex();
}

QString argumentText(const QVariant &argument)
{
    switch (int(argument.userType())) {
    case QMetaType::QJsonDocument:
        return argument.toJsonDocument().toJson(QJsonDocument::Compact);
    case QMetaType::QByteArray:
        return bytesText(argument.toByteArray());
    default:
        return bytesText(argument.toString().toUtf8());
    }
}

} // namespace

QStringList endings::seen(const SignalRecorder &recorder)
{
    QStringList seen;
    for (const SignalCall &call : recorder.calls()) {
        if (!call.name.endsWith("Progress"))
            seen.append(signalText(call.name, call.args));
    }
    return seen;
}

QString endings::signalText(const QString &name, const QVariantList &arguments)
{
    QStringList items(name);
    for (const QVariant &argument : arguments)
        items.append(argumentText(argument));
    return items.join('|');
}
