#include "impl/network/SingleExchange.h"

#include <string>

namespace vetraTests {

// A series has many exchanges, and each would say the same.
void sayReplyIsShort(const string& host, unsigned short port, std::size_t sent, std::size_t back)
{
    static std::string lastPeer;
    std::string peer(host);
    peer.append(":").append(std::to_string(port));
    if (peer == lastPeer)
        return;
    lastPeer = peer;
    std::cerr << "vetra: " << peer << " sends back " << back << " of " << sent
              << " bytes: the rate in both directions is too high" << std::endl;
}

}  // namespace vetraTests
