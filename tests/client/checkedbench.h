#ifndef TARVISNET_TESTS_CHECKEDBENCH_H
#define TARVISNET_TESTS_CHECKEDBENCH_H

#include "clientbench.h"
#include "files.h"
#include "operations.h"

#include <QtCore/QCryptographicHash>
#include <QtCore/QDir>
#include <QtCore/QFileInfo>
#include <QtCore/QRegularExpression>

#include <optional>

/// One answer of a server, as it is told to lie.
struct FileAnswer {
    int status = 200;
    HttpHeaders headers;
    QByteArray body;
    /// What it says of its length, or how it frames its body; its length without a word.
    std::optional<qint64> announced = std::nullopt;

    /// A body that is not as long as announced ends with the connection.
    void send(HttpResponse &response) const
    {
        const bool isCut = announced.value_or(0) > body.size();
        // If the end came later, Qt would now and then take the part for the whole.
        if (isCut)
            response.cork();
        response.sendHead(status, headers, announced.value_or(body.size()));
        response.write(body);
        if (isCut)
            response.cut();
        else
            response.finish();
    }
};

/// A client that checks files and nothing else, with a folder for temporary files and one for what
/// is saved.
struct CheckedBench : ClientBench {
    explicit CheckedBench(ScriptedServer::Mode mode = ScriptedServer::Mode::Http,
                          const TransferPolicy &policy = checkingFiles())
        : ClientBench(mode, policy)
    {
        QDir(path()).mkdir("temporary");
        QDir(path()).mkdir("saved");
        client->setTemporaryDirectory(path("temporary"));
        ask(server.port());
    }

    static TransferPolicy checkingFiles()
    {
        TransferPolicy policy;
        policy.setFilesChecked(true);
        return policy;
    }

    QString destination() const { return path("saved/tool"); }
    /// Everything in the folder \a name.
    QStringList namesIn(const QString &name) const
    {
        return QDir(path(name))
            .entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    }
    /// The only temporary file that there is; empty when there is none.
    QString temporary() const
    {
        const QStringList names = namesIn("temporary").filter(QRegularExpression("vtxdownload$"));
        return names.size() == 1 ? path("temporary/" + names.first()) : QString();
    }

    /// Has the server give these answers, one after the other, and the last one from then on. A
    /// request that equals the one before is Qt's own repetition, and gets the same answer.
    void answer(const QList<FileAnswer> &answers)
    {
        m_answers = answers;
        m_lastAsked.clear();
        server.on("/tool", [this](const HttpRequest &request, HttpResponse &response) {
            const QString asked = rangeOf(request);
            const bool isNext = !m_lastAsked.isEmpty() && asked != m_lastAsked;
            if (isNext && m_answers.size() > 1)
                m_answers.removeFirst();
            m_lastAsked = asked;
            const FileAnswer next = m_answers.first();
            next.send(response);
        });
    }
    /// Fetches by \a operation, for which the server must speak HTTPS when it takes a path.
    void fetch(const Operation &operation, quint64 size, const QString &hash = QString())
    {
        if (requestkinds::of(operation.kind).isInstaller()) {
            client->setInstallerPath("/tool");
            client->setInstallerFileSize(size);
            client->setInstallerFileName(destination());
            recorder.clear();
        }
        FileData file;
        file.filePath = destination();
        file.size = size;
        file.hash = hash;
        const bool isPath = operation.form == Operation::Path;
        operation.call(*client, isPath ? QString("/tool") : url("/tool"), file);
    }
    void fetch(quint64 size, const QString &hash = QString())
    {
        client->fetchBinary(server.url("/tool"), destination(), size, hash);
    }
    /// Runs the event loop until \a count requests have ended.
    bool waitForEnds(int count = 1) { return recorder.waitFor("s_repliesCountChanged", 2 * count); }
    /// All signals but progress and those of the probe.
    QStringList told() const
    {
        QStringList names = emitted();
        names.removeAll("s_startPing");
        names.removeAll("s_stopPing");
        return names;
    }
    /// What was asked for, without repetitions: "whole", or a range and its condition.
    QStringList asked() const
    {
        QStringList texts;
        for (const HttpRequest &request : server.requests("/tool")) {
            if (const QString text = rangeOf(request); texts.isEmpty() || texts.last() != text)
                texts.append(text);
        }
        return texts;
    }

private:
    static QString rangeOf(const HttpRequest &request)
    {
        const bool isWhole = request.header("range").isNull();
        const QByteArray range = request.header("range") + ' ' + request.header("if-range");
        return isWhole ? QString("whole") : QString::fromLatin1(range.trimmed());
    }

    QList<FileAnswer> m_answers;
    QString m_lastAsked;
};

inline QString hashOf(const QByteArray &bytes,
                      QCryptographicHash::Algorithm algorithm = QCryptographicHash::Sha256)
{
    return QString::fromLatin1(QCryptographicHash::hash(bytes, algorithm).toHex());
}

#endif // TARVISNET_TESTS_CHECKEDBENCH_H
