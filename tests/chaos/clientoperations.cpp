#include "operations.h"

namespace {

/// A savepath now and then; it holds for all that are in flight.
QString savePath(Stage &stage, Dice &dice)
{
    return dice.oneIn(2) ? stage.named(QStringLiteral("raw%1").arg(dice.below(3))) : QString();
}

// Either form of a fetch.
template <typename ByUrl, typename ByPath>
void fetch(Stage &stage, Dice &dice, int number, Draft draft, ByUrl byUrl, ByPath byPath)
{
    draft.byPath = dice.oneIn(3);
    const DrawnRequest request = stage.draw(number, dice, draft);
    if (draft.byPath)
        byPath(request);
    else
        byUrl(request);
}

void fetchDefinition(Stage &stage, Dice &dice, int number)
{
    TarvisNet &client = *stage.client();
    fetch(
        stage, dice, number, {"fetchDefinition", "definition"},
        [&](const DrawnRequest &request) { client.fetchDefinition(request.url); },
        [&](const DrawnRequest &request) { client.fetchDefinition(request.url.path()); });
}

void fetchIndex(Stage &stage, Dice &dice, int number)
{
    TarvisNet &client = *stage.client();
    fetch(
        stage, dice, number, {"fetchIndex", "index"},
        [&](const DrawnRequest &request) { client.fetchIndex(request.url); },
        // The configured path stands in for an empty argument.
        [&](const DrawnRequest &request) {
            client.setIndexPath(request.url.path());
            client.fetchIndex();
        });
}

void fetchInstallerChangeLog(Stage &stage, Dice &dice, int number)
{
    TarvisNet &client = *stage.client();
    fetch(
        stage, dice, number, {"fetchInstallerChangeLog", "log"},
        [&](const DrawnRequest &request) { client.fetchInstallerChangeLog(request.url); },
        [&](const DrawnRequest &request) { client.fetchInstallerChangeLog(request.url.path()); });
}

void fetchInstaller(Stage &stage, Dice &dice, int number)
{
    TarvisNet &client = *stage.client();
    fetch(
        stage, dice, number, {"fetchInstaller", "finished"},
        [&](const DrawnRequest &request) { client.fetchInstaller(request.url); },
        [&](const DrawnRequest &request) {
            client.setInstallerPath(request.url.path());
            client.fetchInstaller(QString());
        });
}

void fetchBinary(Stage &stage, Dice &dice, int number)
{
    TarvisNet &client = *stage.client();
    fetch(
        stage, dice, number, {"fetchBinary", "finished", true},
        [&](const DrawnRequest &request) {
            client.fetchBinary(request.url, request.file, qulonglong(request.size));
        },
        [&](const DrawnRequest &request) {
            client.fetchBinary(request.url.path(), request.file, qulonglong(request.size));
        });
}

void rawGet(Stage &stage, Dice &dice, int number)
{
    const QUrl url = stage.draw(number, dice, {"rawGet", "rawGet"}).url;
    if (dice.oneIn(2))
        stage.client()->rawGet(url.toString());
    else
        stage.client()->rawGet(url, {}, {{"X-Number", QByteArray::number(number)}});
}

void forceRawGet(Stage &stage, Dice &dice, int number)
{
    const QUrl url = stage.draw(number, dice, {"forceRawGet", "rawGet"}).url;
    if (dice.oneIn(2))
        stage.client()->forceRawGet(url.toString());
    else
        stage.client()->forceRawGet(url);
}

// Small bodies and such as are sent in pieces.
QByteArray upload(Dice &dice)
{
    return QByteArray(dice.oneIn(4) ? dice.between(100000, 500000) : dice.below(1000), 'u');
}

void rawPost(Stage &stage, Dice &dice, int number)
{
    const QUrl url = stage.draw(number, dice, {"rawPost", "rawPost"}).url;
    if (dice.oneIn(2))
        stage.client()->rawPost(url.toString(), QStringLiteral("text"));
    else
        stage.client()->rawPost(url, upload(dice));
}

void rawPath(Stage &stage, Dice &dice, int number)
{
    const QUrl url = stage.draw(number, dice, {"rawPath", "rawPath"}).url;
    stage.client()->rawPath(url, upload(dice));
}

void rawDelete(Stage &stage, Dice &dice, int number)
{
    const QUrl url = stage.draw(number, dice, {"rawDelete", "rawDelete"}).url;
    stage.client()->rawDelete(url, upload(dice));
}

void rawGetFile(Stage &stage, Dice &dice, int number)
{
    const QUrl url = stage.draw(number, dice, {"rawGetFile", "rawGetFile"}).url;
    const QString file = savePath(stage, dice);
    if (dice.oneIn(2))
        stage.client()->rawGetFile(url.toString(), file);
    else
        stage.client()->rawGetFile(url, file);
}

void rawPostFile(Stage &stage, Dice &dice, int number)
{
    const QUrl url = stage.draw(number, dice, {"rawPostFile", "rawPostFile"}).url;
    const QString file = savePath(stage, dice);
    if (dice.oneIn(2))
        stage.client()->rawPostFile(url.toString(), file, upload(dice));
    else
        stage.client()->rawPostFile(url, file, upload(dice));
}

} // namespace

namespace operations {

QVector<Operation> ofClient()
{
    return {
        {"fetchDefinition", 4, fetchDefinition},
        {"fetchIndex", 4, fetchIndex},
        {"fetchInstallerChangeLog", 3, fetchInstallerChangeLog},
        {"fetchInstaller", 4, fetchInstaller},
        {"fetchBinary", 12, fetchBinary},
        {"rawGet", 6, rawGet},
        {"forceRawGet", 3, forceRawGet},
        {"rawPost", 4, rawPost},
        {"rawPath", 3, rawPath},
        {"rawDelete", 3, rawDelete},
        {"rawGetFile", 4, rawGetFile},
        {"rawPostFile", 4, rawPostFile},
    };
}

} // namespace operations
