#pragma once

#include <string>
#include <string_view>

#include "Basis/Exception.h"

namespace JoltNet {

/// An exchange that could not be completed. The text names operation, host, port and cause.
class NetException : public Basis::Exception {
public:
    using Basis::Exception::Exception;
};

/// Throws for a failed system call; `systemError` is its errno.
[[noreturn]] void throwSystemError(int systemError, std::string_view operation,
                                   std::string_view peer, const char* file = __builtin_FILE(),
                                   int line = __builtin_LINE());

/// Throws for a peer that does not keep to the protocol, or an engine that is not ready.
[[noreturn]] void throwProtocolError(std::string_view reason, std::string_view peer,
                                     const char* file = __builtin_FILE(),
                                     int line = __builtin_LINE());

/// "host:port".
std::string peerName(std::string_view host, unsigned short port);

}  // namespace JoltNet
