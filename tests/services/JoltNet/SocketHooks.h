#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <limits>

namespace netTests {

/// Moves the engine's clock forward in the programs that link it, for as long as it lives: what
/// lasts seconds on a real clock is over at once. Blocking calls look at the clock when they wake.
class ShiftedClock {
public:
    ~ShiftedClock();
    void advance(std::chrono::nanoseconds time);
};

/// Stands between channels and the kernel in the programs that link it: transfers then move as
/// little, or fail as often, as a kernel may make them. All of it is off at first, and again when
/// the object goes. One at a time.
class SocketHooks {
public:
    static constexpr std::size_t anything = std::numeric_limits<std::size_t>::max();

    SocketHooks();
    ~SocketHooks();
    SocketHooks(const SocketHooks&) = delete;
    SocketHooks& operator=(const SocketHooks&) = delete;

    /// The most bytes that one call moves.
    std::atomic<std::size_t> mostPerSend{anything};
    std::atomic<std::size_t> mostPerReceive{anything};
    /// So many calls are interrupted before one is served.
    std::atomic<int> interruptedSends{0};
    std::atomic<int> interruptedReceives{0};
    /// So many connections cannot be accepted for want of descriptors.
    std::atomic<int> refusedAccepts{0};
    /// Called before each call that moves bytes. To be set while nothing is under way.
    std::function<void()> beforeTransfer = [] {};

    /// What there was since then.
    std::atomic<int> sends{0};
    std::atomic<int> accepts{0};
    std::atomic<int> lastSendFlags{0};
    std::atomic<std::size_t> lastReceiveSize{0};
};

}  // namespace netTests
