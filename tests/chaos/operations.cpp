#include "operations.h"

#include "files.h"

#include <QtCore/QEventLoop>
#include <QtCore/QTimer>

namespace {

// Asks again for what was asked last; that is refused while the first still waits.
void repeatLatest(Stage &stage, Dice &dice, int number)
{
    Q_UNUSED(dice)
    Q_UNUSED(number)
    const DrawnRequest latest = stage.latest();
    if (latest.number == 0)
        return;
    stage.ledger().repeat(latest.number);
    stage.client()->rawGet(latest.url);
}

void refusedUrl(Stage &stage, Dice &dice, int number)
{
    Q_UNUSED(number)
    const QUrl wrong(dice.oneIn(2) ? QString() : QStringLiteral("http://[wrong/"));
    const int before = stage.ledger().refusedUrls();
    TarvisNet &client = *stage.client();
    switch (dice.below(4)) {
    case 0:
        client.rawGet(wrong);
        break;
    case 1:
        client.fetchBinary(wrong, stage.named(QStringLiteral("wrong")));
        break;
    case 2:
        client.rawPost(wrong, "body");
        break;
    default:
        client.fetchDefinition(QStringLiteral("no leading slash"));
        break;
    }
    // A receiver may have refused more.
    if (stage.ledger().refusedUrls() <= before)
        stage.ledger().fault(QStringLiteral("a wrong URL was not refused"));
}

void abortFirst(Stage &stage, Dice &, int)
{
    stage.client()->abortDownload();
}

void abortPath(Stage &stage, Dice &dice, int)
{
    const QStringList paths = stage.paths();
    if (paths.isEmpty())
        return;
    const QString path = dice.pick(paths);
    stage.ledger().releasePath(path);
    stage.client()->abortDownload(path);
}

void abortPaths(Stage &stage, Dice &dice, int)
{
    QStringList some;
    const QStringList paths = stage.paths();
    for (const QString &path : paths) {
        if (dice.oneIn(3))
            some.append(path);
    }
    for (const QString &path : qAsConst(some))
        stage.ledger().releasePath(path);
    stage.client()->abortDownload(some);
}

void setLimit(Stage &stage, Dice &dice, int)
{
    stage.client()->setParallelRequestsCount(dice.between(-1, 9));
}

void setStopProcess(Stage &stage, Dice &dice, int)
{
    stage.client()->setStopProcess(dice.oneIn(3));
}

void setPinging(Stage &stage, Dice &dice, int)
{
    stage.client()->setPingAlwaysOn(dice.oneIn(2));
    stage.client()->setPingTimeout(dice.pick({0, 1, 500, 10000}));
}

void setTemporaryDirectory(Stage &stage, Dice &dice, int)
{
    stage.client()->setTemporaryDirectory(stage.directory(dice.below(3)));
}

// Each runs the slot that looks at the installer on disk.
void setInstaller(Stage &stage, Dice &dice, int)
{
    const QString path = stage.named(QStringLiteral("installer"));
    if (dice.oneIn(2))
        files::write(path, QByteArray(dice.below(100), 'i'));
    if (dice.oneIn(2))
        stage.client()->setInstallerFileName(path);
    else
        stage.client()->setInstallerFileSize(quint64(dice.below(200)));
}

void setIdentity(Stage &stage, Dice &dice, int number)
{
    TarvisNet &client = *stage.client();
    switch (dice.below(3)) {
    case 0:
        client.setVtxId(client.generateVtxId());
        break;
    case 1:
        client.setVtxName(QStringLiteral("name %1").arg(number));
        break;
    default:
        client.setVtxVersion(QString(dice.below(1000), QLatin1Char('v')));
        break;
    }
}

void setCookies(Stage &stage, Dice &dice, int)
{
    stage.client()->setCookies(dice.oneIn(3) ? nullptr : stage.newJar());
}

void emitCountChanged(Stage &stage, Dice &, int)
{
    Q_EMIT stage.client()->s_repliesCountChanged();
}

void emitPinging(Stage &stage, Dice &dice, int)
{
    if (dice.oneIn(2))
        Q_EMIT stage.client()->s_startPing(dice.between(-1, 2));
    else
        Q_EMIT stage.client()->s_stopPing();
}

FileData fileOf(Stage &stage, Dice &dice)
{
    FileData file;
    file.filePath = stage.named(QStringLiteral("odd%1").arg(dice.below(3)));
    file.tempFilePath = stage.named(QStringLiteral("odd%1.vtxdownload").arg(dice.below(3)));
    file.size = quint64(dice.below(3));
    if (dice.oneIn(2))
        files::write(file.filePath, QByteArray(dice.below(3), 'd'));
    if (dice.oneIn(2))
        files::write(file.tempFilePath, QByteArray(dice.below(3), 't'));
    return file;
}

void renameTemporaryFile(Stage &stage, Dice &dice, int)
{
    stage.client()->renameTemporaryFile(fileOf(stage, dice));
}

void removeTemporaryFile(Stage &stage, Dice &dice, int)
{
    const FileData file = fileOf(stage, dice);
    stage.client()->removeTemporaryFile(dice.oneIn(2) ? file.filePath : file.tempFilePath);
}

void replaceClient(Stage &stage, Dice &dice, int)
{
    stage.replaceClient(dice.oneIn(2));
}

void replaceProcessor(Stage &stage, Dice &, int)
{
    stage.replaceProcessor();
}

void runNestedLoop(Stage &, Dice &dice, int)
{
    QEventLoop loop;
    QTimer::singleShot(dice.between(0, 20), &loop, &QEventLoop::quit);
    loop.exec();
}

void closeConnections(Stage &stage, Dice &, int)
{
    stage.closeConnections();
}

struct ProcessorKind {
    QLatin1String kind;
    const char *result;
    bool isFile;
};

const ProcessorKind processorKinds[] = {
    {replies::remote_index, "index", false},    {replies::remote_installer_log, "log", false},
    {replies::remote_binary, "finished", true}, {replies::raw_get, "rawGet", false},
    {replies::raw_post, "rawPost", false},      {replies::raw_get_file, "rawGetFile", true},
    {replies::raw_delete, "", false},
};

void startProcessor(Stage &stage, Dice &dice, int number)
{
    const ProcessorKind &kind = dice.pick(processorKinds);
    const DrawnRequest request =
        stage.drawForProcessor(number, dice, {"NetworkProcessor", kind.result, kind.isFile});
    ReplyData record;
    record.replyType = kind.kind;
    record.request.setUrl(request.url);
    record.fileData.filePath = request.file;
    record.fileData.size = quint64(request.size);
    if (dice.oneIn(3))
        stage.processor()->startPost(record, QByteArray(dice.below(1000), 'p'));
    else
        stage.processor()->startGet(record);
}

QVector<Operation> everything()
{
    return operations::ofClient()
        + QVector<Operation>{
            {"repeat", 2, repeatLatest},
            {"refused URL", 2, refusedUrl},
            {"abortDownload()", 4, abortFirst},
            {"abortDownload(path)", 4, abortPath},
            {"abortDownload(paths)", 2, abortPaths},
            {"setParallelRequestsCount", 3, setLimit},
            {"setStopProcess", 3, setStopProcess},
            {"ping settings", 3, setPinging},
            {"setTemporaryDirectory", 2, setTemporaryDirectory},
            {"installer settings", 2, setInstaller},
            {"identity", 1, setIdentity},
            {"setCookies", 1, setCookies},
            {"s_repliesCountChanged", 2, emitCountChanged},
            {"s_startPing, s_stopPing", 1, emitPinging},
            {"renameTemporaryFile", 1, renameTemporaryFile},
            {"removeTemporaryFile", 1, removeTemporaryFile},
            {"new client", 2, replaceClient},
            {"new processor", 1, replaceProcessor},
            {"nested event loop", 1, runNestedLoop},
            {"all connections closed", 1, closeConnections},
            {"NetworkProcessor", 8, startProcessor},
        };
}

} // namespace

namespace operations {

const Operation &draw(Dice &dice)
{
    static const QVector<Operation> all = everything();
    return dice.pickByWeight(all);
}

} // namespace operations
