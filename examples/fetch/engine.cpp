#include "engine.h"

#include "clientengine.h"
#include "options.h"
#include "processorengine.h"

std::unique_ptr<Engine> Engine::make(const Options &options)
{
    if (options.usesProcessor())
        return std::make_unique<ProcessorEngine>();
    return std::make_unique<ClientEngine>(options);
}
