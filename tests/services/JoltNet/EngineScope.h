#pragma once

#include "JoltNet/Engine.h"

namespace netTests {

/// The engine is ready until the end of its scope.
class EngineScope {
public:
    EngineScope()
    {
        JoltNet::Engine::initialize(config::Configuration::getServiceConfig(), 65535, false);
    }
    ~EngineScope() { JoltNet::Engine::terminate(); }
    EngineScope(const EngineScope&) = delete;
    EngineScope& operator=(const EngineScope&) = delete;
};

}  // namespace netTests
