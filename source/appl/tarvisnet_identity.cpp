#include "tarvisnet.h"

#include "tarvisnet_p.h"

#include <QtCore/QStringBuilder>

namespace {

constexpr QLatin1String libraryVersion = general::literal("1.15.0.14194");

} // namespace

QString TarvisNet::getVtxVersion() const
{
    return d->application->version;
}

void TarvisNet::setVtxVersion(const QString &version)
{
    if (assign(d->application->version, version))
        Q_EMIT s_vtxVersionChanged();
}

QString TarvisNet::getVtxName() const
{
    return d->application->name;
}

void TarvisNet::setVtxName(const QString &name)
{
    if (assign(d->application->name, name))
        Q_EMIT s_vtxNameChanged();
}

QString TarvisNet::getVtxIdText() const
{
    return d->application->id;
}

void TarvisNet::setVtxIdByText(const QString &id)
{
    if (assign(d->application->id, id))
        Q_EMIT s_vtxIdChanged();
}

QUuid TarvisNet::getVtxId() const
{
    return QUuid(d->application->id);
}

void TarvisNet::setVtxId(const QUuid &uuid)
{
    setVtxIdByText(uuid.toString());
}

QUuid TarvisNet::generateVtxId()
{
    return QUuid::createUuid();
}

QString TarvisNet::getUserAgent() const
{
    const auto orDefault = [](const QString &text, QLatin1String fallback) {
        return text.isEmpty() ? QString(fallback) : text;
    };
    const ApplicationData &application = *d->application;
    const SystemInfoData &system = *d->systemInfo;

    // Every request asks for it: % allocates once where + would each time.
    QString text = orDefault(application.name, general::default_app_name) % QLatin1Char('/')
        % orDefault(application.version, general::default_app_version)
        % QLatin1String(" TarvisNet/") % libraryVersion % QLatin1Char(' ');
    if (!(system.architecture.isEmpty() && system.system.isEmpty() && system.version.isEmpty())) {
        text += QLatin1Char('(') % system.architecture % QLatin1String("; ") % system.system
            % QLatin1String("; ") % system.version % QLatin1Char(')');
    }
    if (!application.id.isEmpty()) {
        text += QLatin1Char(' ') % general::default_id_type % QLatin1Char('/') % application.id;
    }
    return text;
}
