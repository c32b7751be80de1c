#include "JoltNet/Engine.h"

#include <algorithm>
#include <asio.hpp>
#include <mutex>
#include <vector>

#include "JoltNet/NetException.h"

namespace JoltNet {

namespace {

constexpr std::chrono::seconds connectTime{5};
constexpr std::chrono::seconds warmTime{30};
constexpr std::size_t maxWarmChannels = 64;

struct State {
    std::mutex mutex;
    bool isReady = false;
    unsigned short highestPort = 0;
    std::shared_ptr<config::Configuration> configuration;
    std::vector<std::unique_ptr<Channel>> warm;
};

State& state()
{
    static State instance;
    return instance;
}

// A warm channel to the peer that the peer has not closed; null if there is none.
std::unique_ptr<Channel> takeWarm(std::string_view host, unsigned short port)
{
    State& engine = state();
    const std::scoped_lock lock(engine.mutex);
    if (!engine.isReady || port > engine.highestPort)
        throwProtocolError("the engine is not ready for", peerName(host, port));
    const Clock::time_point oldest = Clock::now() - warmTime;
    std::erase_if(engine.warm, [&](const auto& channel) {
        return channel->lastUse < oldest || !channel->isQuiet();
    });
    const auto found = std::find_if(
        engine.warm.begin(), engine.warm.end(),
        [&](const auto& channel) { return channel->port() == port && channel->host() == host; });
    if (found == engine.warm.end())
        return nullptr;
    std::unique_ptr<Channel> channel = std::move(*found);
    engine.warm.erase(found);
    return channel;
}

// Asio's own sockets do not block; a channel's does, so that each transfer is one system call.
int connectedSocket(const char* host, unsigned short port)
{
    asio::io_context context;
    asio::error_code error;
    asio::ip::tcp::resolver resolver(context);
    const auto addresses = resolver.resolve(host, std::to_string(port),
                                            asio::ip::resolver_base::numeric_service, error);
    if (error)
        throwProtocolError(std::string("cannot resolve (").append(error.message()).append(")"),
                           peerName(host, port));

    asio::ip::tcp::socket socket(context);
    error = asio::error::would_block;
    asio::async_connect(socket, addresses,
                        [&error](const asio::error_code& result, const auto&) { error = result; });
    context.run_for(connectTime);
    if (error == asio::error::would_block)
        error = asio::error::timed_out;
    if (error)
        throwSystemError(error.value(), "connect to", peerName(host, port));
    socket.native_non_blocking(false, error);
    return socket.release();
}

}  // namespace

bool Engine::initialize(std::shared_ptr<config::Configuration> configuration,
                        unsigned short highestPort, bool)
{
    State& engine = state();
    const std::scoped_lock lock(engine.mutex);
    if (engine.isReady)
        return false;
    engine.configuration = std::move(configuration);
    engine.highestPort = highestPort;
    engine.warm.reserve(maxWarmChannels);
    engine.isReady = true;
    return true;
}

void Engine::terminate()
{
    State& engine = state();
    const std::scoped_lock lock(engine.mutex);
    engine.warm.clear();
    engine.configuration.reset();
    engine.isReady = false;
}

std::unique_ptr<Channel> Engine::takeChannel(const char* host, unsigned short port)
{
    if (std::unique_ptr<Channel> channel = takeWarm(host, port))
        return channel;
    return std::make_unique<Channel>(connectedSocket(host, port), host, port);
}

void Engine::keepChannel(std::unique_ptr<Channel> channel)
{
    State& engine = state();
    const std::scoped_lock lock(engine.mutex);
    channel->lastUse = Clock::now();
    if (engine.isReady && engine.warm.size() < maxWarmChannels)
        engine.warm.push_back(std::move(channel));
}

}  // namespace JoltNet
