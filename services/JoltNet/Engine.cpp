#include "JoltNet/Engine.h"

#include <fcntl.h>
#include <nss.h>

#include <algorithm>
#include <asio.hpp>
#include <mutex>
#include <vector>

#include "JoltNet/EverySecond.h"
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
    EverySecond closing;  // of the channels that nobody uses; ends before what it looks at
};

State& state()
{
    static State instance;
    return instance;
}

// Channels that were not used for their time, or that the peer has closed.
void dropUseless(State& engine)
{
    const Clock::time_point oldest = Clock::now() - warmTime;
    std::erase_if(engine.warm, [&](const auto& channel) {
        return channel->lastUse < oldest || !channel->isQuiet();
    });
}

// A warm channel to the peer that the peer has not closed; null if there is none.
std::unique_ptr<Channel> takeWarm(std::string_view host, unsigned short port)
{
    State& engine = state();
    const std::scoped_lock lock(engine.mutex);
    if (!engine.isReady || port > engine.highestPort)
        throwProtocolError("the engine is not ready for", peerName(host, port));
    dropUseless(engine);
    const auto found = std::find_if(
        engine.warm.begin(), engine.warm.end(),
        [&](const auto& channel) { return channel->port() == port && channel->host() == host; });
    if (found == engine.warm.end())
        return nullptr;
    std::unique_ptr<Channel> channel = std::move(*found);
    engine.warm.erase(found);
    return channel;
}

// The C library finds names through plug-ins of the host, which belong to the host's own C library:
// a program that brings its own must not load them.
void findNamesWithoutPlugIns()
{
#ifdef VETRA_STATIC
    [[maybe_unused]] static const int once = ::__nss_configure_lookup("hosts", "files dns");
#endif
}

// Servers of this engine listen on IPv4 only.
std::vector<asio::ip::tcp::endpoint> addressesOf(asio::io_context& context, const char* host,
                                                 unsigned short port)
{
    findNamesWithoutPlugIns();
    asio::error_code error;
    asio::ip::tcp::resolver resolver(context);
    const auto found = resolver.resolve(host, std::to_string(port),
                                        asio::ip::resolver_base::numeric_service, error);
    if (error)
        throwProtocolError(std::string("cannot resolve (").append(error.message()).append(")"),
                           peerName(host, port));
    std::vector<asio::ip::tcp::endpoint> addresses(found.begin(), found.end());
    std::stable_partition(addresses.begin(), addresses.end(),
                          [](const auto& address) { return address.address().is_v4(); });
    return addresses;
}

asio::error_code connect(asio::io_context& context, asio::ip::tcp::socket& socket,
                         const asio::ip::tcp::endpoint& address, Clock::duration time)
{
    asio::error_code error;
    socket = asio::ip::tcp::socket(context);
    socket.open(address.protocol(), error);
    if (error)
        return error;
    ::fcntl(socket.native_handle(), F_SETFD, FD_CLOEXEC);
    error = asio::error::timed_out;
    socket.async_connect(address, [&error](const asio::error_code& result) {
        if (result != asio::error::operation_aborted)
            error = result;
    });
    context.restart();
    context.run_for(time);
    if (error) {
        // The connecting ends with its socket, and what it refers to is still there.
        asio::error_code ignored;
        socket.close(ignored);
        context.restart();
        context.run();
    }
    return error;
}

// Asio's own sockets do not block; a channel's does, so that each transfer is one system call. Each
// address gets its share of what is left of the time; the first one's failure is told, which is
// where servers of this engine listen.
Descriptor connectedSocket(const char* host, unsigned short port)
{
    asio::io_context context;
    const std::vector<asio::ip::tcp::endpoint> addresses = addressesOf(context, host, port);
    // A slow name service takes nothing from the peer's time.
    const Clock::time_point deadline = Clock::now() + connectTime;
    asio::ip::tcp::socket socket(context);
    asio::error_code error = asio::error::host_not_found;
    asio::error_code firstError;
    for (std::size_t i = 0; i < addresses.size(); ++i) {
        const auto share = (deadline - Clock::now()) / static_cast<int>(addresses.size() - i);
        error = connect(context, socket, addresses[i], std::max(share, Clock::duration(1)));
        if (!error)
            break;
        if (i == 0)
            firstError = error;
    }
    if (error)
        throwSystemError(firstError ? firstError.value() : error.value(), "connect to",
                         peerName(host, port));
    socket.native_non_blocking(false, error);
    return Descriptor(socket.release());
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
    // Without it they are closed by the next request.
    engine.closing.start([&engine] {
        const std::scoped_lock again(engine.mutex);
        dropUseless(engine);
    });
    return true;
}

void Engine::terminate()
{
    State& engine = state();
    engine.closing.stop();
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
