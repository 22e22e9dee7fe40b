#ifndef ENGINE_H
#define ENGINE_H

#include <QtCore/QJsonDocument>
#include <QtCore/QObject>

#include <memory>

class Console;
struct Options;
struct Target;

/// What carries the requests out: one of the library's two engines behind one face. Requests are
/// told apart by the text of the URL that was asked for.
class Engine : public QObject {
    Q_OBJECT

public:
    using QObject::QObject;

    /// The engine that the options name.
    static std::unique_ptr<Engine> make(const Options &options);

    /// Makes sure, before anything is asked for, that the file can take what will arrive.
    virtual bool prepareFile(const Options &options, Console &console) = 0;
    virtual void start(const Options &options, const Target &target) = 0;
    /// Ends one request.
    virtual void abort(const QString &url) = 0;
    /// Ends the requests that are under way, \a count of them, and starts no more.
    virtual void abortAll(int count) = 0;

Q_SIGNALS:
    void documentArrived(const QJsonDocument &document, const QString &url);
    void bytesArrived(const QByteArray &bytes, const QString &url);
    /// The bytes of an answer that the engine has tried to save, if there is a path for it.
    void fileArrived(const QByteArray &bytes, const QString &url);
    /// The request ended without anything to hand over.
    void concluded(const QString &url);
    void failed(short code, const QString &url, const QJsonDocument &answer);
    void aborted(const QString &url);
    void bytesProgressed(qint64 bytes, qint64 total, const QString &url);
    void percentProgressed(double percent, const QString &url);
};

#endif // ENGINE_H
