#ifndef PROCESSORENGINE_H
#define PROCESSORENGINE_H

#include "engine.h"

#include <tarvisnet/networkprocessor.h>

#include <QtCore/QHash>

/// Asks by NetworkProcessor, the engine without a queue. Each request has a processor of its own,
/// for two reasons: deleting one is the only way to end a request, and behind a redirect its
/// signals name a URL that was never asked for.
class ProcessorEngine : public Engine {
    Q_OBJECT

public:
    bool prepareFile(const Options &options, Console &console) override;
    void start(const Options &options, const Target &target) override;
    void abort(const QString &url) override;
    void abortAll(int count) override;

private:
    void connectProcessor(NetworkProcessor *processor, const QString &url);

    QHash<QString, NetworkProcessor *> m_processors;
};

#endif // PROCESSORENGINE_H
