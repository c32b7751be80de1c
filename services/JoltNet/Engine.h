#pragma once

#include <memory>

#include "Configuration/Configuration.h"
#include "JoltNet/Channel.h"

namespace JoltNet {

/// The client side of the process: connects to peers and keeps channels warm between requests.
///
/// A channel is kept for 30 s without use, and only if the exchange on it was complete. Connecting
/// takes 5 s at most and tries all addresses of a name.
/// Threads: any. One of the engine's own closes what was kept long enough, within a second or so.
class Engine {
public:
    /// Makes the engine ready; false if it already is. The number bounds the ports that requests
    /// may go to; `isServer` is reserved and false.
    static bool initialize(std::shared_ptr<config::Configuration> configuration,
                           unsigned short highestPort, bool isServer);
    /// Closes all warm channels. Requests under way keep theirs until they end.
    static void terminate();

    /// A connected channel to the peer. Throws NetException. For requests.
    static std::unique_ptr<Channel> takeChannel(const char* host, unsigned short port);
    /// Keeps a channel on which the last exchange was complete.
    static void keepChannel(std::unique_ptr<Channel> channel);
};

}  // namespace JoltNet
