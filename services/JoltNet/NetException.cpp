#include "JoltNet/NetException.h"

namespace JoltNet {

namespace {

const Basis::ErrorRecord& exchangeFailed()
{
    static const Basis::ErrorRecord record =
        Basis::registeredError(2001, "exchange failed: $reason$", "ERR_NET_EXCHANGE");
    return record;
}

}  // namespace

void throwSystemError(int systemError, std::string_view operation, std::string_view peer,
                      const char* file, int line)
{
    NetException exception(file, line, systemError);
    exception.addArgument(std::string(operation).append(" ").append(peer));
    throw exception;
}

void throwProtocolError(std::string_view reason, std::string_view peer, const char* file, int line)
{
    NetException exception(file, line, exchangeFailed());
    exception.addArgument(std::string(reason).append(" ").append(peer), "reason");
    throw exception;
}

std::string peerName(std::string_view host, unsigned short port)
{
    return std::string(host).append(":").append(std::to_string(port));
}

}  // namespace JoltNet
