#pragma once

#include <memory>

namespace config {

/// The parameters of a service as a whole. Services that need none of their own take the one of the
/// process.
class Configuration {
public:
    /// The configuration of the process; the same object at each call. Threads: any.
    static std::shared_ptr<Configuration> getServiceConfig();
};

}  // namespace config
