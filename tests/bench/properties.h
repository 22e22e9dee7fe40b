#ifndef TARVISNET_TESTS_PROPERTIES_H
#define TARVISNET_TESTS_PROPERTIES_H

#include <tarvisnet/tarvisnet.h>

#include <QtCore/QMetaMethod>
#include <QtCore/QVariant>

#include <functional>
#include <type_traits>

/// The configuration of a client as a table.
namespace properties {

inline const QUuid someId("{12345678-1234-4234-8234-123456789abc}");

using Changed = void (TarvisNet::*)();

/// A value of the configuration with its way in and out.
struct Property {
    QByteArray name;
    /// Null when nothing tells of a change.
    Changed changed;
    std::function<QVariant(const TarvisNet &)> get;
    std::function<void(TarvisNet &, const QVariant &)> set;
    QVariant initial;
    QVariant first;
    QVariant second;
    bool alwaysEmits = false;

    /// The name of the signal; empty without one.
    QByteArray signal() const
    {
        return changed ? QMetaMethod::fromSignal(changed).name() : QByteArray();
    }
};

template <typename Got, typename Taken>
Property property(const char *name, Changed changed, Got (TarvisNet::*get)() const,
                  void (TarvisNet::*set)(Taken), const QVariant &initial, const QVariant &first,
                  const QVariant &second)
{
    return {name,
            changed,
            [get](const TarvisNet &client) { return QVariant::fromValue((client.*get)()); },
            [set](TarvisNet &client, const QVariant &value) {
                (client.*set)(value.value<std::decay_t<Taken>>());
            },
            initial,
            first,
            second};
}

inline Property text(const char *name, Changed changed, QString (TarvisNet::*get)() const,
                     void (TarvisNet::*set)(const QString &))
{
    return property(name, changed, get, set, QString(), "first text", "second text");
}

inline Property flag(const char *name, Changed changed, bool (TarvisNet::*get)() const,
                     void (TarvisNet::*set)(bool))
{
    return property(name, changed, get, set, false, true, false);
}

inline QList<Property> all()
{
    using T = TarvisNet;
    Property installerFileName = text("installer file name", &T::s_installerFileNameChanged,
                                      &T::getInstallerFileName, &T::setInstallerFileName);
    installerFileName.alwaysEmits = true;
    Property directInstallerUrl =
        text("direct installer URL", nullptr, &T::getDirectInstallerUrl, &T::setDirectInstallerUrl);
    return {
        text("server host", &T::s_serverHostChanged, &T::getServerHost, &T::setServerHost),
        text("server port", &T::s_serverPortChanged, &T::getServerPort, &T::setServerPort),
        text("user name", &T::s_userNameChanged, &T::getUserName, &T::setUserName),
        text("user password", &T::s_userPasswordChanged, &T::getUserPassword, &T::setUserPassword),
        text("user URL", &T::s_urlChanged, &T::getUrl, &T::setUrl),
        directInstallerUrl,
        text("definition path", &T::s_definitionPathChanged, &T::getDefinitionPath,
             &T::setDefinitionPath),
        text("index path", &T::s_indexPathChaged, &T::getIndexPath, &T::setIndexPath),
        text("installer path", &T::s_installerPathChanged, &T::getInstallerPath,
             &T::setInstallerPath),
        text("installer check sum path", &T::s_installerCheckSumPathChanged,
             &T::getInstallerCheckSumPath, &T::setInstallerCheckSumPath),
        text("installer change log path", &T::s_installerChangeLogPathChanged,
             &T::getInstallerChangeLogPath, &T::setInstallerChangeLogPath),
        text("version", &T::s_vtxVersionChanged, &T::getVtxVersion, &T::setVtxVersion),
        text("name", &T::s_vtxNameChanged, &T::getVtxName, &T::setVtxName),
        text("id as text", &T::s_vtxIdChanged, &T::getVtxIdText, &T::setVtxIdByText),
        property("id", &T::s_vtxIdChanged, &T::getVtxId, &T::setVtxId, QUuid(), someId,
                 QUuid("{00000000-0000-4000-8000-000000000001}")),
        installerFileName,
        property("installer file size", &T::s_installerFileSizeChanged, &T::getInstallerFileSize,
                 &T::setInstallerFileSize, quint64(0), quint64(1), ~quint64(0)),
        text("output directory", &T::s_outputDirChanged, &T::getOutputDirectory,
             &T::setOutputDirectory),
        text("temporary directory", &T::s_temporaryDirChange, &T::getTemporaryDirectory,
             &T::setTemporaryDirectory),
        property("parallel requests", &T::s_parallelRequestCountChanged,
                 &T::getParallelRequestsCount, &T::setParallelRequestsCount, 5, 1, 3),
        flag("ping always on", &T::s_pingAlwaysOnChanged, &T::isPingAlwaysOn, &T::setPingAlwaysOn),
        flag("stop process", &T::s_stopProcessChanged, &T::isStopProcess, &T::setStopProcess),
        property("ping time-out", nullptr, &T::getPingTimeout, &T::setPingTimeout, 10000, 1, 60000),
    };
}

} // namespace properties

Q_DECLARE_METATYPE(properties::Property)

#endif // TARVISNET_TESTS_PROPERTIES_H
