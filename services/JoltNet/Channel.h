#pragma once

#include <sys/uio.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "Basis/Containers.h"

namespace JoltNet {

using Clock = std::chrono::steady_clock;
using Deadline = Clock::time_point;

/// How long a peer may take: for a header from its first byte, and for bytes of a string.
inline constexpr std::chrono::seconds headerTime{5};
inline constexpr std::size_t channelBufferSize = std::size_t{128} * 1024;
Deadline transferDeadline(std::uint64_t bytes);

/// An open descriptor, closed by whoever holds it last.
class Descriptor {
public:
    explicit Descriptor(int ownedNumber) : held(ownedNumber) {}
    ~Descriptor();
    Descriptor(Descriptor&& other) noexcept : held(std::exchange(other.held, -1)) {}
    Descriptor& operator=(Descriptor&&) = delete;

    int number() const { return held; }

private:
    int held;
};

/// A connection to a peer, with what was read of it ahead.
///
/// Ownership:  owns the descriptor, and closes it.
/// Threads:    one at a time; shutDown may come from any other.
/// Errors:     what cannot be sent or received, a peer that has gone, and a deadline that has
///             passed throw NetException. The channel is of no use then.
class Channel {
public:
    /// Takes over a connected, blocking stream socket.
    Channel(Descriptor connectedSocket, std::string_view hostName, unsigned short portNumber);
    ~Channel();
    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;

    const std::string& host() const { return peerHost; }
    unsigned short port() const { return peerPort; }
    /// "host:port".
    const std::string& peer() const { return peerText; }

    /// Sends all parts; changes them. With `isMoreComing` the end of it may wait for the next call.
    void send(std::span<iovec> parts, bool isMoreComing, Deadline deadline);

    /// Waits for a byte without an end. False if the peer has gone, or the channel was shut down.
    bool waitForFirstByte();
    /// Fills the place. Of what follows, at most `ahead` bytes are read with it: those of a string
    /// are better received where they belong.
    void receive(std::span<std::byte> place, std::size_t ahead, Deadline deadline);
    /// Puts as many bytes in the place of the text. What a peer has announced is not what it has
    /// sent: beyond the room that the text brings, memory grows with what comes in.
    void receive(Basis::string& text, std::uint64_t length, Deadline deadline);
    /// Takes bytes and forgets them, but for the first ones, which it copies as far as they fit.
    void consume(std::uint64_t length, std::span<char> firstBytes, Deadline deadline);

    /// When the next bytes of what is being consumed or sent are due: 10 s behind the beginning and
    /// a second for each megabyte that has come or gone, but no more than 10 s behind the last of
    /// them. Nothing unless something is. From any thread.
    std::optional<Clock::time_point> dueTime() const;

    /// Whether nothing has come in that nobody has asked for, the peer's end of all among it.
    bool isQuiet() const;

    /// Ends the connection; calls under way throw, and waitForFirstByte returns false.
    void shutDown();

    /// When it was used last; for those who keep it.
    Clock::time_point lastUse{};

private:
    std::size_t receiveSome(std::span<std::byte> place, Deadline deadline);
    void fill(std::size_t most, Deadline deadline);
    std::size_t buffered() const { return end - begin; }
    void timeOut(Deadline deadline, const char* operation) const;
    void setDue(Deadline due);

    Descriptor descriptor;
    std::string peerHost;
    unsigned short peerPort;
    std::string peerText;
    std::unique_ptr<std::byte[]> buffer;
    std::size_t begin = 0;
    std::size_t end = 0;
    std::atomic<Clock::rep> dueTicks{0};  // of Clock, 0 for nothing
};

}  // namespace JoltNet
