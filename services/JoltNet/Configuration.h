#pragma once

namespace JoltNet {

/// What the network engine is set to.
class Configuration {
public:
    /// The security flag for requests. Always false in this version: payloads travel in the clear.
    static bool isSecure() { return false; }
};

}  // namespace JoltNet
