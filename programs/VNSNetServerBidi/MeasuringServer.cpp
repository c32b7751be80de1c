#include "programs/VNSNetServerBidi/MeasuringServer.h"

#include <cerrno>
#include <charconv>
#include <utility>

#include "JoltNet/NetException.h"

namespace NetServer {

namespace {

using JoltNet::Answer;
using JoltNet::Received;

Answer confirm(const Received&)
{
    return {};
}

Answer sendBackAsMuch(const Received& received)
{
    return {.length = received.bytes};
}

// The size is plain decimal text.
Answer sendWhatIsNamed(const Received& received)
{
    const std::string_view text = received.firstBytes;
    std::uint64_t length = 0;
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, length);
    const bool isNumber = result.ec == std::errc() && result.ptr == end;
    if (!isNumber || received.bytes != text.size() || length > JoltNet::maxStringLength)
        return {.isAccepted = false};
    return {.length = length};
}

}  // namespace

std::unique_ptr<JoltNet::Server> MeasuringServer::listen(const ServerOptions& options)
{
    try {
        return std::make_unique<JoltNet::Server>(options.bindAddress,
                                                 options.port.value_or(assumedPort));
    } catch (const JoltNet::NetException& exception) {
        if (options.port || exception.systemError() != EADDRINUSE)
            throw;
    }
    return std::make_unique<JoltNet::Server>(options.bindAddress, 0);
}

MeasuringServer::MeasuringServer(const ServerOptions& options)
    : server(listen(options)), idleTimeout(options.idleTimeout)
{
    server->onRequest("MeasureVNS", &confirm);
    server->onRequest("CheckVNS", &confirm);
    server->onRequest("PrologueVNS", &confirm);
    server->onRequest("BidiVNS", &sendBackAsMuch);
    server->onRequest("DualVNS", &sendWhatIsNamed);
    server->onRequest("StopVNS", [this](const Received&) { return removeUser(); });
    server->onEnding([this] { return mayEnd(); });
}

// Whoever has joined meanwhile is to find a server.
bool MeasuringServer::mayEnd()
{
    const std::scoped_lock lock(mutex);
    if (!server->isEnding() && !server->isIdleFor(idleTimeout))
        return false;
    users = 0;
    tellLastUser();
    return true;
}

// With the mutex held. The port goes first: whoever takes the server's place gets both.
void MeasuringServer::tellLastUser()
{
    server->stopListening();
    if (const auto action = std::exchange(lastUserAction, nullptr))
        action();
}

std::optional<unsigned short> MeasuringServer::addUser()
{
    const std::scoped_lock lock(mutex);
    if (users == 0 || server->isEnding())
        return std::nullopt;
    ++users;
    server->touch();
    return port();
}

void MeasuringServer::dropUser()
{
    const std::scoped_lock lock(mutex);
    if (users > 1)
        --users;
}

Answer MeasuringServer::removeUser()
{
    const std::scoped_lock lock(mutex);
    if (users != 0)
        --users;
    if (users == 0)
        tellLastUser();
    return {.isLast = users == 0};
}

}  // namespace NetServer
