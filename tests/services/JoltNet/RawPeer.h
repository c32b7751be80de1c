#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

namespace netTests {

/// The bytes of the protocol, made by hand.
std::string headerBytes(std::string_view name, std::uint8_t flags = 0);
std::string frameBytes(std::uint32_t kind, std::uint32_t count, std::uint64_t value);
std::string stringBytes(std::string_view text);
std::string requestBytes(std::string_view name, std::initializer_list<std::string_view> strings);
std::string receiptBytes(std::uint64_t received, std::uint32_t strings = 0);
inline constexpr std::uint32_t stringKind = 1;
inline constexpr std::uint32_t endKind = 2;
inline constexpr std::uint32_t receiptKind = 3;

/// True as soon as the condition is; false if it is not within 20 seconds.
bool until(const std::function<bool()>& condition);

/// A connected socket without any protocol. Every wait ends after 20 seconds, as if the other side
/// had sent nothing.
class RawSocket {
public:
    explicit RawSocket(int connectedSocket);
    static RawSocket connectedTo(unsigned short port);
    ~RawSocket();
    RawSocket(RawSocket&& other) noexcept;
    RawSocket& operator=(RawSocket&&) = delete;

    void send(std::string_view bytes) const;
    /// So many bytes, or fewer if the other side ends.
    std::string receive(std::size_t bytes) const;
    /// Waits until the other side has ended; false if it sends a byte instead, or nothing.
    bool isEnded() const;
    /// Whether it has ended within a hundredth of a second.
    bool isEndedSoon() const;
    /// Nothing more will be sent.
    void finish() const;
    /// Ends both directions, so that whoever waits here waits no longer.
    void shutDown() const;
    void close();
    /// Closes as a process does that is killed with bytes unread: the other side gets an error.
    void reset();

private:
    int descriptor;
};

/// Two ends of one connection that leaves the process not at all.
struct SocketPair {
    SocketPair();
    int first = -1;  ///< for whoever takes it over
    RawSocket second;
};

/// A peer that listens on 127.0.0.1 and does to each connection, one after the other, what its
/// script says. The connection is closed behind the script, and no script waits longer for the
/// other side than the peer lives.
class ScriptedPeer {
public:
    using Script = std::function<void(RawSocket&)>;
    explicit ScriptedPeer(Script connectionScript);
    ~ScriptedPeer();
    ScriptedPeer(const ScriptedPeer&) = delete;
    ScriptedPeer& operator=(const ScriptedPeer&) = delete;

    unsigned short port() const { return ownPort; }
    int connections() const { return begun; }
    /// Those whose script is over and which are closed.
    int closedConnections() const { return ended; }

private:
    void acceptAll();
    void setCurrent(RawSocket* socket);

    Script script;
    std::mutex mutex;
    RawSocket* current = nullptr;
    bool isEnding = false;
    int listener;
    unsigned short ownPort = 0;
    std::atomic<int> begun{0};
    std::atomic<int> ended{0};
    std::thread thread;
};

/// A port of 127.0.0.1 on which nobody listens.
unsigned short unusedPort();

}  // namespace netTests
