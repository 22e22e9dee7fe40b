#include "clientengine.h"

#include "commands.h"
#include "console.h"
#include "options.h"
#include "target.h"

#include <QtCore/QFileInfo>
#include <QtCore/QUrl>

ClientEngine::ClientEngine(const Options &options)
    : m_client(options.policy)
{
    configure(options);
    connectClient();
}

ClientEngine::~ClientEngine()
{
    // The client reports what it aborts while it dies, but by then most of us is gone.
    m_client.disconnect(this);
}

bool ClientEngine::prepareFile(const Options &options, Console &console)
{
    // The library then sees to it, and never loses what is there.
    if (options.policy.filesChecked())
        return true;
    const auto expected = static_cast<qint64>(options.size);
    const QFileInfo destination(options.savePath());
    // The library would find out at the end of the download, and then throw away both.
    if (expected > 0 && destination.exists() && destination.size() != expected) {
        console.error(QStringLiteral("%1 is in the way, with %2 bytes instead of %3; remove it")
                          .arg(destination.filePath())
                          .arg(destination.size())
                          .arg(expected));
        return false;
    }
    const QFileInfo temporary(options.partialPath());
    if (expected == 0 || !temporary.isFile() || temporary.size() <= expected)
        return true;
    console.note(QStringLiteral("removing %1, it is too long").arg(temporary.filePath()));
    return m_client.removeTemporaryFile(temporary.filePath());
}

void ClientEngine::start(const Options &options, const Target &target)
{
    options.command->start(m_client, options, target);
}

void ClientEngine::abort(const QString &url)
{
    m_client.abortDownload(QUrl(url).path(QUrl::FullyDecoded));
}

void ClientEngine::abortAll(int count)
{
    m_client.setStopProcess(true);
    for (int i = 0; i < count; ++i)
        m_client.abortDownload();
}

void ClientEngine::configure(const Options &options)
{
    m_client.setServerHost(options.host);
    m_client.setServerPort(QString::number(options.port));
    m_client.setDefinitionPath(options.definitionPath);
    m_client.setIndexPath(options.indexPath);
    m_client.setInstallerPath(options.installerPath);
    m_client.setInstallerChangeLogPath(options.changeLogPath);
    m_client.setDirectInstallerUrl(options.installerUrl);
    m_client.setTemporaryDirectory(options.temporaryDirectory);
    m_client.setOutputDirectory(options.outputDirectory);
    m_client.setVtxName(options.applicationName);
    m_client.setVtxVersion(options.applicationVersion);
    m_client.setVtxIdByText(options.installationId);
    m_client.setParallelRequestsCount(static_cast<int>(options.parallelCount));
    m_client.setPingTimeout(static_cast<int>(options.pingTimeout));
    m_client.setPingAlwaysOn(options.pingAlways);
}

void ClientEngine::connectClient()
{
    const auto forward = [this](auto from, auto to) { connect(&m_client, from, this, to); };
    forward(&TarvisNet::s_fetchDefinition, &Engine::documentArrived);
    forward(&TarvisNet::s_fetchIndex, &Engine::documentArrived);
    forward(&TarvisNet::s_rawGet, &Engine::documentArrived);
    forward(&TarvisNet::s_rawPost, &Engine::documentArrived);
    forward(&TarvisNet::s_rawPathFinished, &Engine::documentArrived);
    forward(&TarvisNet::s_fetchInstallerChangeLogData, &Engine::bytesArrived);
    forward(&TarvisNet::s_rawGetFileFinished, &Engine::fileArrived);
    forward(&TarvisNet::s_rawPostFileFinished, &Engine::fileArrived);
    forward(&TarvisNet::s_finished, &Engine::concluded);
    forward(&TarvisNet::s_rawDeleteFinished, &Engine::concluded);
    forward(&TarvisNet::s_errorChanged, &Engine::failed);
    forward(&TarvisNet::s_aborted, &Engine::aborted);
    forward(&TarvisNet::s_downloadFileBytesProgress, &Engine::bytesProgressed);
    forward(&TarvisNet::s_downloadFileProgress, &Engine::percentProgressed);
    forward(&TarvisNet::s_uploadFileProgress, &Engine::percentProgressed);
}
