#ifndef CLIENTENGINE_H
#define CLIENTENGINE_H

#include "engine.h"

#include <tarvisnet/tarvisnet.h>

/// Asks by TarvisNet, the library's main class.
class ClientEngine : public Engine {
    Q_OBJECT

public:
    explicit ClientEngine(const Options &options);
    ~ClientEngine() override;

    bool prepareFile(const Options &options, Console &console) override;
    void start(const Options &options, const Target &target) override;
    void abort(const QString &url) override;
    void abortAll(int count) override;

private:
    void configure(const Options &options);
    void connectClient();

    TarvisNet m_client;
};

#endif // CLIENTENGINE_H
